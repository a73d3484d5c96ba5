#include "BrowserPage.h"
#include "FilePageSource.h"
#include "HostHooks.h"
#include "modMain.h"
#include "modParser.h"

#include <QTemporaryDir>
#include <QTest>

namespace {

// Records the URLs asked for and serves one stored page for every one of them.
class RecordingSource final : public PageSource {
public:
    explicit RecordingSource(const QString& page) : m_page(page) {}
    std::unique_ptr<PageLoad> Start(const QUrl& url) override {
        urls << url.toString();
        m_files.AddPage(url, m_page);
        return m_files.Start(url);
    }
    QStringList urls;

private:
    QString m_page;
    FilePageSource m_files;
};

QStringList tallied() {
    QStringList out;
    for (qsizetype n = 1; n <= HarvestState.KeywordTable.LastEntry(); ++n)
        out << HarvestState.KeywordTable.Word(n) + u'=' + HarvestState.KeywordTable.Count(n);
    return out;
}

} // namespace

class tst_ListingScan : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void readPageCount_data();
    void readPageCount();
    void auctionLinksAndTheirTitles();
    void limitStandsBehindEveryAnchor();
    void stopAtEachTestPoint();
    void resultPageUrls();

private:
    void startRun(qint32 maxAuctions);
    QTemporaryDir m_dir;
    std::unique_ptr<RecordingSource> m_source;
    int m_yields = 0;
    int m_stopAtYield = -1;
};

void tst_ListingScan::init() {
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    ResetHooks();
    SetProgramFolder(m_dir.path()); // no exclusion file: nothing excluded
    Hooks().ExclusionFileUnreadable = [](const QString&) {};
    m_yields = 0;
    m_stopAtYield = -1;
    Hooks().Yield = [this] {
        if (++m_yields == m_stopAtYield)
            HarvestState.StopRequested = FlagTrue;
    };
    m_source = std::make_unique<RecordingSource>(QStringLiteral(MARQUILL_TEST_PAGES "/listing-us.htm"));
    SetDefaultPageSource(m_source.get());
    HarvestState = HarvestRecord();
}

void tst_ListingScan::cleanup() {
    SetDefaultPageSource(nullptr);
}

void tst_ListingScan::startRun(qint32 maxAuctions) {
    HarvestState.MaxAuctions = maxAuctions;
    HarvestState.AuctionsScanned = 0;
    HarvestState.StopRequested = FlagFalse;
    HarvestState.ScanHalted = FlagFalse;
    HarvestState.PageCount = 0;
    ResetKeywordTable();
}

void tst_ListingScan::readPageCount_data() {
    QTest::addColumn<QString>("html");
    QTest::addColumn<int>("count");
    QTest::newRow("worked example") << "<HTML><B>Page 1</B> of 12</TD>" << 12;
    QTest::newRow("grouped") << "<B>Page 1</B> of 1,234</TD>" << 1234;
    QTest::newRow("no page marker") << "<B>Seite 1</B> of 12</TD>" << 0;
    QTest::newRow("no cell end") << "<B>Page 1</B> of 12" << 0;
    QTest::newRow("cell end before the number") << "</TD><B>Page 1</B> of 12" << 0;
    QTest::newRow("not a number") << "<B>Page 1</B> of many</TD>" << 0;
    QTest::newRow("beyond 16 bits") << "<B>Page 1</B> of 99999</TD>" << 0;
    // The fragment is the marker's position plus 30 long: far into a page it reaches far.
    QTest::newRow("long fragment deep in a page") << QString(40, u'x') + QStringLiteral("<B>Page 1</B> of") +
                                                         QString(30, u' ') + QStringLiteral("7</TD>")
                                                  << 7;
    QTest::newRow("short fragment at the start")
        << QStringLiteral("<B>Page 1</B> of") + QString(30, u' ') + QStringLiteral("7</TD>") << 0;
}

void tst_ListingScan::readPageCount() {
    QFETCH(QString, html);
    QFETCH(int, count);
    QCOMPARE(int(ReadPageCount(html)), count);
}

void tst_ListingScan::auctionLinksAndTheirTitles() {
    startRun(NoAuctionLimit);
    ScanListingPage(QStringLiteral("http://listings.ebay.com/x/yQQsacatZ7QQsorecordsperpageZ50"));
    // The picture link, the item host in other capitals, the other site's host and the
    // relative link are no auctions; a link without scheme to the item host is one; the same item
    // linked twice with text counts twice. "&AMP;" is the ampersand, as a browser reads it.
    QCOMPARE(HarvestState.AuctionsScanned, 4);
    QCOMPARE(tallied(), (QStringList{"Gold=2", "Coin=1", "1oz=1", "<B>NEW=1", "Lot=1", "Box=1", "Network=1",
                                     "Path=1", "again=1"}));
    QCOMPARE(int(HarvestState.PageCount), 7);
    QCOMPARE(HarvestState.ScanHalted, FlagFalse);

    Hooks().SiteLabel = [] { return UKSiteLabel; };
    startRun(NoAuctionLimit);
    ScanListingPage(QStringLiteral("http://listings.ebay.co.uk/x/yQQsacatZ7"));
    QCOMPARE(HarvestState.AuctionsScanned, 1);
    QCOMPARE(tallied(), (QStringList{"Penny=1", "Farthing=1"}));
    // The page count is read from a run's first page only.
    QCOMPARE(int(HarvestState.PageCount), 7);
    HarvestState.PageCount = 3;
    ScanListingPage(QStringLiteral("http://listings.ebay.co.uk/x/yQQsacatZ7"));
    QCOMPARE(int(HarvestState.PageCount), 3);
}

void tst_ListingScan::limitStandsBehindEveryAnchor() {
    startRun(2);
    ScanListingPage(QStringLiteral("http://listings.ebay.com/aQQsacatZ1"));
    // The auction that reaches the limit is still tallied, and nothing behind it.
    QCOMPARE(HarvestState.AuctionsScanned, 2);
    QCOMPARE(HarvestState.ScanHalted, FlagTrue);
    QCOMPARE(tallied(), (QStringList{"Gold=1", "Coin=1", "1oz=1", "<B>NEW=1", "Lot=1", "Box=1"}));

    // A limit already reached ends the walk behind the first anchor, auction or not; 9999 and the
    // top of the range are limits like any other.
    for (const qint32 limit : {1, 9999, std::numeric_limits<qint32>::max()}) {
        startRun(limit);
        HarvestState.AuctionsScanned = limit;
        const int before = m_yields;
        ScanListingPage(QStringLiteral("http://listings.ebay.com/aQQsacatZ1"));
        QCOMPARE(m_yields - before, 1);
        QCOMPARE(HarvestState.ScanHalted, FlagTrue);
    }
}

void tst_ListingScan::stopAtEachTestPoint() {
    // On entry: nothing is loaded.
    startRun(NoAuctionLimit);
    HarvestState.StopRequested = FlagTrue;
    ScanListingPage(QStringLiteral("http://listings.ebay.com/aQQsacatZ1"));
    QVERIFY(m_source->urls.isEmpty());
    QCOMPARE(HarvestState.ScanHalted, FlagFalse);

    // During the load: the page is dropped unread and ScanHalted is untouched.
    startRun(NoAuctionLimit);
    Hooks().WaitForEvents = [] {
        HarvestState.StopRequested = FlagTrue;
        QCoreApplication::processEvents();
    };
    ScanListingPage(QStringLiteral("http://listings.ebay.com/aQQsacatZ1"));
    QCOMPARE(m_source->urls.size(), 1);
    QCOMPARE(HarvestState.AuctionsScanned, 0);
    QCOMPARE(int(HarvestState.PageCount), 0);
    QCOMPARE(HarvestState.ScanHalted, FlagFalse);
    ResetHooks();
    init();

    // Before a link: the yield at the head of the second anchor; only the first was looked at.
    startRun(NoAuctionLimit);
    m_stopAtYield = 2;
    ScanListingPage(QStringLiteral("http://listings.ebay.com/aQQsacatZ1"));
    QCOMPARE(HarvestState.ScanHalted, FlagTrue);
    QCOMPARE(HarvestState.AuctionsScanned, 0);

    // Inside a title (the tally's yields): the link is counted, its title partly, and the walk ends.
    startRun(NoAuctionLimit);
    m_yields = 0;
    m_stopAtYield = 5; // anchors 1-3 (help, picture, title), the first word, then the second
    ScanListingPage(QStringLiteral("http://listings.ebay.com/aQQsacatZ1"));
    QCOMPARE(HarvestState.AuctionsScanned, 1);
    QCOMPARE(tallied(), QStringList{"Gold=1"});
    QCOMPARE(HarvestState.ScanHalted, FlagTrue);
}

void tst_ListingScan::resultPageUrls() {
    startRun(NoAuctionLimit);
    QCOMPARE(ScanResultPage(3, QStringLiteral("/x/yQQsacatZ7QQsorecordsperpageZ50")), FlagFalse);
    QCOMPARE(ScanResultPage(4, QStringLiteral("http://h/x/yqqSACATZ7QQsorecordsperpageZ50")), FlagFalse);
    QCOMPARE(m_source->urls, (QStringList{"/x/yQQlopgZ3QQsacatZ7QQsorecordsperpageZ50",
                                          "http://h/x/yQQlopgZ4qqSACATZ7QQsorecordsperpageZ50"}));
    // A URL without the key has no page form: nothing is asked for and the run ends.
    QCOMPARE(ScanResultPage(2, QStringLiteral("http://h/no-key")), FlagTrue);
    QCOMPARE(m_source->urls.size(), 2);
    // A page whose walk ended at the limit ends the run.
    startRun(1);
    QCOMPARE(ScanResultPage(2, QStringLiteral("http://h/aQQsacatZ1")), FlagTrue);

    QCOMPARE(PrepareListingUrl(QStringLiteral("aQQsorecordsperpageZ200bQQsorecordsperpageZ200")),
             QStringLiteral("aQQsorecordsperpageZ50bQQsorecordsperpageZ50"));
    QCOMPARE(PrepareListingUrl(QStringLiteral("aqqsorecordsperpagez200")),
             QStringLiteral("aqqsorecordsperpagez200"));
}

QTEST_GUILESS_MAIN(tst_ListingScan)
#include "tst_ListingScan.moc"
