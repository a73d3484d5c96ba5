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
    bool seedTried = false;
};

Settings& settings() {
    static Settings s;
    return s;
}

void forget() {
    settings().resolved.reset();
    settings().seedTried = false;
}

QString absolute(const QString& folder) {
    return QDir::cleanPath(QDir(folder).absolutePath());
}

// Copies the shipped category file into a fresh user data folder, once, and says so: the window's
// status bar stays empty, so standard error is where both programs tell it.
void seedUserFolder(const DataFolders& folders) {
    const QString target = folders.Data + u'/' + CategoryFileName;
    if (QFileInfo::exists(target))
        return;
    const QString source = folders.Shipped + u'/' + CategoryFileName;
    const QString name = QCoreApplication::applicationName();
    if (!QDir().mkpath(folders.Data)) {
        std::fprintf(stderr, "%s: cannot create the data folder %s\n", qUtf8Printable(name),
                     qUtf8Printable(QDir::toNativeSeparators(folders.Data)));
        return;
    }
    // Without a shipped file the open creates an empty one, as for a file that went missing.
    if (!QFileInfo::exists(source))
        return;
    if (!QFile::copy(source, target)) {
        std::fprintf(stderr, "%s: cannot copy %s to %s\n", qUtf8Printable(name),
                     qUtf8Printable(QDir::toNativeSeparators(source)),
                     qUtf8Printable(QDir::toNativeSeparators(target)));
        return;
    }
    // The shipped file is read-only for the user; the copy is the user's to refresh.
    QFile::setPermissions(target, QFile::permissions(target) | QFileDevice::WriteOwner);
    std::fprintf(stderr, "%s: first use: copied the category file to %s\n", qUtf8Printable(name),
                 qUtf8Printable(QDir::toNativeSeparators(target)));
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
    Settings& s = settings();
    if (folders.Rule == DataFolderRule::UserData && !s.seedTried) {
        s.seedTried = true;
        seedUserFolder(folders);
    }
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
