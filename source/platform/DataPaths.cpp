#include "DataPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <cstdio>
#include <optional>

#ifndef MARQUILL_SHIPPED_FROM_BIN
#define MARQUILL_SHIPPED_FROM_BIN "../share/marquill"
#endif

namespace {

const QString CategoryFileName = QStringLiteral("aeurl.xml");

struct Settings {
    QString dataFolder;
    QString programFolder;
    std::optional<DataFolders> resolved;
};

Settings& settings() {
    static Settings s;
    return s;
}

void forget() {
    settings().resolved.reset();
}

QString absolute(const QString& folder) {
    return QDir::cleanPath(QDir(folder).absolutePath());
}

// Copies the shipped category file into a fresh user data folder and says so: the window's status
// bar stays empty, so standard error is where both programs tell it. Once there, it is the user's.
// Returns the file to use: the user's, or the shipped one when the copy cannot be made, so that the
// tree can still be read and a refresh says it cannot write.
QString seedUserFolder(const DataFolders& folders) {
    const QString target = folders.Data + u'/' + CategoryFileName;
    const QString source = folders.Shipped + u'/' + CategoryFileName;
    // Without a shipped file the open creates an empty one, as for a file that went missing.
    if (QFileInfo::exists(target) || !QFileInfo::exists(source))
        return target;
    const QByteArray name = QCoreApplication::applicationName().toUtf8();
    if (!QDir().mkpath(folders.Data) || !QFile::copy(source, target)) {
        std::fprintf(stderr, "%s: cannot copy the category file to %s; reading %s\n", name.constData(),
                     qUtf8Printable(QDir::toNativeSeparators(target)),
                     qUtf8Printable(QDir::toNativeSeparators(source)));
        return source;
    }
    std::fprintf(stderr, "%s: first use: copied the category file to %s\n", name.constData(),
                 qUtf8Printable(QDir::toNativeSeparators(target)));
    return target;
}

} // namespace

DataFolders ResolveDataFolders(const DataFolderFacts& facts) {
    DataFolders folders;
    folders.Program = absolute(facts.Program);
    const QString installed = absolute(folders.Program + QStringLiteral("/" MARQUILL_SHIPPED_FROM_BIN));
    // The build tree and a portable folder carry the shipped files beside the program.
    folders.Shipped = QFileInfo(installed).isDir() ? installed : folders.Program;

    const QString named = !facts.Explicit.isEmpty() ? facts.Explicit : facts.Environment;
    if (!named.isEmpty()) {
        folders.Rule = DataFolderRule::Explicit;
        folders.Data = absolute(named);
    } else if (QFileInfo::exists(folders.Program + u'/' + CategoryFileName) &&
               facts.IsWritable(folders.Program)) {
        folders.Rule = DataFolderRule::Portable;
        folders.Data = folders.Program;
    } else {
        folders.Rule = DataFolderRule::UserData;
        folders.Data = absolute(facts.UserData);
    }
    return folders;
}

QString UserDataFolder() {
    // Named here rather than by the running program, so the window and marquill-cli share it.
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/marquill");
}

const DataFolders& CurrentDataFolders() {
    Settings& s = settings();
    if (!s.resolved) {
        DataFolderFacts facts;
        facts.Explicit = !s.dataFolder.isEmpty() ? s.dataFolder : s.programFolder;
        facts.Environment = qEnvironmentVariable("MARQUILL_DATA");
        facts.Program = !s.programFolder.isEmpty() ? s.programFolder : QCoreApplication::applicationDirPath();
        facts.UserData = UserDataFolder();
        facts.IsWritable = [](const QString& folder) { return QFileInfo(folder).isWritable(); };
        s.resolved = ResolveDataFolders(facts);
    }
    return *s.resolved;
}

QString CategoryFilePath() {
    const DataFolders& folders = CurrentDataFolders();
    if (folders.Rule == DataFolderRule::UserData)
        return seedUserFolder(folders);
    return folders.Data + u'/' + CategoryFileName;
}

QString ReadOnlyFilePath(const QString& name) {
    const DataFolders& folders = CurrentDataFolders();
    const QString own = folders.Data + u'/' + name;
    if (folders.Data == folders.Shipped || QFileInfo::exists(own))
        return own;
    return folders.Shipped + u'/' + name;
}

QString ExclusionFilePath() {
    return ReadOnlyFilePath(QStringLiteral("exclude.dat"));
}

QString ProgramFolder() {
    return CurrentDataFolders().Program;
}

void SetDataFolder(const QString& folder) {
    settings().dataFolder = folder;
    forget();
}

void SetProgramFolder(const QString& folder) {
    settings().programFolder = folder;
    forget();
}
