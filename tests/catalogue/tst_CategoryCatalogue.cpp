#include "CatalogueTree.h"
#include "CategoryFileBytes.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/modXML.h"
#include "platform/HostHooks.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

QByteArray File(const QByteArray& sites) {
    return R"(<?xml version="1.0" encoding= "ISO-8859-1"?><Categories>)" + sites + "</Categories>";
}

} // namespace

class tst_CategoryCatalogue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void treeKeepsOrderRefusesRepeatsAndJoinsPaths();
    void loadFillsTheSelectedSiteInFileOrder();
    void siteWithoutEntriesGivesTheRootAlone();
    void repeatedKeysArePassedOver();
    void tildeInANameAddsAPart();
    void childPositionStopsAtSixteenBits();
    void cdataTerminatorInAnEntryGivesOneNode();
    void siteElementsAreFoundAtAnyDepth();
    void refillLeavesTheFormerTreeReadable();
    void loadFailureShowsMessageAndFillsNothing();
    void siteClickRereadsTheDiskAndReleases();
    void siteClickDuringFormLoadDoesNothing();
    void siteClickFailureKeepsTheTree();
    void treeClickRemembersAuctions_data();
    void treeClickRemembersAuctions();

private:
    QTemporaryDir m_dir;
    QString m_path;
    QString m_site;
    int m_maxAuctionsIndex = 0;
    int m_refills = 0;
    int m_hides = 0;
    QStringList m_messages;
};

void tst_CategoryCatalogue::init() {
    QVERIFY(m_dir.isValid());
    m_path = m_dir.filePath(QStringLiteral("aeurl.xml"));
    ReleaseCategoryFile();
    ResetCategoryTree();
    CatalogueLogic = CatalogueState();
    CategoryStore.CategoryFilePath.clear();
    ResetHooks();
    SetProgramFolder(m_dir.path());
    m_site = USSiteLabel;
    m_maxAuctionsIndex = 0;
    m_refills = m_hides = 0;
    m_messages.clear();
    Hooks().SiteLabel = [this] { return m_site; };
    Hooks().MaxAuctionsIndex = [this] { return m_maxAuctionsIndex; };
    Hooks().SetMaxAuctionsIndex = [this](int index) { m_maxAuctionsIndex = index; };
    Hooks().CategoryTreeRefilled = [this] { ++m_refills; };
    Hooks().HideFeedback = [this] { ++m_hides; };
    Hooks().MsgBox = [this](const QString& text, int style, const QString& title) {
        m_messages << QStringLiteral("%1|%2|%3").arg(text).arg(style).arg(title);
        return 1;
    };
}

void tst_CategoryCatalogue::cleanup() {
    ReleaseCategoryFile();
    ResetCategoryTree();
    QDir(m_dir.path()).removeRecursively();
    QDir().mkpath(m_dir.path());
    SetProgramFolder(QString());
    ResetHooks();
}

void tst_CategoryCatalogue::treeKeepsOrderRefusesRepeatsAndJoinsPaths() {
    CategoryTree tree;
    tree.SetPathSeparator(QStringLiteral("~"));
    CategoryNode* root = tree.Add(nullptr, QStringLiteral("Root"), QStringLiteral("Select Category"));
    QVERIFY(root);
    QVERIFY(!tree.Add(nullptr, QStringLiteral("Other"), QStringLiteral("Second root")));
    CategoryNode* coins = tree.Add(root, QStringLiteral("c"), QStringLiteral("Coins"));
    CategoryNode* toys = tree.Add(root, QStringLiteral("t"), QStringLiteral("Toys"));
    tree.Add(coins, QStringLiteral("c1"), QStringLiteral("Bullion"));
    tree.Add(coins, QStringLiteral("c2"), QStringLiteral("Medals"));
    QVERIFY(!tree.Add(toys, QStringLiteral("c1"), QStringLiteral("Repeat")));

    QCOMPARE(root->FullPath(), QStringLiteral("Select Category"));
    QCOMPARE(root->Children(), 2);
    QCOMPARE(root->Child(), coins);
    QCOMPARE(coins->Next(), toys);
    QCOMPARE(toys->Next(), nullptr);
    QCOMPARE(toys->Children(), 0);
    QCOMPARE(coins->Child()->Next()->FullPath(), QStringLiteral("Select Category~Coins~Medals"));
    QCOMPARE(tree.FindByPath(QStringLiteral("Select Category~Coins~Bullion")), coins->Child());
    QCOMPARE(tree.FindByPath(QStringLiteral("Select Category~Toys~Repeat")), nullptr);
    QCOMPARE(tree.FindByKey(QStringLiteral("t")), toys);

    QStringList order;
    for (const CategoryNode* node : tree.NodesInOrder())
        order << node->Text();
    QCOMPARE(order,
             (QStringList{QStringLiteral("Select Category"), QStringLiteral("Coins"),
                          QStringLiteral("Bullion"), QStringLiteral("Medals"), QStringLiteral("Toys")}));

    // A node of another tree takes no child here.
    CategoryTree other;
    CategoryNode* foreignRoot = other.Add(nullptr, QStringLiteral("Root"), QStringLiteral("x"));
    QVERIFY(!tree.Add(foreignRoot, QStringLiteral("f"), QStringLiteral("f")));
    tree.Clear();
    QCOMPARE(tree.Root(), nullptr);
    QVERIFY(tree.NodesInOrder().empty());
    QVERIFY(tree.Add(nullptr, QStringLiteral("c1"), QStringLiteral("Reused key after Clear")));
}

void tst_CategoryCatalogue::loadFillsTheSelectedSiteInFileOrder() {
    WriteBytes(m_path, Golden("two_sites.xml"));
    m_maxAuctionsIndex = 0;
    LoadCategories();
    QVERIFY(m_messages.isEmpty());
    QCOMPARE(CategoryStore.CategoryFilePath, m_path);
    QVERIFY(CategoryStore.XmlDocument); // stays open after a load
    QCOMPARE(m_hides, 1);
    QCOMPARE(m_refills, 1);
    QCOMPARE(m_maxAuctionsIndex, 2);
    QVERIFY(CatalogueLogic.RootExpanded);
    // White space between a site element's children is skipped; the empty third US element adds
    // nothing; the UK elements between do not reach the US tree.
    const QStringList expected{
        QStringLiteral("Select Category\tRoot"),
        QStringLiteral(
            "Select Category~Toys & Games\thttp://listings.ebay.com/Toys-Games_W0QQfromZR4QQsacatZ220"),
        QStringLiteral("Select Category~Toys & Games~<Dolls> & Bears\t"
                       "http://listings.ebay.com/Dolls-Bears_W0QQsacatZ237QQsorecordsperpageZ50"),
        QStringLiteral("Select Category~Toys & Games~Caf\u00e9 Sets\t"
                       "http://listings.ebay.com/Cafe-Sets_W0QQsacatZ238QQsorecordsperpageZ50"),
        QStringLiteral("Select Category~Coins\thttp://listings.ebay.com/Coins_W0QQfromZR4QQsacatZ11116"),
        QStringLiteral("Select Category~Coins~Bullion\t"
                       "http://listings.ebay.com/Bullion_W0QQsacatZ39482QQsorecordsperpageZ50"),
    };
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);

    m_site = UKSiteLabel;
    ReloadCategoryTree();
    QCOMPARE(TreeLines(CurrentCategoryTree()).size(), 1 + 1 + 1 + 1);
    QCOMPARE(CurrentCategoryTree()->Root()->Child()->Next()->Text(), QStringLiteral("Stamps"));
    QCOMPARE(CurrentCategoryTree()->Root()->Child()->Next()->Children(), 0);
}

void tst_CategoryCatalogue::siteWithoutEntriesGivesTheRootAlone() {
    WriteBytes(m_path,
               File(Site("ebay.co.uk", "Stamps", "http://s/") +
                    "<ebay.com></ebay.com><ebay.com>\n \n</ebay.com>" +
                    "<EBAY.COM><MainItem>Upper</MainItem><MainURL>http://upper/</MainURL></EBAY.COM>"));
    LoadCategories();
    QCOMPARE(TreeLines(CurrentCategoryTree()), QStringList{QStringLiteral("Select Category\tRoot")});
    QVERIFY(CatalogueLogic.RootExpanded);

    // A missing file is created and gives the same.
    QFile::remove(m_path);
    LoadCategories();
    QVERIFY(QFile::exists(m_path));
    QCOMPARE(TreeLines(CurrentCategoryTree()), QStringList{QStringLiteral("Select Category\tRoot")});
    QCOMPARE(m_refills, 2);
}

void tst_CategoryCatalogue::repeatedKeysArePassedOver() {
    WriteBytes(m_path,
               File(Site("ebay.com", "Coins", "http://c/",
                         Sub("Bullion", "http://c/b") + Sub("Again", "http://c/b")) +
                    Site("ebay.com", "Coins twice", "http://c/",
                         Sub("Medals", "http://c/m") + Sub("Bullion", "http://c/b")) +
                    Site("ebay.com", "Main on a sub's key", "http://c/m", Sub("Lost", "http://lost/")) +
                    Site("ebay.com", "Toys", "http://t/", Sub("Dolls", "http://t/d"))));
    const std::shared_ptr<CategoryTree> first = [this] {
        LoadCategories();
        return CurrentCategoryTree();
    }();
    // The earlier node keeps the key; sub-categories of the repeated main join it; a main whose
    // key is a sub-category's has no node to take its own; the fill goes on to the end.
    const QStringList expected{
        QStringLiteral("Select Category\tRoot"),
        QStringLiteral("Select Category~Coins\thttp://c/"),
        QStringLiteral("Select Category~Coins~Bullion\thttp://c/b"),
        QStringLiteral("Select Category~Coins~Medals\thttp://c/m"),
        QStringLiteral("Select Category~Toys\thttp://t/"),
        QStringLiteral("Select Category~Toys~Dolls\thttp://t/d"),
    };
    QCOMPARE(TreeLines(first), expected);
    // The same file gives the same tree at the next fill.
    ReloadCategoryTree();
    QVERIFY(CurrentCategoryTree() != first);
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);
}

void tst_CategoryCatalogue::tildeInANameAddsAPart() {
    WriteBytes(m_path, File(Site("ebay.com", "Art~Craft", "http://a/", Sub("Paint", "http://a/p"))));
    LoadCategories();
    const CategoryNode* paint = CurrentCategoryTree()->FindByKey(QStringLiteral("http://a/p"));
    QVERIFY(paint);
    QCOMPARE(paint->FullPath(), QStringLiteral("Select Category~Art~Craft~Paint"));
    QCOMPARE(paint->FullPath().split(QLatin1Char('~')).size(), 4);
    QVERIFY(!CurrentCategoryTree()->Root()->FullPath().contains(QLatin1Char('~')));
}

void tst_CategoryCatalogue::childPositionStopsAtSixteenBits() {
    // MainItem, MainURL, then sub-categories up to position 32,767; the one at that position is
    // beyond what a 16-bit position reaches.
    QByteArray subs;
    for (int i = 0; i < 32766; ++i)
        subs += Sub("s", "u" + QByteArray::number(i));
    WriteBytes(m_path, File(Site("ebay.com", "Big", "http://big/", subs) +
                            Site("ebay.com", "After", "http://after/")));
    LoadCategories();
    const CategoryNode* big = CurrentCategoryTree()->FindByKey(QStringLiteral("http://big/"));
    QVERIFY(big);
    QCOMPARE(big->Children(), 32765);
    QVERIFY(CurrentCategoryTree()->FindByKey(QStringLiteral("u32764")));
    QVERIFY(!CurrentCategoryTree()->FindByKey(QStringLiteral("u32765")));
    // The next element is read from its own position 0.
    QVERIFY(CurrentCategoryTree()->FindByKey(QStringLiteral("http://after/")));
}

void tst_CategoryCatalogue::cdataTerminatorInAnEntryGivesOneNode() {
    CategoryStore.CategoryFilePath = m_path;
    QVERIFY(OpenCategoryFile(m_path, CategoryRootName));
    AddMainCategory(QStringLiteral("Odd]]>Main"), QStringLiteral("http://m/]]>"));
    AddSubCategory(QStringLiteral("Odd]]>Sub"), QStringLiteral("http://m/s]]>QQsorecordsperpageZ50"));
    AddSubCategory(QStringLiteral("Next"), QStringLiteral("http://m/nQQsorecordsperpageZ50"));
    ReleaseCategoryFile();

    LoadCategories();
    const QStringList expected{
        QStringLiteral("Select Category\tRoot"),
        QStringLiteral("Select Category~Odd]] >Main\thttp://m/]]%3E"),
        QStringLiteral("Select Category~Odd]] >Main~Odd]] >Sub\thttp://m/s]]%3EQQsorecordsperpageZ50"),
        QStringLiteral("Select Category~Odd]] >Main~Next\thttp://m/nQQsorecordsperpageZ50"),
    };
    QCOMPARE(TreeLines(CurrentCategoryTree()), expected);
}

void tst_CategoryCatalogue::siteElementsAreFoundAtAnyDepth() {
    // A hand-made file nesting as deep as the XML reader allows.
    constexpr int depth = 250;
    QByteArray open;
    QByteArray close;
    for (int i = 0; i < depth; ++i) {
        open += "<d>";
        close += "</d>";
    }
    WriteBytes(m_path,
               File(Site("ebay.com", "Top", "http://top/") + open +
                    Site("ebay.com", "Deep", "http://deep/", Sub("Bottom", "http://deep/b")) + close));
    LoadCategories();
    QVERIFY(m_messages.isEmpty());
    QCOMPARE(TreeLines(CurrentCategoryTree()),
             (QStringList{QStringLiteral("Select Category\tRoot"),
                          QStringLiteral("Select Category~Top\thttp://top/"),
                          QStringLiteral("Select Category~Deep\thttp://deep/"),
                          QStringLiteral("Select Category~Deep~Bottom\thttp://deep/b")}));
}

void tst_CategoryCatalogue::refillLeavesTheFormerTreeReadable() {
    WriteBytes(m_path, File(Site("ebay.com", "Coins", "http://c/", Sub("Bullion", "http://c/b"))));
    LoadCategories();
    const std::shared_ptr<CategoryTree> held = CurrentCategoryTree();
    const CategoryNode* bullion = held->FindByKey(QStringLiteral("http://c/b"));
    m_site = UKSiteLabel;
    ReloadCategoryTree();
    QVERIFY(CurrentCategoryTree() != held);
    QCOMPARE(CurrentCategoryTree()->Root()->Children(), 0);
    QCOMPARE(bullion->FullPath(), QStringLiteral("Select Category~Coins~Bullion"));
}

void tst_CategoryCatalogue::loadFailureShowsMessageAndFillsNothing() {
    QVERIFY(QDir().mkpath(m_path));
    LoadCategories();
    QCOMPARE(m_messages, QStringList{QStringLiteral("Cannot open %1|0|").arg(m_path)});
    QVERIFY(!CategoryStore.XmlDocument);
    QCOMPARE(CurrentCategoryTree(), nullptr);
    QCOMPARE(m_refills, 0);
    QCOMPARE(m_hides, 0);
    QCOMPARE(m_maxAuctionsIndex, 0);
}

void tst_CategoryCatalogue::siteClickRereadsTheDiskAndReleases() {
    WriteBytes(m_path,
               File(Site("ebay.com", "Coins", "http://c/") + Site("ebay.co.uk", "Stamps", "http://s/")));
    LoadCategories();
    m_maxAuctionsIndex = 3;
    CatalogueLogic.SavedAuctionsIndex = 1;

    // Another hand changes the file after the load: the click reads what is on disk now.
    WriteBytes(m_path, File(Site("ebay.co.uk", "Clocks", "http://k/")));
    m_site = UKSiteLabel;
    ClickSite();
    QVERIFY(m_messages.isEmpty());
    QCOMPARE(TreeLines(CurrentCategoryTree()),
             (QStringList{QStringLiteral("Select Category\tRoot"),
                          QStringLiteral("Select Category~Clocks\thttp://k/")}));
    QVERIFY(!CategoryStore.XmlDocument);
    QCOMPARE(m_maxAuctionsIndex, 3);
    QCOMPARE(CatalogueLogic.SavedAuctionsIndex, std::int16_t(1));
    QCOMPARE(m_refills, 2);
}

void tst_CategoryCatalogue::siteClickDuringFormLoadDoesNothing() {
    WriteBytes(m_path, File(Site("ebay.com", "Coins", "http://c/")));
    CatalogueLogic.FormLoading = FlagTrue;
    const auto saves = CategoryFileSaveCount();
    ClickSite();
    QCOMPARE(CategoryFileSaveCount(), saves);
    QCOMPARE(m_refills, 0);
    QVERIFY(m_messages.isEmpty());
    QCOMPARE(CurrentCategoryTree(), nullptr);

    LoadCategories();
    CatalogueLogic.FormLoading = FlagFalse;
    QCOMPARE(m_refills, 1);
    ClickSite();
    QCOMPARE(m_refills, 2);
}

void tst_CategoryCatalogue::siteClickFailureKeepsTheTree() {
    WriteBytes(m_path, File(Site("ebay.com", "Coins", "http://c/")));
    LoadCategories();
    const std::shared_ptr<CategoryTree> shown = CurrentCategoryTree();
    QVERIFY(QFile::remove(m_path));
    QVERIFY(QDir().mkpath(m_path));
    m_site = UKSiteLabel;
    ClickSite();
    QCOMPARE(m_messages, QStringList{QStringLiteral("Cannot open %1|0|").arg(m_path)});
    QCOMPARE(CurrentCategoryTree(), shown);
    QCOMPARE(shown->Root()->Child()->Text(), QStringLiteral("Coins"));
    QVERIFY(!CategoryStore.XmlDocument);
}

void tst_CategoryCatalogue::treeClickRemembersAuctions_data() {
    // Each step: the index the user picks first (-1: none), the node clicked ("" for no node),
    // and the index shown after.
    QTest::addColumn<QList<int>>("picks");
    QTest::addColumn<QStringList>("clicks");
    QTest::addColumn<QList<int>>("shown");
    QTest::addColumn<int>("saved");
    QTest::newRow("plain clicks fall back to the saved 0")
        << QList<int>{-1, 3, 1}
        << QStringList{QStringLiteral("Coins"), QStringLiteral("Toys"), QStringLiteral("Coins")}
        << QList<int>{0, 0, 0} << 0;
    QTest::newRow("root takes the plain way")
        << QList<int>{-1} << QStringList{QStringLiteral("Select Category")} << QList<int>{0} << 0;
    QTest::newRow("All Categories at 5,000, then another node")
        << QList<int>{3, -1} << QStringList{QStringLiteral("All Categories"), QStringLiteral("Coins")}
        << QList<int>{2, 3} << 3;
    QTest::newRow("All Categories twice loses the 5,000")
        << QList<int>{3, -1, -1}
        << QStringList{QStringLiteral("All Categories"), QStringLiteral("All Categories"),
                       QStringLiteral("Coins")}
        << QList<int>{2, 2, 2} << 2;
    QTest::newRow("no node selected changes nothing")
        << QList<int>{1} << QStringList{QString()} << QList<int>{1} << 0;
    QTest::newRow("case counts") << QList<int>{3} << QStringList{QStringLiteral("all categories")}
                                 << QList<int>{0} << 0;
}

void tst_CategoryCatalogue::treeClickRemembersAuctions() {
    QFETCH(QList<int>, picks);
    QFETCH(QStringList, clicks);
    QFETCH(QList<int>, shown);
    QFETCH(int, saved);
    WriteBytes(m_path, File(Site("ebay.com", "Coins", "http://c/") + Site("ebay.com", "Toys", "http://t/") +
                            Site("ebay.com", "All Categories", "http://all/") +
                            Site("ebay.com", "all categories", "http://all-lower/")));
    LoadCategories();
    QCOMPARE(m_maxAuctionsIndex, 2); // "2,000" after start-up
    const std::shared_ptr<CategoryTree> tree = CurrentCategoryTree();
    for (qsizetype i = 0; i < clicks.size(); ++i) {
        if (picks[i] >= 0)
            m_maxAuctionsIndex = picks[i];
        const CategoryNode* node = nullptr;
        if (!clicks[i].isEmpty()) {
            for (const CategoryNode* candidate : tree->NodesInOrder())
                if (candidate->Text() == clicks[i])
                    node = candidate;
            QVERIFY2(node, qPrintable(clicks[i]));
        }
        ClickTree(node);
        QCOMPARE(m_maxAuctionsIndex, shown[i]);
    }
    QCOMPARE(int(CatalogueLogic.SavedAuctionsIndex), saved);
    // No fill resets the saved index.
    ReloadCategoryTree();
    QCOMPARE(int(CatalogueLogic.SavedAuctionsIndex), saved);
}

QTEST_GUILESS_MAIN(tst_CategoryCatalogue)
#include "tst_CategoryCatalogue.moc"
