#include "CliRun.h"
#include "DataPaths.h"

#include <QDir>
#include <csignal>

// The commands of marquill-cli, their options and their exit statuses.
class tst_Cli : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void searchEachScope();
    void exitStatuses_data();
    void exitStatuses();
    void exitStatusesOfRuns();
    void filesAreFoundByTheRules();

private:
    CliFixture m_run;
    std::unique_ptr<SiteSim> m_slow;
};

void tst_Cli::initTestCase() {
    m_run.SetUp();
    m_slow = std::make_unique<SiteSim>(QStringList{"--latency", "30"});
    QVERIFY(m_slow->isRunning());
}

void tst_Cli::searchEachScope() {
    // A sub-category, a main category at 60 auctions, the root quietly. The probe comes first.
    const QList<std::tuple<QStringList, QString, int>> scopes{
        {{"--node", AsianAntiques}, "Main: Antiques\nSub: Asian Antiques", 1 + 5},
        {{"--node", "Select Category~Art", "--auctions", "60"}, "Sub: All Sub Categories", 1 + 2},
        {{"--node", "Select Category", "--auctions", "30", "--quiet"}, "", -1}};
    for (const auto& [options, told, requests] : scopes) {
        const qsizetype before = m_run.site->requestLog().size();
        const Run run = runCli(QStringList{"search"} + options + m_run.Common());
        QCOMPARE(run.exitCode, 0);
        verifyList(run.out);
        QVERIFY(told.isEmpty() ? run.err.isEmpty() : run.err.contains(told));
        QCOMPARE(m_run.site->requestLog().value(before), "http://www.ebay.com/");
        QVERIFY(requests < 0 || m_run.site->requestLog().size() - before == requests);
    }
}

void tst_Cli::exitStatuses_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("told");
    const auto row = [](const char* name, const QStringList& arguments, int status, const char* told) {
        QTest::newRow(name) << arguments << status << QString(told);
    };
    const QStringList search{"search", "--node", "Select Category"};
    row("unknown node", {"search", "--node", "Select Category~Nowhere"}, 2,
        "no node \"Select Category~Nowhere\"");
    row("unknown site", search + QStringList{"--site", "ebay.de"}, 2, "--site must be");
    row("missing site", {"tree"}, 2, "tree: missing --site");
    row("missing node", {"search", "--quiet"}, 2, "search: missing --node");
    row("no auctions", search + QStringList{"--auctions", "0"}, 2, "--auctions must be");
    row("auctions beyond 32 bits", search + QStringList{"--auctions", "2147483648"}, 2, "--auctions must be");
    row("unknown format", search + QStringList{"--format", "xml"}, 2, "--format must be");
    row("unknown locale", search + QStringList{"--locale", "xx_QQ"}, 2, "--locale must");
    row("no parallel load", search + QStringList{"--parallel", "0"}, 2, "--parallel must be");
    row("no --help-all", search + QStringList{"--help-all"}, 2, "help-all");
    row("unknown command", {"bogus"}, 2, "unknown command \"bogus\"");
    row("command help", {"search", "--help"}, 0, "Usage: marquill-cli search [options]");
    row("program help", {"--help"}, 0, "130  stopped by Ctrl-C");
    row("version", {"--version"}, 0, "marquill-cli 1.");
    row("output cannot be written", search + QStringList{"--output", "/nonexistent/w.csv"}, 7,
        "cannot write /nonexistent/w.csv");
}

void tst_Cli::exitStatuses() {
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, told);
    // The common options go first, so that a row's own options win.
    const Run run =
        runCli(arguments.size() > 1 ? arguments.mid(0, 1) + m_run.Common() + arguments.mid(1) : arguments);
    QCOMPARE(run.exitCode, status);
    QVERIFY2((run.err + QString::fromUtf8(run.out)).contains(told), qPrintable(run.err));
}

void tst_Cli::exitStatusesOfRuns() {
    SiteSim offline({"--probe", "empty"});
    Run down = runCli(QStringList{"search", "--node", "Select Category"} + m_run.Common(&offline));
    QCOMPARE(down.exitCode, 3);
    QVERIFY(down.err.contains("You appear not to be online.."));
    QCOMPARE(offline.requestLog(), QStringList{"http://www.ebay.com/"});

    // Nothing found (no server behind the proxy): the former entries stay, exit 5.
    quint16 deadPort = 0;
    {
        SiteSim gone;
        deadPort = gone.port();
    }
    const QStringList tree{"tree", "--site", USSiteLabel, "--data", m_run.dir.path()};
    const Run none = runCli({"refresh", "--site", USSiteLabel, "--data", m_run.dir.path(), "--proxy",
                             QStringLiteral("http://127.0.0.1:%1").arg(deadPort)});
    QCOMPARE(none.exitCode, 5);
    QVERIFY(none.err.contains("the former categories are kept"));
    QCOMPARE(runCli(tree).lines(), m_run.catalogue);
    // A page answered with an error is listed by its status.
    SiteSim failing({"--fault", "500=listings"});
    const Run refused = runCli({"refresh", "--site", USSiteLabel, "--data", m_run.dir.path(), "--proxy",
                                failing.proxyUrl().toString()});
    QVERIFY2(refused.err.contains("HTTP 500"), qPrintable(refused.err));
    QCOMPARE(runCli(tree).lines(), m_run.catalogue);

    // Ctrl-C stops a search, which still prints what it found and keeps its titles, and a refresh.
    QTemporaryDir data;
    const QString titles = data.filePath("titles.jsonl");
    const QStringList site{"--site", USSiteLabel, "--proxy", m_slow->proxyUrl().toString()};
    for (const QStringList& command :
         {QStringList{"search", "--node", "Select Category", "--auctions", "none", "--data", m_run.dir.path(),
                      "--save-titles", titles},
          QStringList{"refresh", "--data", data.path()}}) {
        QProcess process;
        const qsizetype before = m_slow->requestLog().size();
        process.start(QStringLiteral(MARQUILL_CLI), command + site);
        QTRY_VERIFY_WITH_TIMEOUT(m_slow->requestLog().size() >= before + 3, 30000);
        ::kill(pid_t(process.processId()), SIGINT);
        QVERIFY(process.waitForFinished(30000));
        QCOMPARE(process.exitCode(), 130);
        if (command[0] != u"search")
            continue;
        const QByteArray found = process.readAllStandardOutput();
        verifyList(found);
        // A title cut short by the stop is kept whole, so its recount may only find more.
        const Run recount = runCli({"recount", titles, "--data", m_run.dir.path()});
        // Both lists are quoted alike, so the count is what follows a line's last comma.
        QHash<QByteArray, int> recounted;
        for (const QByteArray& line : recount.out.split('\n'))
            recounted.insert(line.left(line.lastIndexOf(',')), line.mid(line.lastIndexOf(',') + 1).toInt());
        for (const QByteArray& line : found.split('\n'))
            QVERIFY(recounted.value(line.left(line.lastIndexOf(','))) >=
                    line.mid(line.lastIndexOf(',') + 1).toInt());
    }
}

// Where the files are: the tree printed from each folder the rules choose.
void tst_Cli::filesAreFoundByTheRules() {
    QTemporaryDir root;
    const QString bin = root.filePath("bin"), cli = bin + "/marquill-cli";
    const QString shipped = root.filePath("share/marquill"), own = m_run.dir.path();
    const QString user = root.filePath("xdg/marquill");
    const QStringList& catalogue = m_run.catalogue;
    QVERIFY(QDir().mkpath(bin) && QDir().mkpath(shipped));
    QVERIFY(QFile::copy(QStringLiteral(MARQUILL_CLI), cli));
    writeCatalogue(shipped, USSiteLabel, catalogue.mid(1, 2));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", root.filePath("xdg"));
    env.remove("MARQUILL_DATA");
    const QStringList tree{"tree", "--site", USSiteLabel};

    // Installed: the user's data folder, seeded from the shipped file, which is said once.
    const Run first = runProgram(cli, tree, env);
    QCOMPARE(first.lines(), catalogue.mid(0, 3));
    QVERIFY(first.err.contains("first use: copied the category file to " + user));
    QVERIFY(!runProgram(cli, tree, env).err.contains("first use"));
    // A data folder that cannot be made: the shipped file is read, and that is said.
    env.insert("XDG_DATA_HOME", cli);
    const Run noFolder = runProgram(cli, tree, env);
    QCOMPARE(noFolder.lines(), first.lines());
    QVERIFY(noFolder.err.contains("cannot copy the category file"));
    // MARQUILL_DATA names the folder, and --data comes before it. The other site there has no entries.
    env.insert("MARQUILL_DATA", own);
    QCOMPARE(runProgram(cli, tree, env).lines(), catalogue);
    QCOMPARE(runProgram(cli, {"tree", "--site", UKSiteLabel}, env).lines(),
             QStringList{"Select Category\tRoot"});
    QCOMPARE(runProgram(cli, tree + QStringList{"--data", user}, env).lines(), catalogue.mid(0, 3));
    // Portable: the program's own folder holds a category file it may write...
    env.remove("MARQUILL_DATA");
    QVERIFY(QFile::copy(own + "/aeurl.xml", bin + "/aeurl.xml"));
    QCOMPARE(runProgram(cli, tree, env).lines(), catalogue);
    // ... unless it may not be written (root may write anything, so the rule is asked directly).
    const DataFolderFacts readOnly{QString(), QString(), bin, user, [](const QString&) { return false; }};
    QCOMPARE(ResolveDataFolders(readOnly).Data, user);
    QCOMPARE(ResolveDataFolders(readOnly).Shipped, shipped);

    // The exclusion list: the user's copy when there is one, else the shipped one.
    SetDataFolder(user);
    QCOMPARE(ExclusionFilePath(), CurrentDataFolders().Shipped + "/exclude.dat");
    QVERIFY(QFile(user + "/exclude.dat").open(QIODevice::WriteOnly));
    QCOMPARE(ExclusionFilePath(), user + "/exclude.dat");
    SetDataFolder(QString());
}

QTEST_GUILESS_MAIN(tst_Cli)
#include "tst_Cli.moc"
