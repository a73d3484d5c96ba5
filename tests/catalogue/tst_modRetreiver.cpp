#include "CatalogueTree.h"
#include "CategoryFileBytes.h"
#include "SiteSim.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/modRetreiver.h"
#include "catalogue/modXML.h"
#include "harvest/FilePageSource.h"
#include "harvest/HttpPageSource.h"
#include "harvest/PageSource.h"
#include "harvest/modMain.h"
#include "platform/HostHooks.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QNetworkProxy>
#include <QTemporaryDir>
#include <QTest>
#include <functional>
#include <memory>

namespace {

const QString UsIndex = QStringLiteral("http://listings.ebay.com/");
const QString ToysUrl = QStringLiteral("http://listings.ebay.com/Toys_W0QQsacatZ100");
const QString DollsUrl = QStringLiteral("http://listings.ebay.com/Dolls_W0QQsacatZ200");
const QString GiftsUrl = QStringLiteral("http://listings.ebay.com/Gifts_W0QQsacatZ400");

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

// The text of each site element under the root, "tag:MainItem", in file order.
QStringList SiteEntries(const QString& path) {
    QStringList entries;
    pugi::xml_document document;
    const QByteArray bytes = ReadBytes(path);
    if (!document.load_buffer(bytes.constData(), size_t(bytes.size())))
        return entries;
    for (pugi::xml_node site = document.document_element().first_child(); site; site = site.next_sibling())
        if (site.type() == pugi::node_element)
            entries << QString::fromUtf8(site.name()) + QLatin1Char(':') +
                           CategoryNodeText(site.child("MainItem"));
    return entries;
}

// A load that only a Stop ends within the test's patience; it tells whether it was abandoned.
class EndlessLoad final : public PageLoad {
public:
    explicit EndlessLoad(bool* abandoned) : m_abandoned(abandoned) {}
    ~EndlessLoad() override { *m_abandoned = m_polls <= 1000; }
    bool IsFinished() const override { return ++m_polls > 1000; }
    PageResponse TakeResponse() override { return {}; }
    void Abort() override {}

private:
    bool* m_abandoned;
    mutable int m_polls = 0;
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
    void captionsFollowEachFind();
    void otherSitesEntriesStayInFront();
    void nothingFoundPutsTheFormerEntriesBack_data();
    void nothingFoundPutsTheFormerEntriesBack();
    void stopDuringTheIndexWalkKeepsWhatWasFound();
    void stopDuringACategoryWalkKeepsWhatWasFound();
    void stopDuringAPageLoadEndsTheLoad();
    void findsBoundEndsTheCrawlKeepingTheFinds();
    void unopenableFileCrawlsNothing();
    void fullRefreshOfBothSitesGivesTheSampleSitesCatalogue();

private:
    void AddStoredPages();
    // The stop command as the window runs it inside a yield, confirmed.
    void StopCommand();

    QTemporaryDir m_dir;
    QString m_path;
    QString m_site;
    std::unique_ptr<FilePageSource> m_files;
    QStringList m_captions;
    QStringList m_messages;
    QString m_stopCaption;
    bool m_feedbackVisible = false;
    int m_pointer = -1;
    int m_maxAuctionsIndex = -1;
    int m_yields = 0;
    std::function<bool()> m_stopWhen;
    int m_stops = 0;
    std::int32_t m_savesAtStop = -1;
};

void tst_modRetreiver::init() {
    QVERIFY(m_dir.isValid());
    m_path = m_dir.filePath(QStringLiteral("aeurl.xml"));
    ReleaseCategoryFile();
    ResetCategoryTree();
    ResetHooks();
    SetProgramFolder(m_dir.path());
    CategoryStore.CategoryFilePath = m_path;
    HarvestState.StopRequested = FlagFalse;
    m_files = std::make_unique<FilePageSource>();
    SetDefaultPageSource(m_files.get());
    m_site = USSiteLabel;
    m_captions.clear();
    m_messages.clear();
    m_stopCaption.clear();
    m_feedbackVisible = false;
    m_pointer = -1;
    m_maxAuctionsIndex = -1;
    m_yields = 0;
    m_stopWhen = nullptr;
    m_stops = 0;
    m_savesAtStop = -1;
    RefreshBounds() = CrawlBounds();

    Hooks().SiteLabel = [this] { return m_site; };
    Hooks().SetMainTotalCaption = [this](const QString& caption) { m_captions << caption; };
    Hooks().SetStopCaption = [this](const QString& caption) { m_stopCaption = caption; };
    Hooks().ShowRefreshFeedback = [this] { m_feedbackVisible = true; };
    Hooks().HideFeedback = [this] { m_feedbackVisible = false; };
    Hooks().GettingKeywordsVisible = [this] { return m_feedbackVisible; };
    Hooks().SetMousePointer = [this](int pointer) { m_pointer = pointer; };
    Hooks().SetMaxAuctionsIndex = [this](int index) { m_maxAuctionsIndex = index; };
    Hooks().MsgBox = [this](const QString& text, int style, const QString& title) {
        m_messages << QStringLiteral("%1|%2|%3").arg(text).arg(style).arg(title);
        return 1;
    };
    Hooks().Yield = [this] {
        ++m_yields;
        if (m_stopWhen && m_stops == 0 && m_stopWhen())
            StopCommand();
        QCoreApplication::processEvents();
    };
}

void tst_modRetreiver::cleanup() {
    ReleaseCategoryFile();
    ResetCategoryTree();
    SetDefaultPageSource(nullptr);
    HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::DefaultProxy));
    CategoryStore.CategoryFilePath.clear();
    HarvestState.StopRequested = FlagFalse;
    QDir(m_dir.path()).removeRecursively();
    QDir().mkpath(m_dir.path());
    SetProgramFolder(QString());
    SetCategorySaveObserver(nullptr);
    ResetHooks();
}

void tst_modRetreiver::AddStoredPages() {
    m_files->AddPage(QUrl(UsIndex), StoredPage("refresh_index.htm"));
    m_files->AddPage(QUrl(ToysUrl), StoredPage("refresh_toys.htm"));
    m_files->AddPage(QUrl(DollsUrl), StoredPage("refresh_dolls.htm"));
    m_files->AddPage(QUrl(GiftsUrl), StoredPage("refresh_gifts.htm"));
}

void tst_modRetreiver::StopCommand() {
    ++m_stops;
    HarvestState.StopRequested = FlagFalse;
    HarvestState.StopRequested = FlagTrue;
    if (Hooks().GettingKeywordsVisible())
        LoadCategories();
    Hooks().HideFeedback();
    m_savesAtStop = CategoryFileSaveCount();
}

void tst_modRetreiver::categoryNameFromLink_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << "See all Toys categories"
                           << "Toys";
    QTest::newRow("trailing text") << "See all Toys & Hobbies categories..."
                                   << "Toys & Hobbies";
    QTest::newRow("capitals") << "SEE ALL Dolls CATEGORIES"
                              << "Dolls";
    QTest::newRow("mixed case") << "See all Dolls CaTeGoRiEs"
                                << "Dolls";
    QTest::newRow("word in the name") << "See all Gift Categories Shop categories"
                                      << "Gift";
    QTest::newRow("name untrimmed") << "See all  Coins  categories"
                                    << " Coins ";
    QTest::newRow("no word") << "See all Oddments "
                             << "Oddments";
    QTest::newRow("word at the start") << "See all categories of Toys"
                                       << "categories of Toys";
    QTest::newRow("word one character in") << "See all xcategories"
                                           << "";
    QTest::newRow("short text") << "See all"
                                << "";
    QTest::newRow("empty") << ""
                           << "";
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
    const QString us = USSiteLabel;
    const QString uk = UKSiteLabel;
    QTest::newRow("us") << us << "http://listings.ebay.com/Toys_W0QQsacatZ1"
                        << "http://listings.ebay.com/";
    QTest::newRow("uk") << uk << "http://listings.ebay.co.uk/Toys_W0QQsacatZ1"
                        << "http://listings.ebay.co.uk/";
    QTest::newRow("marker in capitals") << us << "http://LISTINGS.EBAY.COM/Toys"
                                        << "http://LISTINGS.EBAY.COM/";
    QTest::newRow("first marker") << us << "http://a.com/b.com/c"
                                  << "http://a.com/";
    QTest::newRow("uk marker on us site") << us << "http://listings.ebay.co.uk/Toys"
                                          << "";
    QTest::newRow("us marker on uk site") << uk << "http://listings.ebay.com/Toys"
                                          << "";
    QTest::newRow("no slash after the domain") << us << "http://listings.ebay.com"
                                               << "";
    QTest::newRow("marker at the very start") << us << ".com/x"
                                              << ".com/";
    QTest::newRow("unknown site") << "example.org"
                                  << "http://listings.ebay.com/Toys"
                                  << "";
}

void tst_modRetreiver::siteRootOfUrl() {
    QFETCH(QString, site);
    QFETCH(QString, url);
    QFETCH(QString, root);
    m_site = site;
    QCOMPARE(SiteRootOfUrl(url), root);
}

void tst_modRetreiver::storedPagesGiveOnlyTheEntriesThatPass() {
    AddStoredPages();
    m_maxAuctionsIndex = 3;
    // A stop left over from an earlier run must not end this one.
    HarvestState.StopRequested = FlagTrue;

    const RefreshResult result = RefreshCategories();

    QCOMPARE(result.Outcome, RefreshOutcome::Completed);
    QCOMPARE(result.MainCount, 4);
    QCOMPARE(result.SubCount, 4);
    // Cells and rows around a See-all link, the featured items, the text behind a no-break space,
    // the other links: no entry. Sub-categories only in "B", on the main page's host (compared in
    // the page's capitals), never "Browse".
    const QString sfx = QStringLiteral("QQsorecordsperpageZ50");
    const QStringList expected{
        QStringLiteral("Select Category\tRoot"),
        QStringLiteral("Select Category~Toys\t") + ToysUrl,
        QStringLiteral("Select Category~Toys~Cars\thttp://listings.ebay.com/Toys-Cars_W0QQsacatZ101") + sfx,
        QStringLiteral("Select Category~Toys~Trains\thttp://listings.ebay.com/Toys-Trains_W0QQsacatZ103") +
            sfx,
        QStringLiteral("Select Category~Dolls\t") + DollsUrl,
        QStringLiteral(
            "Select Category~Dolls~Porcelain\thttp://listings.ebay.com/Dolls-Porcelain_W0QQsacatZ202") +
            sfx,
        QStringLiteral("Select Category~Gift\t") + GiftsUrl,
        // The link's escape reaches the file as the page wrote it; the name loses the euro sign.
        QStringLiteral(
            "Select Category~Gift~Cards ?\thttp://listings.ebay.com/Gifts-Cards-%E2%82%AC_W0QQsacatZ401") +
            sfx,
        QStringLiteral("Select Category~Oddments\thttp://listings.ebay.com/Odd_W0QQsacatZ500"),
    };
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);
    QVERIFY(!CategoryStore.XmlDocument);
    // A refresh that runs to its end leaves the auction choice alone.
    QCOMPARE(m_maxAuctionsIndex, 3);

    // The tree is read back from the file, so the file holds the same.
    LoadCategories();
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);

    // The index page once, each main category's page once; the fourth has no stored page, which
    // is a failure, not a page without sub-categories.
    QCOMPARE(m_files->StartCount(), 5);
    QCOMPARE(result.FailedPages.size(), size_t(1));
    QVERIFY(result.FailedPages[0].Url == QStringLiteral("http://listings.ebay.com/Odd_W0QQsacatZ500") &&
            !result.FailedPages[0].IsIndex);
    const QByteArray report = RefreshReportJson(result, m_site);
    QVERIFY(report.contains(R"("failure": "network")") && report.contains(R"("page": "main-category")"));
    QVERIFY(m_messages.isEmpty());
    QCOMPARE(m_stopCaption, QStringLiteral("Stop Refresh"));
    QVERIFY(!m_feedbackVisible);
    QCOMPARE(m_pointer, 0);
}

void tst_modRetreiver::captionsFollowEachFind() {
    AddStoredPages();
    RefreshCategories();
    const QStringList expected{
        QStringLiteral("Total found: 0"),     QStringLiteral("Total found: 1"),
        QStringLiteral("Total Found: 1 (1)"), QStringLiteral("Total Found: 1 (2)"),
        QStringLiteral("Total found: 2"),     QStringLiteral("Total Found: 2 (3)"),
        QStringLiteral("Total found: 3"),     QStringLiteral("Total Found: 3 (4)"),
        QStringLiteral("Total found: 4"),
    };
    QCOMPARE(m_captions, expected);
}

void tst_modRetreiver::otherSitesEntriesStayInFront() {
    WriteBytes(m_path, MixedFile());
    AddStoredPages();
    RefreshCategories();
    const QStringList expected{
        QStringLiteral("ebay.co.uk:Antiques"), QStringLiteral("ebay.co.uk:Books"),
        QStringLiteral("ebay.com:Toys"),       QStringLiteral("ebay.com:Dolls"),
        QStringLiteral("ebay.com:Gift"),       QStringLiteral("ebay.com:Oddments"),
    };
    QCOMPARE(SiteEntries(m_path), expected);
    QCOMPARE(ReadBytes(m_path + QStringLiteral(".bak")), MixedFile());

    // A refresh of the other site leaves these entries where they are.
    m_site = UKSiteLabel;
    m_files->AddPage(QUrl(QStringLiteral("http://listings.ebay.co.uk/")), StoredPage("refresh_uk_index.htm"));
    RefreshCategories();
    const QStringList afterUk{
        QStringLiteral("ebay.com:Toys"),     QStringLiteral("ebay.com:Dolls"),
        QStringLiteral("ebay.com:Gift"),     QStringLiteral("ebay.com:Oddments"),
        QStringLiteral("ebay.co.uk:Stamps"),
    };
    QCOMPARE(SiteEntries(m_path), afterUk);
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
    WriteBytes(m_path, MixedFile());
    // The file as every open writes it; the refresh must leave exactly this.
    QVERIFY(OpenCategoryFile(m_path, CategoryRootName));
    ReleaseCategoryFile();
    const QByteArray before = ReadBytes(m_path);
    QVERIFY(before.contains("<!-- kept by hand -->"));

    if (!indexPage.isEmpty()) {
        m_files->AddPage(QUrl(UsIndex), indexPage);
        m_files->AddPage(QUrl(ToysUrl), StoredPage("refresh_toys.htm"));
    }
    if (stopAtFirstYield)
        m_stopWhen = [] { return true; };

    const RefreshResult result = RefreshCategories();

    QCOMPARE(result.Outcome, seeAllBound ? RefreshOutcome::Limited : RefreshOutcome::NothingFound);
    QCOMPARE(result.MainCount, 0);
    QCOMPARE(result.FailedPages.size(), size_t(indexPage.isEmpty() ? 1 : 0));
    QCOMPARE(ReadBytes(m_path), before);
    QCOMPARE(
        m_messages,
        QStringList((seeAllBound ? QStringLiteral("The page http://listings.ebay.com/ has more than 3 "
                                                  "\"See all\" links, more than a refresh takes")
                                 : QStringLiteral("No categories were found at http://listings.ebay.com/")) +
                    QStringLiteral("; the former categories are kept.|0|")));
    const QStringList expected{
        QStringLiteral("Select Category\tRoot"),
        QStringLiteral("Select Category~Old Coins\thttp://listings.ebay.com/Coins"),
        QStringLiteral("Select Category~Old Coins~Bullion\thttp://listings.ebay.com/Bullion"),
        QStringLiteral("Select Category~Old Coins~Medals\thttp://listings.ebay.com/Medals"),
        QStringLiteral("Select Category~Old Stamps\thttp://listings.ebay.com/Stamps"),
    };
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);
    QVERIFY(!CategoryStore.XmlDocument);
    QVERIFY(!m_feedbackVisible);
}

void tst_modRetreiver::stopDuringTheIndexWalkKeepsWhatWasFound() {
    AddStoredPages();
    // Toys' page without links: the yield after its find is the index walk's next element.
    m_files->AddPage(QUrl(ToysUrl), StoredPage("base.htm"));
    m_maxAuctionsIndex = 0;
    m_stopWhen = [this] { return m_captions.last() == QStringLiteral("Total found: 1"); };

    const RefreshResult result = RefreshCategories();

    QCOMPARE(m_stops, 1);
    QCOMPARE(result.Outcome, RefreshOutcome::Stopped);
    QCOMPARE(result.MainCount, 1);
    QCOMPARE(result.SubCount, 0);
    // Nothing was written to the file after the stop.
    QCOMPARE(CategoryFileSaveCount(), m_savesAtStop);
    QCOMPARE(m_captions.last(), QStringLiteral("Total found: 1"));
    QCOMPARE(m_maxAuctionsIndex, DefaultAuctionsIndex);
    QVERIFY(m_messages.isEmpty());
    const QStringList expected{
        QStringLiteral("Select Category\tRoot"),
        QStringLiteral("Select Category~Toys\t") + ToysUrl,
    };
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);
    QCOMPARE(SiteEntries(m_path), QStringList(QStringLiteral("ebay.com:Toys")));
    QVERIFY(!CategoryStore.XmlDocument);
}

void tst_modRetreiver::stopDuringACategoryWalkKeepsWhatWasFound() {
    WriteBytes(m_path, MixedFile());
    AddStoredPages();
    m_stopWhen = [this] { return m_captions.last() == QStringLiteral("Total Found: 1 (1)"); };

    const RefreshResult result = RefreshCategories();

    QCOMPARE(m_stops, 1);
    QCOMPARE(result.Outcome, RefreshOutcome::Stopped);
    QCOMPARE(result.MainCount, 1);
    QCOMPARE(result.SubCount, 1);
    QCOMPARE(CategoryFileSaveCount(), m_savesAtStop);
    QCOMPARE(m_maxAuctionsIndex, DefaultAuctionsIndex);
    const QStringList expected{
        QStringLiteral("Select Category\tRoot"),
        QStringLiteral("Select Category~Toys\t") + ToysUrl,
        QStringLiteral("Select Category~Toys~Cars\thttp://listings.ebay.com/"
                       "Toys-Cars_W0QQsacatZ101QQsorecordsperpageZ50"),
    };
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);
    const QStringList entries{
        QStringLiteral("ebay.co.uk:Antiques"),
        QStringLiteral("ebay.co.uk:Books"),
        QStringLiteral("ebay.com:Toys"),
    };
    QCOMPARE(SiteEntries(m_path), entries);
    // The main category's page was loaded, and no other after the stop.
    QCOMPARE(m_files->StartCount(), 2);
}

void tst_modRetreiver::stopDuringAPageLoadEndsTheLoad() {
    AddStoredPages();
    // The second main category's page never comes.
    struct : PageSource {
        PageSource* files;
        bool abandoned = false;
        std::unique_ptr<PageLoad> Start(const QUrl& url) override {
            return url == QUrl(DollsUrl) ? std::make_unique<EndlessLoad>(&abandoned) : files->Start(url);
        }
    } source;
    source.files = m_files.get();
    SetDefaultPageSource(&source);
    Hooks().WaitForEvents = [this] {
        if (m_captions.last() == QStringLiteral("Total found: 2") && m_stops == 0)
            StopCommand();
        QCoreApplication::processEvents();
    };
    const RefreshResult result = RefreshCategories();
    QVERIFY(source.abandoned);
    QCOMPARE(result.Outcome, RefreshOutcome::Stopped);
    QCOMPARE(result.MainCount, 2);
    QCOMPARE(CategoryFileSaveCount(), m_savesAtStop);
}

void tst_modRetreiver::findsBoundEndsTheCrawlKeepingTheFinds() {
    AddStoredPages();
    RefreshBounds().Finds = 3;
    const RefreshResult result = RefreshCategories();
    QCOMPARE(result.Outcome, RefreshOutcome::Limited);
    QCOMPARE(result.MainCount + result.SubCount, 3);
    QCOMPARE(m_messages.last(),
             QStringLiteral("The refresh ended after 3 categories, the most one refresh takes; the "
                            "categories found so far are kept.|0|"));
    LoadCategories();
    QCOMPARE(TreeLines(CurrentCategoryTree()).size(), 1 + 3);
}

void tst_modRetreiver::unopenableFileCrawlsNothing() {
    QVERIFY(QDir().mkpath(m_path));
    AddStoredPages();
    const RefreshResult result = RefreshCategories();
    QCOMPARE(result.Outcome, RefreshOutcome::CannotOpen);
    QCOMPARE(m_messages, QStringList(QStringLiteral("Cannot open ") + m_path + QStringLiteral("|0|")));
    QCOMPARE(m_files->StartCount(), 0);
    QVERIFY(m_captions.isEmpty());
    QVERIFY(!CategoryStore.XmlDocument);
    // The handler ends before it hides the feedback.
    QVERIFY(m_feedbackVisible);
}

void tst_modRetreiver::fullRefreshOfBothSitesGivesTheSampleSitesCatalogue() {
    SiteSim site;
    QVERIFY(site.isRunning());
    SetDefaultPageSource(nullptr);
    HttpPageSource::SetProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));
    WriteBytes(m_path, MixedFile());
    // Every save writes only what changed, yet leaves the bytes a whole serialisation would give.
    // The file each save replaces stays, under a temporary name, for the next save to write into.
    int saves = 0;
    int differing = 0;
    int kept = 0;
    SetCategorySaveObserver([&] {
        ++saves;
        differing += ReadBytes(m_path) != SerializeCategoryDocument(*CategoryStore.XmlDocument);
        kept += QDir(m_dir.path()).entryList({QStringLiteral("aeurl.xml.tmp-*")}, QDir::Files).size();
    });

    m_site = UKSiteLabel;
    const QStringList ukCatalogue = site.catalogue(UKSiteLabel);
    QVERIFY(ukCatalogue.size() > 20);
    RefreshResult result = RefreshCategories();
    QCOMPARE(result.Outcome, RefreshOutcome::Completed);
    QCOMPARE(TreeLines(CurrentCategoryTree()), ukCatalogue);

    m_site = USSiteLabel;
    const QStringList usCatalogue = site.catalogue(USSiteLabel);
    QVERIFY(usCatalogue.size() > 20);
    result = RefreshCategories();
    QCOMPARE(result.Outcome, RefreshOutcome::Completed);
    QCOMPARE(TreeLines(CurrentCategoryTree()), usCatalogue);
    QCOMPARE(result.SubCount, std::int32_t(usCatalogue.size()) - 1 - result.MainCount);
    QCOMPARE(m_captions.last(),
             QStringLiteral("Total Found: %1 (%2)").arg(result.MainCount).arg(result.SubCount));

    // A second refresh removes the former entries one by one before it adds the new ones.
    result = RefreshCategories();
    QCOMPARE(TreeLines(CurrentCategoryTree()), usCatalogue);
    QVERIFY(saves > 3 * (usCatalogue.size() - 1));
    QCOMPARE(differing, 0);
    QVERIFY(kept > saves / 2);

    // Both sites' entries are in the file: the UK site reads back as it was refreshed.
    m_site = UKSiteLabel;
    LoadCategories();
    QCOMPARE(TreeLines(CurrentCategoryTree()), ukCatalogue);
    QVERIFY(m_messages.isEmpty());

    // Each site's index page was read once, for the whole crawl.
    const QStringList log = site.requestLog();
    QCOMPARE(log.count(QStringLiteral("http://listings.ebay.co.uk/")), 1);
    QCOMPARE(log.count(UsIndex), 2);
}

QTEST_GUILESS_MAIN(tst_modRetreiver)
#include "tst_modRetreiver.moc"
