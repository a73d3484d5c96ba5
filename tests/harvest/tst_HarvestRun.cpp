#include "CatalogueTree.h"
#include "HarvestObserver.h"
#include "HostHooks.h"
#include "HttpPageSource.h"
#include "SiteSim.h"
#include "modMain.h"
#include "modParser.h"

#include <QTemporaryDir>
#include <QTest>

// Runs against the sample site, reached as the HTTP proxy, and reads which pages were loaded
// from its request log.
class tst_HarvestRun : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void subCategoryFollowsItsResultPages();
    void limits_data();
    void limits();
    void wholeTreePassesOverAnEmptyMainCategory();
    void stopDuringAWalkEndsTheRun();
    void selectedMainCategoryWithoutChildren();
    void brokenPagesCountNothingAndTheRunGoesOn();

private:
    void startRun(std::int32_t maxAuctions);
    const CategoryNode* node(const QString& path) const { return m_tree->FindByPath(path); }
    QStringList newRequests();

    std::unique_ptr<SiteSim> m_site;
    std::shared_ptr<CategoryTree> m_tree;
    QTemporaryDir m_dir;
    qsizetype m_seen = 0;
};

void tst_HarvestRun::initTestCase() {
    m_site = std::make_unique<SiteSim>(QStringList{
        QStringLiteral("--fault"), QStringLiteral("500=Z13003"), QStringLiteral("--fault"),
        QStringLiteral("garbage=Z13004"), QStringLiteral("--fault"), QStringLiteral("reset=Z13005")});
    QVERIFY(m_site->isRunning());
    HttpPageSource::SetProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), m_site->port()));
    m_tree = TreeFromCatalogue(m_site->catalogue(USSiteLabel));
    QVERIFY(m_tree->Root());
}

void tst_HarvestRun::cleanupTestCase() {
    SetDefaultPageSource(nullptr);
    m_site.reset();
}

void tst_HarvestRun::init() {
    ResetHooks();
    SetProgramFolder(m_dir.path());
    Hooks().ExclusionFileUnreadable = [](const QString&) {};
    newRequests();
}

void tst_HarvestRun::startRun(std::int32_t maxAuctions) {
    HarvestState.KeywordsFound = 0;
    HarvestState.StopRequested = FlagFalse;
    HarvestState.AuctionsScanned = 0;
    HarvestState.MaxAuctions = maxAuctions;
}

QStringList tst_HarvestRun::newRequests() {
    // The log is written as each request arrives; the run has read every answer by now.
    const QStringList log = m_site->requestLog();
    const QStringList fresh = log.mid(m_seen);
    m_seen = log.size();
    return fresh;
}

void tst_HarvestRun::subCategoryFollowsItsResultPages() {
    const CategoryNode* sub = node(QStringLiteral("Select Category~Antiques~Asian Antiques"));
    QVERIFY(sub);
    // A stored URL asking for 200 records a page is asked for 50.
    QString stored = sub->Key();
    stored.replace(QStringLiteral("QQsorecordsperpageZ50"), QStringLiteral("QQsorecordsperpageZ200"));
    QVERIFY(stored != sub->Key());
    startRun(NoAuctionLimit);
    RunHarvest(ScopeSubCategory, stored, m_tree, sub);
    const int pages = HarvestState.PageCount;
    QVERIFY2(pages > 1, "the sample sub-category has several pages");
    QStringList expected{sub->Key()};
    for (int n = 2; n <= pages; ++n) {
        QString url = sub->Key();
        expected << url.insert(url.indexOf(u"QQsacat"), QStringLiteral("QQlopgZ%1").arg(n));
    }
    QCOMPARE(newRequests(), expected);
    QVERIFY(HarvestState.AuctionsScanned > 50 * (pages - 1));
    QVERIFY(HarvestState.KeywordsFound > 0);
    QCOMPARE(HarvestState.KeywordsFound, std::int32_t(HarvestState.KeywordTable.LastEntry()));

    // A second search in the same process reads its own count from its own first page.
    const CategoryNode* other = node(QStringLiteral("Select Category~Antiques~Antiquities"));
    startRun(NoAuctionLimit);
    RunHarvest(ScopeSubCategory, other->Key(), m_tree, other);
    QCOMPARE(newRequests().size(), qsizetype(std::max<int>(1, HarvestState.PageCount)));
}

void tst_HarvestRun::limits_data() {
    QTest::addColumn<int>("scope");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("limit");
    QTest::addColumn<QStringList>("pages");
    QTest::addColumn<int>("scanned");
    // The limit met on page 1 of the long sub-category; page 2 is loaded and left behind its
    // first anchor, since only there is the limit found met; no page 3.
    QTest::newRow("sub-category") << int(ScopeSubCategory) << "Select Category~Art~Folk Art" << 50
                                  << QStringList{"", "QQlopgZ2QQsacat"} << 50;
    // 50 + 50 + 20: the third page meets the limit and no further page is loaded.
    QTest::newRow("main category") << int(ScopeMainCategory) << "Select Category~Antiques" << 120
                                   << QStringList{"", "", ""} << 120;
    QTest::newRow("whole tree") << int(ScopeAllCategories) << "Select Category" << 75 << QStringList{"", ""}
                                << 75;
}

void tst_HarvestRun::limits() {
    QFETCH(int, scope);
    QFETCH(QString, path);
    QFETCH(int, limit);
    QFETCH(QStringList, pages);
    const CategoryNode* start = node(path);
    QVERIFY(start);
    startRun(limit);
    RunHarvest(std::int16_t(scope), start->Key(), m_tree, start);
    const QStringList requests = newRequests();
    QCOMPARE(requests.size(), pages.size());
    for (qsizetype i = 0; i < pages.size(); ++i)
        QVERIFY2(requests[i].contains(pages[i]), qPrintable(requests[i]));
    QTEST(int(HarvestState.AuctionsScanned), "scanned");
}

void tst_HarvestRun::wholeTreePassesOverAnEmptyMainCategory() {
    auto tree = std::make_shared<CategoryTree>();
    tree->SetPathSeparator(QStringLiteral("~"));
    CategoryNode* root = tree->Add(nullptr, QStringLiteral("Root"), QStringLiteral("Select Category"));
    QStringList expected;
    for (const QString& mainPath :
         {QStringLiteral("Select Category~Antiques"), QStringLiteral("Select Category~Art")}) {
        const CategoryNode* source = node(mainPath);
        QVERIFY(source);
        CategoryNode* main = tree->Add(root, source->Key(), source->Text());
        if (mainPath.endsWith(u"Art"))
            tree->Add(root, QStringLiteral("http://listings.ebay.com/Empty_W0QQsacatZ1"),
                      QStringLiteral("Empty"));
        int taken = 0;
        for (const CategoryNode* sub = source->Child(); sub && taken < 2; sub = sub->Next(), ++taken) {
            tree->Add(main, sub->Key(), sub->Text());
            expected << sub->Key();
        }
    }
    startRun(NoAuctionLimit);
    RunHarvest(ScopeAllCategories, root->Key(), tree, root);
    QCOMPARE(newRequests(), expected);
}

void tst_HarvestRun::stopDuringAWalkEndsTheRun() {
    const CategoryNode* main = node(QStringLiteral("Select Category~Antiques"));
    // Stop at the first yield once the second page has been asked for: its walk ends at once
    // and no third page is loaded.
    Hooks().Yield = [&] {
        if (m_site->requestLog().size() - m_seen >= 2)
            HarvestState.StopRequested = FlagTrue;
    };
    startRun(NoAuctionLimit);
    RunHarvest(ScopeMainCategory, main->Key(), m_tree, main);
    QCOMPARE(newRequests().size(), 2);
    QCOMPARE(HarvestState.ScanHalted, FlagTrue);

    // A stop in the yield between two sub-categories: the second is never asked for.
    struct Watcher final : HarvestObserver {
        bool scanned = false;
        void PagesAhead(const QStringList&) override {}
        void PageScanned(const ScannedPage&) override { scanned = true; }
    } watcher;
    SetHarvestObserver(&watcher);
    Hooks().Yield = [&] {
        if (watcher.scanned)
            HarvestState.StopRequested = FlagTrue;
    };
    startRun(NoAuctionLimit);
    RunHarvest(ScopeMainCategory, main->Key(), m_tree, main);
    QCOMPARE(newRequests().size(), 1);
    // And between two pages of a sub-category.
    const CategoryNode* sub = node(QStringLiteral("Select Category~Antiques~Asian Antiques"));
    watcher.scanned = false;
    startRun(NoAuctionLimit);
    RunHarvest(ScopeSubCategory, sub->Key(), m_tree, sub);
    SetHarvestObserver(nullptr);
    QCOMPARE(newRequests().size(), 1);
}

void tst_HarvestRun::selectedMainCategoryWithoutChildren() {
    auto tree = std::make_shared<CategoryTree>();
    CategoryNode* root = tree->Add(nullptr, QStringLiteral("Root"), QStringLiteral("Select Category"));
    CategoryNode* main = tree->Add(root, QStringLiteral("http://listings.ebay.com/Empty_W0QQsacatZ1"),
                                   QStringLiteral("Empty"));
    startRun(NoAuctionLimit);
    RunHarvest(ScopeMainCategory, main->Key(), tree, main);
    QVERIFY(newRequests().isEmpty());
    QVERIFY(HarvestState.KeywordTable.IsSingleCell());
    // A scope that no depth gives walks nothing either.
    RunHarvest(0, main->Key(), tree, main);
    QVERIFY(newRequests().isEmpty());
}

void tst_HarvestRun::brokenPagesCountNothingAndTheRunGoesOn() {
    // The sample site answers the third, fourth and fifth sub-categories of the third main category
    // with a 500 page, garbage bytes and a reset connection.
    const CategoryNode* main = m_tree->Root()->Child()->Next()->Next();
    QVERIFY(main->Children() >= 6);
    startRun(NoAuctionLimit);
    RunHarvest(ScopeMainCategory, main->Key(), m_tree, main);
    // A main category reads the first page of each child, the broken ones too.
    QStringList expected;
    for (const CategoryNode* sub = main->Child(); sub; sub = sub->Next())
        expected << sub->Key();
    QCOMPARE(newRequests(), expected);
    QVERIFY(HarvestState.AuctionsScanned > 0);
    const CategoryNode* broken = main->Child()->Next()->Next();
    for (int i = 0; i < 3; ++i, broken = broken->Next()) {
        startRun(NoAuctionLimit);
        RunHarvest(ScopeSubCategory, broken->Key(), m_tree, broken);
        QCOMPARE(HarvestState.AuctionsScanned, 0);
        QCOMPARE(newRequests(), QStringList{broken->Key()});
    }
}

QTEST_GUILESS_MAIN(tst_HarvestRun)
#include "tst_HarvestRun.moc"
