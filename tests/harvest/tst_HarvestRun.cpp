#include "CatalogueTree.h"
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
    void storedUrlAsksFor200();
    void limitOnTheFirstPageOfASubCategory();
    void mainCategoryReadsTheFirstPageOfEachChild();
    void wholeTreePassesOverAnEmptyMainCategory();
    void limitInTheWiderScopes();
    void stopDuringAWalkEndsTheRun();
    void selectedMainCategoryWithoutChildren();
    void brokenPagesCountNothingAndTheRunGoesOn();
    void stalledPageEndsAtTheTimeOut();

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
    startRun(NoAuctionLimit);
    RunHarvest(ScopeSubCategory, sub->Key(), m_tree, sub);
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

void tst_HarvestRun::storedUrlAsksFor200() {
    const CategoryNode* sub = node(QStringLiteral("Select Category~Antiques~Antiquities"));
    QString stored = sub->Key();
    stored.replace(QStringLiteral("QQsorecordsperpageZ50"), QStringLiteral("QQsorecordsperpageZ200"));
    startRun(NoAuctionLimit);
    RunHarvest(ScopeSubCategory, stored, m_tree, sub);
    const QStringList requests = newRequests();
    QVERIFY(!requests.isEmpty());
    QCOMPARE(requests.first(), sub->Key());
    for (const QString& url : requests)
        QVERIFY2(url.endsWith(u"QQsorecordsperpageZ50"), qPrintable(url));
}

void tst_HarvestRun::limitOnTheFirstPageOfASubCategory() {
    // The second main category's second sub-category is the long one (250 pages).
    const CategoryNode* sub = m_tree->Root()->Child()->Next()->Child()->Next();
    startRun(50);
    RunHarvest(ScopeSubCategory, sub->Key(), m_tree, sub);
    const QStringList requests = newRequests();
    // The limit is met on page 1; page 2 is loaded and left behind its first anchor; no page 3.
    QCOMPARE(requests.size(), 2);
    QVERIFY(requests[1].contains(u"QQlopgZ2QQsacat"));
    QVERIFY(HarvestState.PageCount > 3);
    QVERIFY(HarvestState.AuctionsScanned == 50 || HarvestState.AuctionsScanned == 51);
}

void tst_HarvestRun::mainCategoryReadsTheFirstPageOfEachChild() {
    const CategoryNode* main = node(QStringLiteral("Select Category~Antiques"));
    startRun(NoAuctionLimit);
    RunHarvest(ScopeMainCategory, main->Key(), m_tree, main);
    QStringList expected;
    for (const CategoryNode* sub = main->Child(); sub; sub = sub->Next())
        expected << sub->Key();
    QCOMPARE(newRequests(), expected);
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

void tst_HarvestRun::limitInTheWiderScopes() {
    const CategoryNode* main = node(QStringLiteral("Select Category~Antiques"));
    QVERIFY(main->Children() > 3);
    startRun(120);
    RunHarvest(ScopeMainCategory, main->Key(), m_tree, main);
    // 50 + 50 + 20: the third page meets the limit and no further page is loaded.
    QCOMPARE(newRequests().size(), 3);
    QCOMPARE(HarvestState.AuctionsScanned, 120);

    startRun(75);
    RunHarvest(ScopeAllCategories, m_tree->Root()->Key(), m_tree, m_tree->Root());
    QCOMPARE(newRequests().size(), 2);
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
    QCOMPARE(newRequests().size(), qsizetype(main->Children()));
    QVERIFY(HarvestState.AuctionsScanned > 0);
    const CategoryNode* broken = main->Child()->Next()->Next();
    for (int i = 0; i < 3; ++i, broken = broken->Next()) {
        startRun(NoAuctionLimit);
        RunHarvest(ScopeSubCategory, broken->Key(), m_tree, broken);
        QCOMPARE(HarvestState.AuctionsScanned, 0);
        QCOMPARE(newRequests(), QStringList{broken->Key()});
    }
}

void tst_HarvestRun::stalledPageEndsAtTheTimeOut() {
    SiteSim stalling({QStringLiteral("--fault"), QStringLiteral("stall=Z11001")});
    QVERIFY(stalling.isRunning());
    HttpPageSource::SetProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), stalling.port()));
    HttpPageSource source;
    source.SetSilenceTimeoutMs(300);
    SetDefaultPageSource(&source);
    const CategoryNode* main = node(QStringLiteral("Select Category~Antiques"));
    startRun(NoAuctionLimit);
    RunHarvest(ScopeMainCategory, main->Key(), m_tree, main);
    SetDefaultPageSource(nullptr);
    HttpPageSource::SetProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), m_site->port()));
    // The stalled first page counts as a page without elements and the walk goes on.
    QTRY_COMPARE(stalling.requestLog().size(), qsizetype(main->Children()));
    QVERIFY(HarvestState.AuctionsScanned > 0);
}

QTEST_GUILESS_MAIN(tst_HarvestRun)
#include "tst_HarvestRun.moc"
