#include "HostHooks.h"
#include "modMain.h"
#include "modParser.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

// The words of the table in entry order, each as "word=count".
static QStringList entries() {
    QStringList out;
    const KeywordGrid& table = HarvestState.KeywordTable;
    for (qsizetype n = 1; n <= table.LastEntry(); ++n)
        out << table.Word(n) + u'=' + table.Count(n);
    return out;
}

class tst_KeywordTally : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cuttingAndDropping_data();
    void cuttingAndDropping();
    void exclusions_data();
    void exclusions();
    void seenTextIsOnlyAHint();
    void tableLayoutAndProgressCaption();
    void secondSearchInTheSameProcess();
    void stopAtAChosenYield();

private:
    void startSearch(const QByteArray& exclusions);
    QTemporaryDir m_dir;
    QStringList m_captions;
    int m_yields = 0;
    int m_stopAtYield = -1;
};

void tst_KeywordTally::init() {
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    ResetHooks();
    m_captions.clear();
    m_yields = 0;
    m_stopAtYield = -1;
    Hooks().SetMainTotalCaption = [this](const QString& caption) { m_captions << caption; };
    Hooks().Yield = [this] {
        if (++m_yields == m_stopAtYield)
            HarvestState.StopRequested = FlagTrue;
    };
    SetProgramFolder(m_dir.path());
    // Each test stands for a fresh process, except where it says otherwise.
    HarvestState = HarvestRecord();
    startSearch(QByteArray());
}

void tst_KeywordTally::startSearch(const QByteArray& exclusions) {
    QFile file(m_dir.filePath(QStringLiteral("exclude.dat")));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(exclusions);
    file.close();
    HarvestState.KeywordsFound = 0;
    HarvestState.StopRequested = FlagFalse;
    LoadExclusions();
    ResetKeywordTable();
}

void tst_KeywordTally::cuttingAndDropping_data() {
    QTest::addColumn<QString>("title");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("numbers and one letter")
        << "NEW Mint &amp; Boxed 2005 x" << QStringList{"NEW=1", "Mint=1", "Boxed=1"};
    QTest::newRow("double blank") << "Gold  Ring" << QStringList{"Gold=1", "Ring=1"};
    QTest::newRow("leading and trailing blank") << " Gold " << QStringList{"Gold=1"};
    QTest::newRow("two letters stay") << "a ab" << QStringList{"ab=1"};
    QTest::newRow("grouped, price, exponent, hex") << "1,000 $5 2.5 1E3 &H1F (4) 5-" << QStringList{};
    QTest::newRow("not numbers") << "5x 1/2 10kg" << QStringList{"5x=1", "1/2=1", "10kg=1"};
    QTest::newRow("punctuation stays") << "Nice! Nice" << QStringList{"Nice!=1", "Nice=1"};
    QTest::newRow("tab is no separator") << "Gold\tRing" << QStringList{"Gold\tRing=1"};
    QTest::newRow("repeat in a title counts twice") << "lot of lot" << QStringList{"lot=2", "of=1"};
    QTest::newRow("empty title") << "" << QStringList{};
    QTest::newRow("closing tag") << "Mint</B>" << QStringList{"Mint=1"};
    QTest::newRow("opening tag") << "<B>Mint" << QStringList{"Mint=1"};
    QTest::newRow("lower-case tags") << "<b>Mint Mint</b>" << QStringList{"Mint=2"};
    QTest::newRow("both tags: only the closing one goes") << "<B>Mint</B>" << QStringList{"<B>Mint=1"};
    QTest::newRow("tags alone") << "<B> </B>" << QStringList{};
    QTest::newRow("number with tag counts") << "2005</B>" << QStringList{"2005=1"};
    QTest::newRow("letter with tag counts") << "x</B>" << QStringList{"x=1"};
    QTest::newRow("entity alone") << "&amp;" << QStringList{};
    QTest::newRow("entity in a word") << "R&amp;B" << QStringList{"R&B=1"};
    QTest::newRow("upper-case entity stays") << "R&AMP;B" << QStringList{"R&AMP;B=1"};
    QTest::newRow("mixed entities: lower form only") << "A&AMP;B&amp;C" << QStringList{"A&AMP;B&C=1"};
    QTest::newRow("tag wins over entity") << "R&amp;B</B>" << QStringList{"R&amp;B=1"};
    QTest::newRow("other entity stays") << "Caf&eacute;" << QStringList{"Caf&eacute;=1"};
    QTest::newRow("case folds to the first met")
        << "Mint mint MINT Gold mINT" << QStringList{"Mint=4", "Gold=1"};
}

void tst_KeywordTally::cuttingAndDropping() {
    QFETCH(QString, title);
    QFETCH(QStringList, expected);
    TallyTitle(title);
    QCOMPARE(entries(), expected);
    QCOMPARE(HarvestState.KeywordsFound, expected.size());
}

void tst_KeywordTally::exclusions_data() {
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QStringList>("expected");
    // The lines are one text, so a word across the seam of two is excluded too.
    QTest::newRow("one text with seams")
        << QByteArray("the\r\nbrand\n") << "HE Rand eB brands THE Brand" << QStringList{"brands=1"};
    // The test runs before cleaning, so an excluded word with a tag behind it is counted.
    QTest::newRow("before cleaning") << QByteArray("brand") << "brand</B>" << QStringList{"brand=1"};
    QTest::newRow("utf-8") << QByteArray("caf\xc3\xa9\n") << "CAF\u00c9 cafe" << QStringList{"cafe=1"};
    QTest::newRow("not utf-8: latin-1")
        << QByteArray("na\xefve\n") << "Na\u00efve naive" << QStringList{"naive=1"};
    QTest::newRow("no file") << QByteArray() << "the brand" << QStringList{"the=1", "brand=1"};
}

void tst_KeywordTally::exclusions() {
    QFETCH(QByteArray, file);
    QFETCH(QString, title);
    QString told;
    Hooks().ExclusionFileUnreadable = [&](const QString& path) { told = path; };
    HarvestState = HarvestRecord();
    QFile exclusions(m_dir.filePath(QStringLiteral("exclude.dat")));
    QVERIFY(file.isEmpty() ? exclusions.remove()
                           : exclusions.open(QIODevice::WriteOnly) && exclusions.write(file));
    exclusions.close();
    LoadExclusions();
    ResetKeywordTable();
    QCOMPARE(told, file.isEmpty() ? m_dir.filePath(QStringLiteral("exclude.dat")) : QString());
    TallyTitle(title);
    QTEST(entries(), "expected");
}

void tst_KeywordTally::seenTextIsOnlyAHint() {
    TallyTitle(QStringLiteral("Oscar"));
    QVERIFY(IsKeywordSeen(QStringLiteral("CAR")));
    QVERIFY(IsKeywordSeen(QStringLiteral("SCA"))); // not even a word, but inside the text
    TallyTitle(QStringLiteral("car Oscar"));
    QCOMPARE(entries(), (QStringList{"Oscar=2", "car=1"}));
    QCOMPARE(HarvestState.SeenKeywords, QStringLiteral("Oscarcar"));
    // Across the seam of two neighbours.
    QVERIFY(IsKeywordSeen(QStringLiteral("ARCA")));
    QVERIFY(!IsKeywordSeen(QStringLiteral("CARS")));
}

void tst_KeywordTally::tableLayoutAndProgressCaption() {
    const KeywordGrid& table = HarvestState.KeywordTable;
    QVERIFY(table.IsSingleCell());
    QCOMPARE(table.LastEntry(), 0);
    TallyTitle(QStringLiteral("Silver silver Coin"));
    QVERIFY(!table.IsSingleCell());
    QCOMPARE(table.LastEntry(), 2);
    QCOMPARE(table.Count(1), QStringLiteral("2"));
    QCOMPARE(table.Count(0) + table.Word(0), QString());
    QCOMPARE(m_captions, (QStringList{"Keywords Found: 1", "Keywords Found: 2"}));
    for (int i = 0; i < 1200; ++i)
        TallyTitle(QStringLiteral("w%1").arg(i));
    QCOMPARE(m_captions.last(), QStringLiteral("Keywords Found: 1202")); // no grouping
}

void tst_KeywordTally::secondSearchInTheSameProcess() {
    startSearch("old\n");
    TallyTitle(QStringLiteral("Gold Ring Ring"));
    startSearch("new\n");
    QCOMPARE(HarvestState.ExclusionText, QStringLiteral("oldnew")); // appended, not replaced
    QVERIFY(HarvestState.KeywordTable.IsSingleCell());
    TallyTitle(QStringLiteral("Ring old new"));
    QCOMPARE(entries(), QStringList{"Ring=1"});
    QCOMPARE(HarvestState.KeywordsFound, 1);
    QCOMPARE(HarvestState.SeenKeywords, QStringLiteral("GoldRingRing"));
}

void tst_KeywordTally::stopAtAChosenYield() {
    // One yield per piece: a stop in the third yield leaves the first two counted.
    m_stopAtYield = 3;
    TallyTitle(QStringLiteral("alpha beta gamma delta"));
    QCOMPARE(entries(), (QStringList{"alpha=1", "beta=1"}));
    QCOMPARE(m_yields, 3);
    // The flag is read before the piece is looked at, so a stopped title counts nothing more.
    TallyTitle(QStringLiteral("epsilon"));
    QCOMPARE(entries().size(), 2);
    QCOMPARE(HarvestState.KeywordsFound, 2);
}

QTEST_GUILESS_MAIN(tst_KeywordTally)
#include "tst_KeywordTally.moc"
