#pragma once

// Runs marquill-cli for a test and reads back what it printed, beside the
// sample site.
#include "HostHooks.h"
#include "SiteSim.h"
#include "modMain.h"
#include "modXML.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <limits>
#include <memory>

struct Run {
    int exitCode = -1;
    QByteArray out;
    QString err;
    QStringList lines() const { return QString::fromUtf8(out).split(u'\n', Qt::SkipEmptyParts); }
    QJsonObject json() const { return QJsonDocument::fromJson(out).object(); }
};

// Waits with the event loop turning, so that a server of this process can
// answer the tool. An empty environment is this process's.
inline Run runProgram(const QString& program, const QStringList& arguments,
                      const QProcessEnvironment& environment = {}) {
    QProcess process;
    if (!environment.isEmpty())
        process.setProcessEnvironment(environment);
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(program, arguments);
    Run run;
    if (finished.wait(60000)) {
        run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        run.out = process.readAllStandardOutput();
        run.err = QString::fromUtf8(process.readAllStandardError());
    }
    return run;
}

inline Run runCli(const QStringList& arguments, const QString& localeVariable = {}) {
    QProcessEnvironment environment;
    if (!localeVariable.isEmpty()) {
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert("LC_ALL", localeVariable);
    }
    return runProgram(QStringLiteral(MARQUILL_CLI), arguments, environment);
}

// Writes a catalogue of one site ("FullPath<TAB>URL" lines) into the category
// file of the folder.
inline void writeCatalogue(const QString& folder, const QString& site, const QStringList& lines) {
    Hooks().SiteLabel = [site] { return site; };
    const QString path = folder + "/aeurl.xml";
    CategoryStore.CategoryFilePath = path;
    QVERIFY(OpenCategoryFile(path, "Categories"));
    for (const QString& line : lines) {
        const QStringList fields = line.split(u'\t');
        const qsizetype depth = fields[0].count(u'~');
        if (depth == 1)
            AddMainCategory(fields[0].section(u'~', 1), fields[1]);
        else if (depth == 2)
            AddSubCategory(fields[0].section(u'~', 2), fields[1]);
    }
    ReleaseCategoryFile();
}

// The printed list: lower-case words, highest count first.
inline void verifyList(const QByteArray& csv) {
    QVERIFY(!csv.isEmpty());
    qint64 previous = std::numeric_limits<qint64>::max();
    for (const QByteArray& line : csv.trimmed().split('\n')) {
        const qint64 count = line.mid(line.lastIndexOf(',') + 1).toLongLong();
        QVERIFY2(count > 0 && count <= previous && line == line.toLower(), line.constData());
        previous = count;
    }
}

// The sample site with a catalogue of its US site in a folder of its own,
// exclusion file beside it.
struct CliFixture {
    void SetUp() {
        site = std::make_unique<SiteSim>(QStringList{"--latency", "5"});
        QVERIFY(site->isRunning());
        catalogue = site->catalogue(USSiteLabel);
        writeCatalogue(dir.path(), USSiteLabel, catalogue);
        QVERIFY(QFile::copy(QStringLiteral(MARQUILL_DATA_DIR "/exclude.dat"), dir.filePath("exclude.dat")));
    }
    // --site, --data and --proxy of a search of the fixture's site, or of
    // another.
    QStringList Common(const SiteSim* other = nullptr) const {
        return {"--site",   USSiteLabel, "--data",
                dir.path(), "--proxy",   (other ? other : site.get())->proxyUrl().toString()};
    }

    std::unique_ptr<SiteSim> site;
    QTemporaryDir dir;
    QStringList catalogue;
};

inline const QString AsianAntiques = "Select Category~Antiques~Asian Antiques"; // 5 pages
