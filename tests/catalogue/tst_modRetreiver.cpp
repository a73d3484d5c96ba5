#include "CategoryFileBytes.h"
#include "ServiceVariables.h"
#include "SiteSim.h"
#include "catalogue/ApiCategories.h"
#include "catalogue/modRetreiver.h"
#include "harvest/FilePageSource.h"
#include "harvest/HttpPageSource.h"
#include "harvest/PageSource.h"

#include <QCoreApplication>
#include <QDir>
#include <QNetworkProxy>
#include <QRegularExpression>
#include <QScopeGuard>
#include <functional>
#include <optional>

namespace {

const QString UsIndex = "http://listings.ebay.com/";
const QString ToysUrl = "http://listings.ebay.com/Toys_W0QQsacatZ100";
const QString DollsUrl = "http://listings.ebay.com/Dolls_W0QQsacatZ200";
const QString GiftsUrl = "http://listings.ebay.com/Gifts_W0QQsacatZ400";
const QString Suffix = "QQsorecordsperpageZ50";

QString StoredPage(const char* name) {
    return QStringLiteral(MARQUILL_TEST_PAGES "/") + QLatin1String(name);
}

// Both sites interleaved, with white space and a comment between, as a hand-kept file may be.
QByteArray MixedFile() {
    return R"(<?xml version="1.0" encoding= "ISO-8859-1"?><Categories>)"
           "\n  " +
           Site("ebay.co.uk", "Antiques", "http://listings.ebay.co.uk/Antiques") + "\n  " +
           Site("ebay.com", "Old Coins", "http://listings.ebay.com/Coins",
                Sub("Bullion", "http://listings.ebay.com/Bullion") +
                    Sub("Medals", "http://listings.ebay.com/Medals")) +
           "\n  <!-- kept by hand -->" + Site("ebay.co.uk", "Books", "http://listings.ebay.co.uk/Books") +
           Site("ebay.com", "Old Stamps", "http://listings.ebay.com/Stamps") + "\n</Categories>\n";
}

// A load that only a Stop ends within the test's patience; it tells whether it was abandoned.
class EndlessLoad final : public PageLoad {
public:
    explicit EndlessLoad(bool* abandoned) : m_abandoned(abandoned) {}
    ~EndlessLoad() override { *m_abandoned = m_polls <= 1000; }
    bool IsFinished() const override { return ++m_polls > 1000; }
    PageResponse TakeResponse() override { return {}; }

private:
    bool* m_abandoned;
    mutable int m_polls = 0;
};

// Dolls' page never comes; every other page is a stored one.
struct StalledDolls : PageSource {
    PageSource* files = nullptr;
    bool abandoned = false;
    std::unique_ptr<PageLoad> Start(const QUrl& url) override {
        return url == QUrl(DollsUrl) ? std::make_unique<EndlessLoad>(&abandoned) : files->Start(url);
    }
};

} // namespace

class tst_modRetreiver : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void categoryNameFromLink_data();
    void categoryNameFromLink();
    void siteRootOfUrl_data();
    void siteRootOfUrl();
    void storedPagesGiveOnlyTheEntriesThatPass();
    void nothingFoundPutsTheFormerEntriesBack_data();
    void nothingFoundPutsTheFormerEntriesBack();
    void stopKeepsWhatWasFound_data();
    void stopKeepsWhatWasFound();
    void findsBoundAndUnopenableFile();
    void aRefusedSaveEndsTheCrawlThoughTheDiskRecovers_data();
    void aRefusedSaveEndsTheCrawlThoughTheDiskRecovers();
    void savesWriteOnlyWhatChangedAgainstTheSampleSite();

private:
    void AddStoredPages();
    // The stop command as the window runs it inside a yield or a wait, confirmed.
    void StopCommand();
    // How the refresh ended and what the window shows after it, on one line.
    QString Ended(const RefreshResult& result) const;

    std::optional<CatalogueHost> m_host;
    std::unique_ptr<FilePageSource> m_files;
    std::function<bool()> m_stopWhen;
    int m_stops = 0;
    std::int32_t m_savesAtStop = -1;
};

void tst_modRetreiver::init() {
    m_host.emplace();
    m_files = std::make_unique<FilePageSource>();
    SetDefaultPageSource(m_files.get());
    m_stopWhen = nullptr;
    m_stops = 0;
    m_savesAtStop = -1;
    RefreshBounds() = CrawlBounds();
    m_host->auctions = -1;
    Hooks().Yield = [this] {
        if (m_stopWhen && m_stopWhen())
            StopCommand();
        QCoreApplication::processEvents();
    };
    Hooks().WaitForEvents = Hooks().Yield;
}

void tst_modRetreiver::StopCommand() {
    if (m_stops++)
        return;
    HarvestState.StopRequested = FlagTrue;
    if (Hooks().GettingKeywordsVisible())
        LoadCategories();
    Hooks().HideFeedback();
    m_savesAtStop = CategoryFileSaveCount();
}

void tst_modRetreiver::cleanup() {
    SetDefaultPageSource(nullptr);
    HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::DefaultProxy));
    SetCategorySaveObserver(nullptr);
    m_host.reset();
}

QString tst_modRetreiver::Ended(const RefreshResult& result) const {
    const char* outcomes[]{"Completed", "Stopped", "NothingFound", "CannotOpen", "Limited"};
    return QString("%1, %2 mains, %3 subs, %4 failed, document %5, feedback %6, auctions %7; %8")
        .arg(outcomes[int(result.Outcome)])
        .arg(result.MainCount)
        .arg(result.SubCount)
        .arg(result.FailedPages.size())
        .arg(CategoryStore.XmlDocument ? "open" : "released")
        .arg(m_host->feedback)
        .arg(m_host->auctions)
        .arg(m_host->messages.join(" / "));
}

void tst_modRetreiver::AddStoredPages() {
    m_files->AddPage(QUrl(UsIndex), StoredPage("refresh_index.htm"));
    m_files->AddPage(QUrl(ToysUrl), StoredPage("refresh_toys.htm"));
    m_files->AddPage(QUrl(DollsUrl), StoredPage("refresh_dolls.htm"));
    m_files->AddPage(QUrl(GiftsUrl), StoredPage("refresh_gifts.htm"));
}

void tst_modRetreiver::categoryNameFromLink_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    const auto row = [](const char* text, const char* name) {
        QTest::newRow(text) << QString(text) << QString(name);
    };
    row("See all Toys & Hobbies categories...", "Toys & Hobbies");
    row("See all Gift CaTeGoRiEs Shop categories", "Gift");
    row("See all  Coins  categories", " Coins ");
    row("See all Oddments ", "Oddments");
    row("See all categories of Toys", "categories of Toys");
    row("See all", "");
}

void tst_modRetreiver::categoryNameFromLink() {
    QFETCH(QString, text);
    QFETCH(QString, name);
    QCOMPARE(CategoryNameFromLink(text), name);
}

void tst_modRetreiver::siteRootOfUrl_data() {
    QTest::addColumn<QString>("site");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("root");
    const auto row = [](const QString& site, const char* url, const char* root) {
        QTest::addRow("%s %s", qPrintable(site), url) << site << QString(url) << QString(root);
    };
    row(USSiteLabel, "http://LISTINGS.EBAY.COM/Toys", "http://LISTINGS.EBAY.COM/");
    row(UKSiteLabel, "http://listings.ebay.co.uk/T_W0QQ", "http://listings.ebay.co.uk/");
    row(USSiteLabel, "http://listings.ebay.co.uk/Toys", "");
    row(UKSiteLabel, "http://listings.ebay.com/Toys", "");
    row(USSiteLabel, ".com/x", ".com/");
    row("example.org", "http://listings.ebay.com/Toys", "");
}

void tst_modRetreiver::siteRootOfUrl() {
    QFETCH(QString, site);
    QFETCH(QString, url);
    QFETCH(QString, root);
    m_host->site = site;
    QCOMPARE(SiteRootOfUrl(url), root);
}

void tst_modRetreiver::storedPagesGiveOnlyTheEntriesThatPass() {
    AddStoredPages();
    m_host->auctions = 3;
    // A stop left over from an earlier run must not end this one.
    HarvestState.StopRequested = FlagTrue;

    const RefreshResult result = RefreshCategories();

    // A refresh that runs to its end leaves the auction choice alone. The fourth main category
    // has no stored page, which is a failure, not a page without sub-categories.
    QCOMPARE(Ended(result),
             "Completed, 4 mains, 4 subs, 1 failed, document released, feedback 0, auctions 3; ");
    // Cells and rows around a See-all link, the featured items, the text behind a no-break space,
    // the other links: no entry. Sub-categories only in "B", on the main page's host (compared in
    // the page's capitals), never "Browse". The link's escape reaches the file as the page wrote
    // it; the name loses the euro sign.
    const QString sfx = "QQsorecordsperpageZ50", at = "\thttp://listings.ebay.com/";
    const QStringList expected{"Select Category\tRoot",
                               "Select Category~Toys\t" + ToysUrl,
                               "Select Category~Toys~Cars" + at + "Toys-Cars_W0QQsacatZ101" + sfx,
                               "Select Category~Toys~Trains" + at + "Toys-Trains_W0QQsacatZ103" + sfx,
                               "Select Category~Dolls\t" + DollsUrl,
                               "Select Category~Dolls~Porcelain" + at + "Dolls-Porcelain_W0QQsacatZ202" + sfx,
                               "Select Category~Gift\t" + GiftsUrl,
                               "Select Category~Gift~Cards ?" + at + "Gifts-Cards-%E2%82%AC_W0QQsacatZ401" +
                                   sfx,
                               "Select Category~Oddments" + at + "Odd_W0QQsacatZ500"};
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);
    QCOMPARE(m_host->captions, (QStringList{"Total found: 0", "Total found: 1", "Total Found: 1 (1)",
                                            "Total Found: 1 (2)", "Total found: 2", "Total Found: 2 (3)",
                                            "Total found: 3", "Total Found: 3 (4)", "Total found: 4"}));

    // The tree is read back from the file, so the file holds the same.
    LoadCategories();
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);

    // The index page once, each main category's page once.
    QCOMPARE(m_files->StartCount(), 5);
    QVERIFY(result.FailedPages[0].Url == "http://listings.ebay.com/Odd_W0QQsacatZ500" &&
            !result.FailedPages[0].IsIndex);
    const QByteArray report = RefreshReportJson(result, m_host->site);
    QVERIFY(report.contains(R"("failure": "network")") && report.contains(R"("page": "main-category")"));
    QVERIFY(m_host->stopCaption == "Stop Refresh" && m_host->pointer == 0);
}

void tst_modRetreiver::nothingFoundPutsTheFormerEntriesBack_data() {
    QTest::addColumn<QString>("indexPage");
    QTest::addColumn<bool>("stopAtFirstYield");
    QTest::addColumn<int>("seeAllBound");
    QTest::newRow("no connection") << QString() << false << 0;
    QTest::newRow("another layout") << StoredPage("base.htm") << false << 0;
    QTest::newRow("stop before the first find") << StoredPage("refresh_index.htm") << true << 0;
    QTest::newRow("more See-all links than a refresh takes") << StoredPage("refresh_index.htm") << false << 3;
}

void tst_modRetreiver::nothingFoundPutsTheFormerEntriesBack() {
    QFETCH(QString, indexPage);
    QFETCH(bool, stopAtFirstYield);
    QFETCH(int, seeAllBound);
    if (seeAllBound > 0)
        RefreshBounds().SeeAllLinks = seeAllBound;
    WriteBytes(m_host->path, MixedFile());
    // The file as every open writes it; the refresh must leave exactly this.
    QVERIFY(OpenCategoryFile(m_host->path, CategoryRootName));
    ReleaseCategoryFile();
    const QByteArray before = ReadBytes(m_host->path);
    QVERIFY(before.contains("<!-- kept by hand -->"));
    if (!indexPage.isEmpty()) {
        m_files->AddPage(QUrl(UsIndex), indexPage);
        m_files->AddPage(QUrl(ToysUrl), StoredPage("refresh_toys.htm"));
    }
    if (stopAtFirstYield)
        m_stopWhen = [] { return true; };

    const RefreshResult result = RefreshCategories();

    QCOMPARE(Ended(result),
             QString(seeAllBound ? "Limited" : "NothingFound") + ", 0 mains, 0 subs, " +
                 (indexPage.isEmpty() ? "1" : "0") + " failed, document released, feedback 0, auctions " +
                 (stopAtFirstYield ? "2; " : "-1; ") +
                 (seeAllBound
                      ? "The page http://listings.ebay.com/ has more than 3 \"See all\" links, more than a "
                        "refresh takes"
                      : "No categories were found at http://listings.ebay.com/") +
                 "; the former categories are kept.|0");
    QCOMPARE(ReadBytes(m_host->path), before);
    // Read back: Old Coins, its two and Old Stamps under the root.
    QCOMPARE(TreeLines(CurrentCategoryTree()).size(), 5);
}

void tst_modRetreiver::stopKeepsWhatWasFound_data() {
    // The caption after which the stop comes, and what the tree and the file show.
    QTest::addColumn<QString>("caption");
    QTest::addColumn<QStringList>("tree");
    QTest::addColumn<QStringList>("entries");
    const QString toys = "Select Category~Toys\t" + ToysUrl;
    const QString cars =
        "Select Category~Toys~Cars\thttp://listings.ebay.com/Toys-Cars_W0QQsacatZ101" + Suffix;
    // Toys' page without links: the yield after its find is the index walk's next element.
    QTest::newRow("in the index walk")
        << "Total found: 1" << QStringList{toys} << QStringList{"ebay.com:Toys"};
    // The main category's page was loaded, and no other after the stop.
    QTest::newRow("in a category walk")
        << "Total Found: 1 (1)" << QStringList{toys, cars}
        << QStringList{"ebay.co.uk:Antiques", "ebay.co.uk:Books", "ebay.com:Toys"};
    // The rest of a page that never comes is not waited for.
    QTest::newRow("in a page load")
        << "Total found: 2"
        << QStringList{toys, cars,
                       "Select Category~Toys~Trains\thttp://listings.ebay.com/Toys-Trains_W0QQsacatZ103" +
                           Suffix,
                       "Select Category~Dolls\t" + DollsUrl}
        << QStringList{"ebay.com:Toys", "ebay.com:Dolls"};
}

void tst_modRetreiver::stopKeepsWhatWasFound() {
    QFETCH(QString, caption);
    QFETCH(QStringList, tree);
    QFETCH(QStringList, entries);
    if (entries.size() == 3)
        WriteBytes(m_host->path, MixedFile());
    AddStoredPages();
    if (tree.size() == 1)
        m_files->AddPage(QUrl(ToysUrl), StoredPage("base.htm"));
    StalledDolls source;
    source.files = m_files.get();
    SetDefaultPageSource(&source);
    m_stopWhen = [this, caption] { return m_host->captions.last() == caption; };

    const RefreshResult result = RefreshCategories();

    QCOMPARE(Ended(result),
             QString("Stopped, %1 mains, %2 subs, 0 failed, document released, feedback 0, auctions 2; ")
                 .arg(entries.filter("ebay.com").size())
                 .arg(tree.filter(QRegularExpression("~.*~")).size()));
    QVERIFY(source.abandoned == (caption == "Total found: 2"));
    // Nothing was written to the file after the stop, nor shown; the page walked when the stop came
    // was the last loaded.
    QCOMPARE(CategoryFileSaveCount(), m_savesAtStop);
    QCOMPARE(m_host->captions.last(), caption);
    QCOMPARE(TreeLines(CurrentCategoryTree()), QStringList{"Select Category\tRoot"} + tree);
    QCOMPARE(SiteEntries(m_host->path), entries);
    QCOMPARE(m_files->StartCount(), 2);
}

void tst_modRetreiver::findsBoundAndUnopenableFile() {
    AddStoredPages();
    RefreshBounds().Finds = 3;
    QCOMPARE(
        Ended(RefreshCategories()),
        "Limited, 1 mains, 2 subs, 0 failed, document released, feedback 0, auctions -1; The refresh ended "
        "after 3 categories, the most one refresh takes; the categories found so far are kept.|0");
    LoadCategories();
    QCOMPARE(TreeLines(CurrentCategoryTree()).size(), 1 + 3);

    // The handler ends before it hides the feedback, and before its first caption or page.
    QVERIFY(QFile::remove(m_host->path) && QDir().mkpath(m_host->path));
    const int loads = m_files->StartCount();
    m_host->messages.clear();
    m_host->captions.clear();
    QCOMPARE(
        Ended(RefreshCategories()),
        "CannotOpen, 0 mains, 0 subs, 0 failed, document released, feedback 1, auctions 2; Cannot open " +
            m_host->path + "|0");
    QCOMPARE(m_files->StartCount(), loads);
    QVERIFY(m_host->captions.isEmpty());
}

void tst_modRetreiver::aRefusedSaveEndsTheCrawlThoughTheDiskRecovers_data() {
    QTest::addColumn<bool>("throughApi");
    QTest::newRow("category pages") << false;
    QTest::newRow("the site's API") << true;
}

void tst_modRetreiver::aRefusedSaveEndsTheCrawlThoughTheDiskRecovers() {
    QFETCH(bool, throughApi);
    AddStoredPages();
    std::optional<SiteSim> site;
    std::optional<ServiceVariables> service;
    const auto restore = qScopeGuard([] { SetRefreshSource(std::nullopt); });
    if (throughApi) {
        site.emplace();
        QVERIFY(site->isRunning());
        service.emplace(site->proxyUrl().toString());
        SetRefreshSource(CategorySource::Api);
    }
    // The first main category's second sub-category is refused (a folder stands where the file
    // goes) and the disk is back by the next yield: no later find may land in the file behind the
    // hole. The refused save is known by the writer's temporary file, which it drops.
    const QString path = m_host->path, aside = path + ".aside";
    QDir folder(m_host->dir.path());
    bool blocked = false;
    const auto caption = Hooks().SetMainTotalCaption;
    Hooks().SetMainTotalCaption = [&](const QString& text) {
        caption(text);
        if (text == "Total Found: 1 (1)")
            blocked = !folder.entryList({"aeurl.xml.tmp-*"}, QDir::Files).isEmpty() &&
                      QFile::rename(path, aside) && QDir().mkdir(path);
    };
    const auto unblock = [&] {
        if (blocked && folder.entryList({"aeurl.xml.tmp-*"}, QDir::Files).isEmpty())
            blocked = !(QDir().rmdir(path) && QFile::rename(aside, path));
    };
    const auto yield = Hooks().Yield;
    Hooks().Yield = [&] {
        unblock();
        yield();
    };
    const RefreshResult result = RefreshCategories();
    unblock();
    QVERIFY(!blocked);
    QCOMPARE(Ended(result), "Completed, 1 mains, 1 subs, 0 failed, document released, feedback 0, "
                            "auctions -1; Cannot save " + path + "; the refresh has ended. The file "
                            "from before it is kept as " + path + ".bak.|0");
    LoadCategories();
    const QStringList tree = TreeLines(CurrentCategoryTree());
    QCOMPARE(tree.size(), 3);
    if (!throughApi)
        QCOMPARE(tree.mid(1), (QStringList{"Select Category~Toys\t" + ToysUrl,
                                           "Select Category~Toys~Cars\thttp://listings.ebay.com/"
                                           "Toys-Cars_W0QQsacatZ101" + Suffix}));
}

void tst_modRetreiver::savesWriteOnlyWhatChangedAgainstTheSampleSite() {
    SiteSim site;
    QVERIFY(site.isRunning());
    SetDefaultPageSource(nullptr);
    HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::HttpProxy, "127.0.0.1", site.port()));
    WriteBytes(m_host->path, MixedFile());
    // Every save writes only what changed, yet leaves the bytes a whole serialisation would give.
    // The file each save replaces stays, under a temporary name, for the next save to write into.
    int saves = 0, differing = 0, kept = 0;
    SetCategorySaveObserver([&] {
        ++saves;
        differing += ReadBytes(m_host->path) != SerializeCategoryDocument(*CategoryStore.XmlDocument);
        kept += QDir(m_host->dir.path()).entryList({"aeurl.xml.tmp-*"}, QDir::Files).size();
    });
    const QStringList catalogue = site.catalogue(USSiteLabel);
    QVERIFY(catalogue.size() > 20);
    // The second refresh removes the former entries one by one before it adds the new ones.
    for (int refresh = 0; refresh < 2; ++refresh) {
        const RefreshResult result = RefreshCategories();
        QCOMPARE(result.Outcome, RefreshOutcome::Completed);
        QCOMPARE(TreeLines(CurrentCategoryTree()), catalogue);
        QCOMPARE(result.SubCount, std::int32_t(catalogue.size()) - 1 - result.MainCount);
        QCOMPARE(m_host->captions.last(),
                 QString("Total Found: %1 (%2)").arg(result.MainCount).arg(result.SubCount));
    }
    QVERIFY(saves > 2 * (catalogue.size() - 1));
    QCOMPARE(differing, 0);
    QVERIFY(kept > saves / 2);
    // The other site's entries stay, moved in front; the file before the refresh is kept aside;
    // each index page was read once for its whole crawl.
    QCOMPARE(SiteEntries(m_host->path).mid(0, 3),
             (QStringList{"ebay.co.uk:Antiques", "ebay.co.uk:Books",
                          "ebay.com:" + catalogue[1].section('~', 1).section('\t', 0, 0)}));
    QVERIFY(ReadBytes(m_host->path + ".bak").contains("<ebay.co.uk>"));
    QCOMPARE(site.requestLog().count(UsIndex), 2);
    QVERIFY(m_host->messages.isEmpty());
}

QTEST_GUILESS_MAIN(tst_modRetreiver)
#include "tst_modRetreiver.moc"
