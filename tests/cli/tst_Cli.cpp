#include "DataPaths.h"
#include "HostHooks.h"
#include "SiteSim.h"
#include "modMain.h"
#include "modXML.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>

namespace {

struct Run {
    int exitCode = -1;
    QStringList out;
    QString err;
};

Run runCli(const QStringList& arguments, const QProcessEnvironment& environment = {},
           const QString& program = QStringLiteral(MARQUILL_CLI)) {
    QProcess process;
    if (!environment.isEmpty())
        process.setProcessEnvironment(environment);
    process.start(program, arguments);
    Run run;
    if (!process.waitForFinished(120000))
        return run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

// Writes the sample site's catalogue of one site into the category file of the folder.
void writeCatalogue(const QString& folder, const QString& site, const QStringList& lines) {
    Hooks().SiteLabel = [site] { return site; };
    const QString path = folder + QStringLiteral("/aeurl.xml");
    CategoryStore.CategoryFilePath = path;
    QVERIFY(OpenCategoryFile(path, QStringLiteral("Categories")));
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

// The printed list: word,count lines, highest count first, lower case.
void verifyList(const QStringList& lines) {
    QVERIFY(!lines.isEmpty());
    qint64 previous = std::numeric_limits<qint64>::max();
    for (const QString& line : lines) {
        const qsizetype comma = line.lastIndexOf(u',');
        QVERIFY2(comma > 0, qPrintable(line));
        const QString word = line.left(comma);
        QCOMPARE(word, word.toLower());
        bool ok = false;
        const qint64 count = line.mid(comma + 1).toLongLong(&ok);
        QVERIFY(ok && count > 0);
        QVERIFY2(count <= previous, qPrintable(line));
        previous = count;
    }
}

} // namespace

class tst_Cli : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void searchEachScope();
    void exitStatuses();
    void interruptEndsTheSearchAndPrintsTheList();
    void refreshFillsTheFileFromTheSite();
    void killedRefreshLeavesAPrefixOfTheFinds();
    void filesAreFoundByTheRules();

private:
    QStringList common() const;
    std::unique_ptr<SiteSim> m_site;
    QTemporaryDir m_dir;
    QStringList m_catalogue;
};

void tst_Cli::initTestCase() {
    m_site = std::make_unique<SiteSim>(QStringList{QStringLiteral("--latency"), QStringLiteral("5")});
    QVERIFY(m_site->isRunning());
    m_catalogue = m_site->catalogue(USSiteLabel);
    writeCatalogue(m_dir.path(), USSiteLabel, m_catalogue);
}

QStringList tst_Cli::common() const {
    return {QStringLiteral("--site"),  USSiteLabel,
            QStringLiteral("--data"),  m_dir.path(),
            QStringLiteral("--proxy"), m_site->proxyUrl().toString()};
}

void tst_Cli::searchEachScope() {
    const qsizetype before = m_site->requestLog().size();
    Run sub = runCli(QStringList{QStringLiteral("search"), QStringLiteral("--node"),
                                 QStringLiteral("Select Category~Antiques~Antiquities")} +
                     common());
    QCOMPARE(sub.exitCode, 0);
    verifyList(sub.out);
    QVERIFY(sub.err.contains(QStringLiteral("Main: Antiques")));
    QVERIFY(sub.err.contains(QStringLiteral("Sub: Antiquities")));
    QStringList log = m_site->requestLog().mid(before);
    QCOMPARE(log.first(), QStringLiteral("http://www.ebay.com/")); // the probe comes first
    QVERIFY(log.size() >= 2);

    const qsizetype beforeMain = m_site->requestLog().size();
    Run main = runCli(QStringList{QStringLiteral("search"), QStringLiteral("--node"),
                                  QStringLiteral("Select Category~Art"), QStringLiteral("--auctions"),
                                  QStringLiteral("60")} +
                      common());
    QCOMPARE(main.exitCode, 0);
    verifyList(main.out);
    QVERIFY(main.err.contains(QStringLiteral("Sub: All Sub Categories")));
    QCOMPARE(m_site->requestLog().mid(beforeMain).size(), 1 + 2); // probe, then two pages for 60 auctions

    Run root = runCli(QStringList{QStringLiteral("search"), QStringLiteral("--node"),
                                  QStringLiteral("Select Category"), QStringLiteral("--auctions"),
                                  QStringLiteral("30")} +
                      common());
    QCOMPARE(root.exitCode, 0);
    verifyList(root.out);
    QVERIFY(root.err.contains(QStringLiteral("Main: All Categories")));
}

void tst_Cli::exitStatuses() {
    Run unknown = runCli(QStringList{QStringLiteral("search"), QStringLiteral("--node"),
                                     QStringLiteral("Select Category~Nowhere")} +
                         common());
    QCOMPARE(unknown.exitCode, 2);
    QVERIFY(unknown.err.contains(QStringLiteral("Select Category~Nowhere")));
    QCOMPARE(runCli({QStringLiteral("search"), QStringLiteral("--site"), QStringLiteral("ebay.de"),
                     QStringLiteral("--node"), QStringLiteral("Select Category")})
                 .exitCode,
             2);
    QCOMPARE(runCli(QStringList{QStringLiteral("search"), QStringLiteral("--node"),
                                QStringLiteral("Select Category"), QStringLiteral("--auctions"),
                                QStringLiteral("0")} +
                    common())
                 .exitCode,
             2);
    QCOMPARE(runCli({QStringLiteral("bogus")}).exitCode, 2);
    QCOMPARE(runCli({QStringLiteral("search"), QStringLiteral("--help")}).exitCode, 0);

    SiteSim offline({QStringLiteral("--probe"), QStringLiteral("empty")});
    QVERIFY(offline.isRunning());
    Run down =
        runCli({QStringLiteral("search"), QStringLiteral("--site"), USSiteLabel, QStringLiteral("--data"),
                m_dir.path(), QStringLiteral("--proxy"), offline.proxyUrl().toString(),
                QStringLiteral("--node"), QStringLiteral("Select Category")});
    QCOMPARE(down.exitCode, 3);
    QVERIFY(down.err.contains(QStringLiteral("You appear not to be online..")));
    QCOMPARE(offline.requestLog(), QStringList{QStringLiteral("http://www.ebay.com/")});

    // A folder where the category file should be: it cannot be opened.
    QTemporaryDir blocked;
    QVERIFY(QDir(blocked.path()).mkdir(QStringLiteral("aeurl.xml")));
    Run cannot = runCli({QStringLiteral("tree"), QStringLiteral("--site"), USSiteLabel,
                         QStringLiteral("--data"), blocked.path()});
    QCOMPARE(cannot.exitCode, 4);
    QVERIFY(cannot.err.contains(QStringLiteral("Cannot open")));
}

void tst_Cli::interruptEndsTheSearchAndPrintsTheList() {
    QProcess process;
    process.start(QStringLiteral(MARQUILL_CLI),
                  QStringList{QStringLiteral("search"), QStringLiteral("--node"),
                              QStringLiteral("Select Category"), QStringLiteral("--auctions"),
                              QStringLiteral("none")} +
                      common());
    QVERIFY(process.waitForStarted());
    QByteArray err;
    QTRY_VERIFY_WITH_TIMEOUT((err += process.readAllStandardError()).contains("Keywords Found: 1"), 30000);
    ::kill(pid_t(process.processId()), SIGINT);
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    const QStringList lines =
        QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    verifyList(lines);
}

void tst_Cli::refreshFillsTheFileFromTheSite() {
    QTemporaryDir data;
    writeCatalogue(data.path(), UKSiteLabel, m_site->catalogue(UKSiteLabel));
    const Run run =
        runCli({QStringLiteral("refresh"), QStringLiteral("--site"), USSiteLabel, QStringLiteral("--data"),
                data.path(), QStringLiteral("--proxy"), m_site->proxyUrl().toString()});
    QCOMPARE(run.exitCode, 0);
    QVERIFY(run.err.contains(QStringLiteral("Total Found: 12 (")));
    const QStringList args{QStringLiteral("--data"), data.path()};
    QCOMPARE(runCli(QStringList{QStringLiteral("tree"), QStringLiteral("--site"), USSiteLabel} + args).out,
             m_catalogue);
    QCOMPARE(runCli(QStringList{QStringLiteral("tree"), QStringLiteral("--site"), UKSiteLabel} + args).out,
             m_site->catalogue(UKSiteLabel));

    // Nothing found (no server behind the proxy): the former entries stay, exit 5.
    quint16 deadPort = 0;
    {
        SiteSim gone;
        deadPort = gone.port();
    }
    const Run none =
        runCli({QStringLiteral("refresh"), QStringLiteral("--site"), USSiteLabel, QStringLiteral("--data"),
                data.path(), QStringLiteral("--proxy"), QStringLiteral("http://127.0.0.1:%1").arg(deadPort)});
    QCOMPARE(none.exitCode, 5);
    QVERIFY(none.err.contains(QStringLiteral("the former categories are kept")));
    QCOMPARE(runCli(QStringList{QStringLiteral("tree"), QStringLiteral("--site"), USSiteLabel} + args).out,
             m_catalogue);
}

void tst_Cli::killedRefreshLeavesAPrefixOfTheFinds() {
    SiteSim slow({QStringLiteral("--latency"), QStringLiteral("30")});
    QTemporaryDir data;
    QProcess process;
    process.start(QStringLiteral(MARQUILL_CLI),
                  {QStringLiteral("refresh"), QStringLiteral("--site"), USSiteLabel, QStringLiteral("--data"),
                   data.path(), QStringLiteral("--proxy"), slow.proxyUrl().toString()});
    QByteArray err;
    QTRY_VERIFY_WITH_TIMEOUT((err += process.readAllStandardError()).contains("Total Found: 3 ("), 60000);
    process.kill();
    QVERIFY(process.waitForFinished(10000));
    const Run tree = runCli({QStringLiteral("tree"), QStringLiteral("--site"), USSiteLabel,
                             QStringLiteral("--data"), data.path()});
    QCOMPARE(tree.exitCode, 0);
    QVERIFY(tree.out.size() > 3);
    QCOMPARE(tree.out, m_catalogue.mid(0, tree.out.size()));
    QVERIFY(!QFile::exists(data.filePath(QStringLiteral("aeurl.xml.unreadable"))));
}

// A copy of the tool in an installed layout; the folders' category files differ in size.
void tst_Cli::filesAreFoundByTheRules() {
    QTemporaryDir root;
    const QString bin = root.filePath(QStringLiteral("bin")), cli = bin + QStringLiteral("/marquill-cli");
    const QString shipped = root.filePath(QStringLiteral("share/marquill")), own = m_dir.path();
    const QString user = root.filePath(QStringLiteral("xdg/marquill"));
    QVERIFY(QDir().mkpath(bin) && QDir().mkpath(shipped));
    QVERIFY(QFile::copy(QStringLiteral(MARQUILL_CLI), cli));
    writeCatalogue(shipped, USSiteLabel, m_catalogue.mid(1, 2));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), root.filePath(QStringLiteral("xdg")));
    env.remove(QStringLiteral("MARQUILL_DATA"));
    const QStringList tree{QStringLiteral("tree"), QStringLiteral("--site"), USSiteLabel};

    // Installed: the user's data folder, seeded from the shipped file, which is said once.
    const Run first = runCli(tree, env, cli);
    QCOMPARE(first.out, m_catalogue.mid(0, 3));
    QVERIFY(first.err.contains(QStringLiteral("first use: copied the category file to ") + user));
    QVERIFY(!runCli(tree, env, cli).err.contains(QStringLiteral("first use")));
    // A data folder that cannot be made: the shipped file is read, and that is said.
    env.insert(QStringLiteral("XDG_DATA_HOME"), cli);
    const Run noFolder = runCli(tree, env, cli);
    QCOMPARE(noFolder.out, first.out);
    QVERIFY(noFolder.err.contains(QStringLiteral("cannot copy the category file")));
    // MARQUILL_DATA names the folder, and --data comes before it. The other site there has no entries.
    env.insert(QStringLiteral("MARQUILL_DATA"), own);
    QCOMPARE(runCli(tree, env, cli).out, m_catalogue);
    QCOMPARE(runCli({QStringLiteral("tree"), QStringLiteral("--site"), UKSiteLabel}, env, cli).out,
             QStringList{QStringLiteral("Select Category\tRoot")});
    QCOMPARE(runCli(tree + QStringList{QStringLiteral("--data"), user}, env, cli).out, m_catalogue.mid(0, 3));
    // Portable: the program's own folder holds a category file it may write...
    env.remove(QStringLiteral("MARQUILL_DATA"));
    QVERIFY(QFile::copy(own + QStringLiteral("/aeurl.xml"), bin + QStringLiteral("/aeurl.xml")));
    QCOMPARE(runCli(tree, env, cli).out, m_catalogue);
    // ... unless it may not be written (root may write anything, so the rule is asked directly).
    const DataFolderFacts readOnly{QString(), QString(), bin, user, [](const QString&) { return false; }};
    QCOMPARE(ResolveDataFolders(readOnly).Data, user);
    QCOMPARE(ResolveDataFolders(readOnly).Shipped, shipped);

    // The exclusion list: the user's copy when there is one, else the shipped one.
    SetDataFolder(user);
    QCOMPARE(ExclusionFilePath(), CurrentDataFolders().Shipped + QStringLiteral("/exclude.dat"));
    QVERIFY(QFile(user + QStringLiteral("/exclude.dat")).open(QIODevice::WriteOnly));
    QCOMPARE(ExclusionFilePath(), user + QStringLiteral("/exclude.dat"));
    SetDataFolder(QString());
}

QTEST_GUILESS_MAIN(tst_Cli)
#include "tst_Cli.moc"
