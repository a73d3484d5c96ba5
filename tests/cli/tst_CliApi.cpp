#include "ApiClient.h"
#include "ApiKeys.h"
#include "ApiScan.h"
#include "CliRun.h"
#include "LocalHttpServer.h"
#include "ServiceVariables.h"
#include "modParser.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QUrlQuery>
#include <sys/stat.h>

// Today's site through its API, against the sample site: the same words as its pages, the token's
// life, the service's limits and failures, and the keys kept secret in every output.
class tst_CliApi : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init() { m_outputs.clear(); }
    void cleanup();
    void sameWordsAsTheListingPages_data();
    void sameWordsAsTheListingPages();
    void tokenLimitsAndRefusals();
    void stopsEndTheServiceWaitAndTheItemWalk();
    void serviceAddressesAndTheirLaterPages();
    void whatTheServiceSeesAndHowItsFailuresRead();
    void keyFileRules_data();
    void keyFileRules();

private:
    // A run with the sample site as the API and the sample keys; later variables override.
    Run api(const SiteSim& site, const QStringList& arguments, const QStringList& variables = {});
    // A search of Folk Art (12,500 auctions) through the API of the site.
    Run folkArt(const SiteSim& site, const QString& auctions, const QStringList& more = {});
    QString file(const QString& path);
    static QString folkArtId(const SiteSim& site);

    QTemporaryDir m_dir;
    QStringList m_outputs;
};

Run tst_CliApi::api(const SiteSim& site, const QStringList& arguments, const QStringList& variables) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString& variable :
         QStringList{"XDG_CONFIG_HOME=" + m_dir.path(), "MARQUILL_EBAY_RATE=1000",
                     "MARQUILL_EBAY_API=" + site.proxyUrl().toString(), "MARQUILL_EBAY_CLIENT_ID=sample-id",
                     "MARQUILL_EBAY_CLIENT_SECRET=sample-secret"} +
             variables)
        environment.insert(variable.section(u'=', 0, 0), variable.section(u'=', 1));
    const Run run = runProgram(MARQUILL_CLI, arguments, environment);
    m_outputs << QString::fromUtf8(run.out) << run.err;
    return run;
}

Run tst_CliApi::folkArt(const SiteSim& site, const QString& auctions, const QStringList& more) {
    writeCatalogue(
        m_dir.path(), USSiteLabel,
        {"Select Category~Art\tx", "Select Category~Art~Folk Art\t" + ApiSearchUrl(folkArtId(site))});
    return api(site,
               {"search", "--site", USSiteLabel, "--data", m_dir.path(), "--proxy",
                site.proxyUrl().toString(), "--node", "Select Category~Art~Folk Art", "--auctions", auctions,
                "--report", m_dir.filePath("report.json")},
               more);
}

QString tst_CliApi::folkArtId(const SiteSim& site) {
    // The catalogue is the same for every instance; it is read once.
    static const QString id = QRegularExpression("Folk Art\t.*QQsacatZ(\\d+)")
                                  .match(site.catalogue(USSiteLabel).join('\n'))
                                  .captured(1);
    return id;
}

QString tst_CliApi::file(const QString& path) {
    QFile f(path);
    m_outputs << (f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.readAll()) : QString());
    return m_outputs.back();
}

void tst_CliApi::cleanup() {
    file(m_dir.filePath("report.json"));
    file(m_dir.filePath("aeurl.xml"));
    for (const QString& output : std::as_const(m_outputs)) {
        QVERIFY(!output.contains("sample-secret"));
        QVERIFY(!output.contains("sample-token"));
    }
}

void tst_CliApi::sameWordsAsTheListingPages_data() {
    QTest::addColumn<QString>("site");
    QTest::addColumn<QString>("node");
    QTest::newRow("us") << USSiteLabel << "Select Category~Antiques~Asian Antiques";
    QTest::newRow("uk") << UKSiteLabel << "Select Category~Antiques~Asian & Oriental Antiques";
}

void tst_CliApi::sameWordsAsTheListingPages() {
    QFETCH(QString, site);
    QFETCH(QString, node);
    SiteSim sim;
    QTemporaryDir pages, apis;
    const QTemporaryDir* dirs[] = {&pages, &apis};
    QStringList paths[2];
    Run words[2];
    for (int i = 0; i < 2; ++i) {
        QVERIFY(QFile::copy(MARQUILL_DATA_DIR "/exclude.dat", dirs[i]->filePath("exclude.dat")));
        const QStringList common{"--site", site, "--data", dirs[i]->path()};
        const QString proxy = sim.proxyUrl().toString();
        QCOMPARE(api(sim, QStringList{"refresh", "--proxy", proxy, "--source", i ? "api" : "pages"} + common)
                     .exitCode,
                 0);
        for (const QString& line : api(sim, QStringList{"tree"} + common).lines())
            paths[i] << line.section(u'\t', 0, 0);
        // Three listing pages against one page of the API.
        words[i] =
            api(sim, QStringList{"search", "--proxy", proxy, "--auctions", "120", "--node", node} + common);
        QCOMPARE(words[i].exitCode, 0);
    }
    QVERIFY(
        file(apis.filePath("aeurl.xml")).contains("https://api.ebay.com/buy/browse/v1/item_summary/search?"));
    QVERIFY(paths[0].size() > 20);
    QCOMPARE(paths[1], paths[0]);
    verifyList(words[1].out);
    QCOMPARE(words[1].out, words[0].out);
    QCOMPARE(sim.requestLog().filter("item_summary/search?category_ids=").size(), 1);
}

void tst_CliApi::tokenLimitsAndRefusals() {
    // Tokens of one second and a 429 asking for a second's wait: the page is asked for again after
    // it, and a new token is fetched on the way.
    SiteSim slow({"--api-token-seconds", "1", "--fault", "429=offset=200", "--api-retry-after", "1"});
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(folkArt(slow, "600").exitCode, 0);
    QVERIFY(timer.elapsed() >= 1000);
    QVERIFY(slow.requestLog().filter("offset=200").size() >= 2);
    QVERIFY(slow.requestLog().filter("oauth2/token").size() >= 2);

    // A token refused is renewed once; refused again, the service's words and status 8.
    SiteSim refusing({"--fault", "401=offset=200"});
    const Run refused = folkArt(refusing, "600");
    QCOMPARE(refused.exitCode, 8);
    QVERIFY(refused.err.contains("(HTTP 401): Invalid access token"));
    const QStringList log = refusing.requestLog().filter(QRegularExpression("token|offset=200"));
    QCOMPARE(log.size(), 4);
    QVERIFY(log[2].contains("oauth2/token"));

    const Run badSecret = folkArt(refusing, "10", {"MARQUILL_EBAY_CLIENT_SECRET=not-it"});
    QCOMPARE(badSecret.exitCode, 8);
    QVERIFY(badSecret.err.contains("The site's API refused the application keys (HTTP 401): client "
                                   "authentication failed (invalid_client)"));
    QVERIFY(badSecret.out.isEmpty());
    // Keys that cannot be used fail a refresh through the service as the service's refusal does.
    const Run noKeys =
        api(refusing, {"refresh", "--site", USSiteLabel, "--data", m_dir.path(), "--source", "api"},
            {"MARQUILL_EBAY_CLIENT_SECRET="});
    QCOMPARE(noKeys.exitCode, 8);
    QVERIFY(noKeys.err.contains("only one of them"));

    // The whole of a category past the offset cap: the run stops there and says so.
    SiteSim sim;
    const Run capped = folkArt(sim, "none");
    QCOMPARE(capped.exitCode, 0);
    const QJsonObject report = QJsonDocument::fromJson(file(m_dir.filePath("report.json")).toUtf8()).object();
    QCOMPARE(report["auctions_counted"].toInt(), ApiOffsetCap);
    QVERIFY(report["offset_cap_reached"].toBool());
    QVERIFY(capped.err.contains("offset cap"));
}

void tst_CliApi::stopsEndTheServiceWaitAndTheItemWalk() {
    SiteSim sim({"--fault", "429=offset=200", "--api-retry-after", "60"});
    const ServiceVariables service(sim.proxyUrl().toString());
    SetProgramFolder(m_dir.path());
    HarvestState = HarvestRecord();
    HarvestState.MaxAuctions = NoAuctionLimit;
    Hooks().ExclusionFileUnreadable = [](const QString&) {};
    // The stop comes while the run waits out the 429 of its second page.
    int waits = 0;
    Hooks().WaitForEvents = [&waits, &sim] {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (sim.requestLog().filter("offset=200").size() == 1 && ++waits > 1)
            HarvestState.StopRequested = FlagTrue;
    };
    RunHarvest(ScopeSubCategory, ApiSearchUrl(folkArtId(sim)), nullptr, nullptr);
    QCOMPARE(HarvestState.AuctionsScanned, 200);
    QCOMPARE(sim.requestLog().filter("offset=200").size(), 1);
    // A stop in the first yield, before the first item of the first page, counts no auction.
    HarvestState = HarvestRecord();
    HarvestState.MaxAuctions = NoAuctionLimit;
    ResetHooks();
    Hooks().ExclusionFileUnreadable = [](const QString&) {};
    Hooks().Yield = [] { HarvestState.StopRequested = FlagTrue; };
    RunHarvest(ScopeSubCategory, ApiSearchUrl(folkArtId(sim)), nullptr, nullptr);
    ResetHooks();
    QCOMPARE(HarvestState.AuctionsScanned, 0);
    QCOMPARE(HarvestState.ScanHalted, FlagTrue);
}

void tst_CliApi::serviceAddressesAndTheirLaterPages() {
    QVERIFY(IsApiSearchUrl(ApiSearchUrl("7")));
    QVERIFY(!IsApiSearchUrl("http://elsewhere.example/buy/browse/v1/item_summary/search?category_ids=7"));
    QVERIFY(!IsApiSearchUrl(ApiSearchUrl("7").replace("search?", "searches?")));
    // A later page steps on by the address's own limit, or by the service's default of 50.
    const auto offsetOfPage3 = [](const QString& query) {
        return QUrlQuery(QUrl(ApiResultPageUrl(3, ApiSearchUrl("7").section('?', 0, 0) + query)))
            .queryItemValue("offset");
    };
    QCOMPARE(offsetOfPage3("?limit=1&offset=5"), "7");
    QCOMPARE(offsetOfPage3("?limit=0"), "100");
    QCOMPARE(offsetOfPage3("?category_ids=7"), "100");
}

void tst_CliApi::whatTheServiceSeesAndHowItsFailuresRead() {
    LocalHttpServer service([](const LocalHttpRequest& request, QTcpSocket* socket) {
        socket->write(LocalHttpServer::Response(200,
                                                request.Path() == "/identity/v1/oauth2/token"
                                                    ? R"({"access_token": "t0k", "expires_in": 7200})"
                                                    : R"({"total": 0, "itemSummaries": []})",
                                                "application/json"));
    });
    // One that is always busy, asked at once again as it says: four more times, then its refusal
    // (a runaway is stopped rather than waited for). One that hangs up answers nothing.
    int asked = 0;
    LocalHttpServer busy([&asked](const LocalHttpRequest&, QTcpSocket* socket) {
        if (++asked > 10)
            HarvestState.StopRequested = FlagTrue;
        socket->write(LocalHttpServer::Response(429, "{}", "application/json", "Retry-After: 0\r\n"));
    });
    LocalHttpServer silent([](const LocalHttpRequest&, QTcpSocket* socket) { socket->abort(); });
    ServiceVariables variables(service.Origin());
    HarvestState = HarvestRecord();
    const bool answered = ApiClient().Get(ApiSearchUrl("7"), "EBAY_GB").Ok();
    variables.At(busy.Origin());
    const ApiReply refused = ApiClient().Get(ApiSearchUrl("7"), "EBAY_GB");
    variables.At(silent.Origin());
    const ApiReply unanswered = ApiClient().Get(ApiSearchUrl("7"), "EBAY_GB");
    QCOMPARE(asked, 1 + ApiClient::MaxRetries);
    QVERIFY(refused.httpStatus == 429 && refused.message.startsWith("The site's API refused"));
    QCOMPARE(unanswered.failure, PageFailure::Network);
    QVERIFY2(unanswered.message.startsWith("The site's API at " + silent.Origin() + " did not answer"),
             qPrintable(unanswered.message));
    QVERIFY(answered);
    QCOMPARE(service.Requests().size(), 2);
    const LocalHttpRequest& token = service.Requests()[0];
    QCOMPARE(token.method + ' ' + token.Path(), "POST /identity/v1/oauth2/token");
    QCOMPARE(token.Header("Authorization"), "Basic " + QByteArray("sample-id:sample-secret").toBase64());
    QCOMPARE(token.Header("Content-Type"), "application/x-www-form-urlencoded");
    QCOMPARE(token.Header("Accept"), "application/json");
    QCOMPARE(token.body, "grant_type=client_credentials&scope=https%3A%2F%2Fapi.ebay.com%2Foauth%2Fapi_scope");
    const LocalHttpRequest& search = service.Requests()[1];
    QCOMPARE(search.method, "GET");
    QVERIFY(search.target.startsWith("/buy/browse/v1/item_summary/search?category_ids=7&"));
    QCOMPARE(search.Header("Authorization"), "Bearer t0k");
    QCOMPARE(search.Header("X-EBAY-C-MARKETPLACE-ID"), "EBAY_GB");
    QCOMPARE(search.Header("Accept"), "application/json");
}

void tst_CliApi::keyFileRules_data() {
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("problem");
    const QByteArray keys = "# mine\nclient_id = an-id\n\nclient_secret=sample-secret\n";
    QTest::newRow("private") << keys << 0600 << "";
    QTest::newRow("others read") << keys << 0644 << "(mode 644); the keys were not used. Run: chmod 600";
    QTest::newRow("group reads") << keys << 0640 << "(mode 640)";
    QTest::newRow("no secret") << QByteArray("client_id=an-id\n") << 0600 << "needs both";
    QTest::newRow("stray line") << QByteArray("client_id=an-id\nsample-secret\n") << 0600 << "(line 2)";
    QTest::newRow("no file") << QByteArray() << 0 << "No application keys";
}

void tst_CliApi::keyFileRules() {
    QFETCH(QByteArray, text);
    QFETCH(int, mode);
    QFETCH(QString, problem);
    qputenv("XDG_CONFIG_HOME", m_dir.path().toUtf8());
    QFile::remove(ApiKeysFilePath());
    QVERIFY(QDir().mkpath(m_dir.filePath("marquill")));
    QFile file(ApiKeysFilePath());
    if (mode != 0) {
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(text) == text.size());
        file.close();
        QVERIFY(::chmod(QFile::encodeName(file.fileName()).constData(), mode_t(mode)) == 0);
    }
    QCOMPARE(ApiKeysGiven(), mode != 0);
    const ApiKeys keys = ReadApiKeys();
    QVERIFY(keys.problem.contains(problem));
    QVERIFY(!keys.problem.contains("sample-secret"));
    QCOMPARE(keys.Usable(), problem.isEmpty());
    if (keys.Usable())
        QCOMPARE(keys.clientId + keys.clientSecret, "an-idsample-secret");
    // Variables come first; one of them alone is a mistake, not a fallback to the file.
    qputenv("MARQUILL_EBAY_CLIENT_ID", "env-id");
    QVERIFY(ReadApiKeys().problem.contains("only one of them"));
    qunsetenv("MARQUILL_EBAY_CLIENT_ID");
}

QTEST_GUILESS_MAIN(tst_CliApi)
#include "tst_CliApi.moc"
