#include "CliRun.h"
#include "LocalHttpServer.h"
#include "RunHealth.h"

#include <QRegularExpression>

// What a search prints and reports: its formats, its limits, its numeric rules,
// its health and its loads ahead.
class tst_CliSearch : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { m_run.SetUp(); }
    void formatsReadBackToTheSameWords();
    void limitsMeanWhatTheySay();
    void numericRulesWithoutALocale();
    void healthReportOfABrokenRun();
    void parallelLoadsGiveTheSequentialList();

private:
    QJsonObject healthOf(const QStringList& arguments, const SiteSim& site);
    CliFixture m_run;
};

void tst_CliSearch::formatsReadBackToTheSameWords() {
    // Words that hold a comma, quotes, a tab, a line break and a backslash.
    const QByteArray page = "<html><body><a href=\"http://cgi.ebay.com/1\">Gold, "
                            "coin \"rare\" ring</a>"
                            "<a href=\"http://cgi.ebay.com/2\">tab\there "
                            "line\nbreak back\\slash ring</a>";
    LocalHttpServer server([&page](const LocalHttpRequest&, QTcpSocket* socket) {
        socket->write(LocalHttpServer::Response(200, page)); // the probe's answer too
    });
    QTemporaryDir data;
    writeCatalogue(data.path(), USSiteLabel,
                   {"Select Category~M\thttp://listings.ebay.com/M_W0QQsacatZ1",
                    "Select Category~M~S\thttp://listings.ebay.com/S_W0QQsacatZ2"});
    const QString report = data.filePath("report.json"), words = data.filePath("words.csv");
    const QStringList search{
        "search",        "--site", USSiteLabel,           "--data",  data.path(), "--proxy",
        server.Origin(), "--node", "Select Category~M~S", "--format"};

    const QJsonObject json = runCli(search + QStringList{"json", "--report", report}).json();
    QCOMPARE(json["words"].toArray().size(), 7);
    QCOMPARE(json["words"][3], (QJsonObject{{"word", "\"rare\""}, {"count", 1}}));
    QCOMPARE(json["auctions_limit"].toInt(), 2000);
    QFile reportFile(report);
    QVERIFY(reportFile.open(QIODevice::ReadOnly));
    const QJsonDocument counts = QJsonDocument::fromJson(reportFile.readAll());
    QCOMPARE(counts["auctions_counted"].toInt(), 2);
    QCOMPARE(counts["distinct_words"].toInt(), 7);
    const Run csv = runCli(search + QStringList{"csv", "--output", words});
    QVERIFY(csv.exitCode == 0 && csv.out.isEmpty());
    QFile csvFile(words);
    QVERIFY(csvFile.open(QIODevice::ReadOnly));
    QCOMPARE(csvFile.readAll(), "ring,2\n\"gold,\",1\ncoin,1\n\"\"\"rare\"\"\","
                                "1\ntab\there,1\n\"line\nbreak\",1\n"
                                "back\\slash,1\n");
    QCOMPARE(runCli(search + QStringList{"tsv"}).out,
             "ring\t2\ngold,"
             "\t1\ncoin\t1\n\"rare\"\t1\ntab\\there\t1\nline\\nbreak\t1\nback\\\\"
             "slash\t1\n");
}

QJsonObject tst_CliSearch::healthOf(const QStringList& arguments, const SiteSim& site) {
    const Run run =
        runCli(QStringList{"search", "--format", "json", "--node"} + arguments + m_run.Common(&site));
    QJsonObject result = run.json();
    result.insert("stderr", run.err);
    return result;
}

void tst_CliSearch::limitsMeanWhatTheySay() {
    QJsonObject counted;
    for (const QString limit : {"1", "9999", "none"}) {
        const QJsonObject result = healthOf({AsianAntiques, "--auctions", limit}, *m_run.site);
        const QJsonObject health = result["health"].toObject();
        QCOMPARE(result["auctions_limit"], limit == u"none" ? QJsonValue() : QJsonValue(limit.toInt()));
        QCOMPARE(health["ended_by"].toString(), limit == u"1" ? "limit" : "end");
        // At 1, page 2 is still loaded and its walk ends before an auction: no sign
        // of trouble.
        QCOMPARE(health["pages_requested"].toInt(), limit == u"1" ? 2 : 5);
        QVERIFY(!health["mostly_empty"].toBool());
        counted.insert(limit, health["auctions_counted"]);
    }
    QCOMPARE(counted["1"].toInt(), 1);
    QCOMPARE(counted["9999"], counted["none"]);
}

void tst_CliSearch::numericRulesWithoutALocale() {
    const QStringList search = QStringList{"search", "--node", AsianAntiques} + m_run.Common();
    const Run c = runCli(search, "C.UTF-8");
    QCOMPARE(c.exitCode, 0);
    // Progress is drawn only on a terminal, never into a pipe; on a terminal its line is ended
    // before the summary.
    QVERIFY(!c.err.contains(u'\r'));
    QStringList quoted;
    for (const QString& argument : QStringList{MARQUILL_CLI} + search)
        quoted << u'\'' + argument + u'\'';
    const Run terminal = runProgram("script", {"-qec", quoted.join(u' '), "/dev/null"});
    QCOMPARE(terminal.exitCode, 0);
    QVERIFY(terminal.out.contains("\rKeywords Found: "));
    QVERIFY(terminal.out.contains("\nSite: "));
    // A caption held back at the end of a page's burst is drawn while the next page loads: the
    // count after the first page shows, though a later one replaces it before the run ends.
    SiteSim slow({"--latency", "300"});
    const int firstPage = healthOf({AsianAntiques, "--auctions", "50"}, slow)["health"].toObject()["distinct_words"].toInt();
    quoted.clear();
    for (const QString& argument : QStringList{MARQUILL_CLI, "search", "--node", AsianAntiques} + m_run.Common(&slow))
        quoted << u'\'' + argument + u'\'';
    const QString drawn = QString::fromUtf8(runProgram("script", {"-qec", quoted.join(u' '), "/dev/null"}).out);
    QVERIFY2(drawn.contains(QRegularExpression(QString("Keywords Found: %1\\D").arg(firstPage))), qPrintable(drawn));
    QCOMPARE(runCli(search, "POSIX").out, c.out);
    QCOMPARE(runCli(search + QStringList{"--locale", "C.UTF-8"}, "en_GB.UTF-8").out, c.out);
    QCOMPARE(runCli(search, "en_US.UTF-8").out, c.out);
    // Under a locale whose currency is not the dollar, prices are words.
    const Run gb = runCli(search + QStringList{"--locale", "en_GB"}, "C.UTF-8");
    const QRegularExpression price("^\\$\\d+\\.\\d\\d,", QRegularExpression::MultilineOption);
    QVERIFY(!QString::fromUtf8(c.out).contains(price));
    QVERIFY(QString::fromUtf8(gb.out).contains(price));
}

void tst_CliSearch::healthReportOfABrokenRun() {
    // Of the five pages, 2 and 4 answer 500 and 3 is random bytes.
    SiteSim faulty({"--fault", "500=lopgZ2QQsacatZ11003", "--fault", "500=lopgZ4QQsacatZ11003", "--fault",
                    "garbage=lopgZ3QQsacatZ11003"});
    const QJsonObject broken = healthOf({AsianAntiques}, faulty);
    const QJsonObject health = broken["health"].toObject();
    const QJsonObject expected{
        {"pages_requested", 5},        {"pages_answered", 5}, {"http_errors", QJsonObject{{"500", 2}}},
        {"pages_without_auctions", 3}, {"ended_by", "end"},   {"scope", "sub-category"}};
    for (auto item = expected.begin(); item != expected.end(); ++item)
        QCOMPARE(health[item.key()], item.value());
    QCOMPARE(health["failed_pages"].toArray().size(), 2);
    const QString told = broken["stderr"].toString();
    QVERIFY(told.contains("warning: 3 of 4 listing pages after the first held no auction link"));
    QVERIFY(told.contains("Asian-Antiques_W0QQlopgZ2QQsacatZ11003"));
    QVERIFY(told.contains("Run: 5 pages requested, 5 answered, HTTP errors: 500 x2"));
    // Half the later pages empty is not yet a changed layout.
    SiteSim half({"--fault", "500=lopgZ2QQsacatZ11003", "--fault", "500=lopgZ4QQsacatZ11003"});
    QVERIFY(!healthOf({AsianAntiques}, half)["stderr"].toString().contains("held no auction link"));

    // A changed layout: sub-categories whose pages hold no auction link, behind
    // one that works.
    QTemporaryDir data;
    writeCatalogue(data.path(), USSiteLabel,
                   {"Select Category~Moved\thttp://listings.ebay.com/M_W0QQsacatZ1",
                    m_run.catalogue.filter("~Asian Antiques\t").value(0).replace("~Antiques~", "~Moved~"),
                    "Select Category~Moved~A\thttp://listings.ebay.com/A_W0QQsacatZ999991",
                    "Select Category~Moved~B\thttp://listings.ebay.com/B_W0QQsacatZ999992",
                    "Select Category~Moved~C\tftp://listings.ebay.com/C"});
    const Run moved = runCli({"search", "--site", USSiteLabel, "--data", data.path(), "--proxy",
                              faulty.proxyUrl().toString(), "--node", "Select Category~Moved"});
    QCOMPARE(moved.exitCode, 0);
    verifyList(moved.out);
    QVERIFY(moved.err.contains("3 of 3 listing pages after the first held no auction link"));
    QVERIFY(moved.err.contains("Run: 4 pages requested, 3 answered"));
    QVERIFY(moved.err.contains("page: http://listings.ebay.com/A_W0QQsacatZ999991"));

    // A time-out takes a minute on the wire; the report counts one from how the
    // load ended.
    RunHealth timedOut;
    timedOut.PageScanned({"http://listings.ebay.com/", 0, PageFailure::TimedOut, 0, true, true, {}, false});
    QCOMPARE(timedOut.ToJson()["timeouts"].toInt(), 1);
}

void tst_CliSearch::parallelLoadsGiveTheSequentialList() {
    const QString maps = "Select Category~Antiques~Maps, Atlases & Globes"; // 6 pages
    for (const QString limit : {"none", "120"}) {
        QStringList logs[2];
        Run runs[2];
        for (int i = 0; i < 2; ++i) {
            const qsizetype before = m_run.site->requestLog().size();
            runs[i] = runCli(QStringList{"search", "--node", maps, "--auctions", limit, "--format", "json",
                                         "--parallel", QString::number(i == 0 ? 1 : 4)} +
                             m_run.Common());
            logs[i] = m_run.site->requestLog().mid(before);
        }
        QCOMPARE(runs[1].json()["words"], runs[0].json()["words"]);
        QVERIFY(!runs[0].json()["words"].toArray().isEmpty());
        // Pages loaded ahead and never walked, later pages of the category, are all
        // that the site sees beyond the sequential run; the last ones may be
        // abandoned before they reach it.
        for (const QString& url : std::as_const(logs[0]))
            QVERIFY2(logs[1].removeOne(url), qPrintable(url));
        for (const QString& url : std::as_const(logs[1]))
            QVERIFY2(url.contains("Maps-Atlases-Globes_W0QQlopgZ"), qPrintable(url));
        const QJsonValue unused = runs[1].json()["health"].toObject()["pages_loaded_ahead_unused"];
        QVERIFY(logs[1].size() <= unused.toInt());
        QCOMPARE(unused.toInt(), limit == u"none" ? 0 : 3);
    }
    // A main category loads its sub-categories ahead: a limit met in the first leaves the loads
    // of the next ones unused.
    const QJsonObject main = runCli(QStringList{"search", "--node", "Select Category~Antiques", "--auctions", "1",
                                                "--format", "json", "--parallel", "4"} +
                                    m_run.Common())
                                 .json()["health"]
                                 .toObject();
    QCOMPARE(main["pages_requested"].toInt(), 1);
    QCOMPARE(main["pages_loaded_ahead_unused"].toInt(), 3);
}

QTEST_GUILESS_MAIN(tst_CliSearch)
#include "tst_CliSearch.moc"
