#pragma once

// Runs marquill-cli for a test and reads back what it printed, beside the sample site.
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

// Waits with the event loop turning, so that a server of this process can answer the tool. An
// empty environment is this process's.
inline Run runProgram(const QString& program, const QStringList& arguments,
                      const QProcessEnvironment& environment) {
    QProcess process;
    if (!environment.isEmpty())
        process.setProcessEnvironment(environment);
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(program, arguments);
    Run run;
    if (!finished.wait(60000))
        return run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = process.readAllStandardOutput();
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

inline Run runProgram(const QString& program, const QStringList& arguments,
                      const QString& localeVariable = {}) {
    QProcessEnvironment environment;
    if (!localeVariable.isEmpty()) {
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert("LC_ALL", localeVariable);
    }
    return runProgram(program, arguments, environment);
}

inline Run runCli(const QStringList& arguments, const QString& localeVariable = {}) {
    return runProgram(QStringLiteral(MARQUILL_CLI), arguments, localeVariable);
}

// Writes a catalogue of one site ("FullPath<TAB>URL" lines) into the category file of the folder.
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

using Rows = QList<QStringList>;

// RFC 4180 read back: quoted fields with doubled quotes, commas and line breaks inside.
inline Rows readCsv(const QString& text) {
    Rows rows;
    QStringList row;
    QString field;
    bool inQuotes = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (inQuotes && c == u'"' && i + 1 < text.size() && text[i + 1] == u'"')
            field += text[++i];
        else if (c == u'"')
            inQuotes = !inQuotes;
        else if (!inQuotes && (c == u',' || c == u'\n')) {
            row << std::exchange(field, QString());
            if (c == u'\n')
                rows << std::exchange(row, QStringList());
        } else
            field += c;
    }
    return rows;
}

// TSV read back: \t, \n, \r and \\ in a field stand for what they escape.
inline Rows readTsv(const QString& text) {
    Rows rows;
    for (const QString& line : text.split(u'\n', Qt::SkipEmptyParts)) {
        rows << QStringList();
        for (const QString& field : line.split(u'\t')) {
            QString plain;
            for (qsizetype i = 0; i < field.size(); ++i) {
                const QChar e = field[i] == u'\\' && i + 1 < field.size() ? field[++i] : QChar();
                plain += e.isNull()  ? field[i]
                         : e == u't' ? u'\t'
                         : e == u'n' ? u'\n'
                         : e == u'r' ? u'\r'
                                     : e;
            }
            rows.back() << plain;
        }
    }
    return rows;
}

inline Rows rowsOf(const QJsonObject& result) {
    Rows rows;
    for (const QJsonValue word : result["words"].toArray())
        rows << QStringList{word["word"].toString(), QString::number(word["count"].toInteger())};
    return rows;
}

// The printed list: lower-case words, highest count first.
inline void verifyList(const QByteArray& csv) {
    const Rows rows = readCsv(QString::fromUtf8(csv));
    QVERIFY(!rows.isEmpty());
    qint64 previous = std::numeric_limits<qint64>::max();
    for (const QStringList& row : rows) {
        QCOMPARE(row.size(), 2);
        QCOMPARE(row[0], row[0].toLower());
        const qint64 count = row[1].toLongLong();
        QVERIFY(count > 0 && count <= previous);
        previous = count;
    }
}

// The sample site with a catalogue of its US site in a folder of its own, exclusion file beside it.
struct CliFixture {
    void SetUp() {
        site = std::make_unique<SiteSim>(QStringList{"--latency", "5"});
        QVERIFY(site->isRunning());
        catalogue = site->catalogue(USSiteLabel);
        writeCatalogue(dir.path(), USSiteLabel, catalogue);
        QVERIFY(QFile::copy(QStringLiteral(MARQUILL_DATA_DIR "/exclude.dat"), dir.filePath("exclude.dat")));
    }
    // --site, --data and --proxy of a search of the fixture's site, or of another.
    QStringList Common(const SiteSim* other = nullptr) const {
        return {"--site",   USSiteLabel, "--data",
                dir.path(), "--proxy",   (other ? other : site.get())->proxyUrl().toString()};
    }

    std::unique_ptr<SiteSim> site;
    QTemporaryDir dir;
    QStringList catalogue;
};

inline const QString AsianAntiques = "Select Category~Antiques~Asian Antiques"; // 5 pages
