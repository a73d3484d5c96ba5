#include "CategoryFileBytes.h"

#include <QDir>
#include <optional>

namespace {

QByteArray File(const QByteArray& sites) {
    return R"(<?xml version="1.0" encoding= "ISO-8859-1"?><Categories>)" + sites + "</Categories>";
}

// The root's line, then each of "~Path\tkey" under it.
QStringList Tree(const QStringList& below = {}) {
    QStringList lines{"Select Category\tRoot"};
    for (const QString& line : below)
        lines << "Select Category" + line;
    return lines;
}

} // namespace

class tst_CategoryCatalogue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void treeRefusesSecondRootsRepeatsAndStrangers();
    void fillFollowsTheFile_data();
    void fillFollowsTheFile();
    void childPositionStopsAtSixteenBits();
    void loadReloadAndClickSite();
    void unopenableFileShowsMessageAndKeepsTheTree();
    void treeClickRemembersAuctions();

private:
    std::optional<CatalogueHost> m_host;
};

void tst_CategoryCatalogue::init() {
    m_host.emplace();
}

void tst_CategoryCatalogue::cleanup() {
    m_host.reset();
}

void tst_CategoryCatalogue::treeRefusesSecondRootsRepeatsAndStrangers() {
    CategoryTree tree;
    tree.SetPathSeparator("/");
    CategoryNode* root = tree.Add(nullptr, "Root", "R");
    QVERIFY(root && !tree.Add(nullptr, "Other", "Second root"));
    CategoryNode* coins = tree.Add(root, "c", "Coins");
    QVERIFY(!tree.Add(coins, "c", "Repeat"));
    QCOMPARE(tree.FindByPath("R/Coins"), coins);
    QCOMPARE(tree.FindByPath("R/Repeat"), nullptr);
    CategoryTree other;
    QVERIFY(!tree.Add(other.Add(nullptr, "f", "f"), "g", "g"));
    tree.Clear();
    QVERIFY(tree.NodesInOrder().empty());
    QVERIFY(tree.Add(nullptr, "c", "Key free again after Clear"));
}

void tst_CategoryCatalogue::fillFollowsTheFile_data() {
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("site");
    QTest::addColumn<QStringList>("tree");
    // White space between a site element's children is skipped; the other site's elements between
    // do not reach this site's tree; an empty element adds nothing.
    QTest::newRow("us of two")
        << Golden("two_sites.xml") << USSiteLabel
        << Tree({"~Toys & Games\thttp://listings.ebay.com/Toys-Games_W0QQfromZR4QQsacatZ220",
                 "~Toys & Games~<Dolls> & Bears\thttp://listings.ebay.com/"
                 "Dolls-Bears_W0QQsacatZ237QQsorecordsperpageZ50",
                 "~Toys & Games~Caf\u00e9 Sets\thttp://listings.ebay.com/"
                 "Cafe-Sets_W0QQsacatZ238QQsorecordsperpageZ50",
                 "~Coins\thttp://listings.ebay.com/Coins_W0QQfromZR4QQsacatZ11116",
                 "~Coins~Bullion\thttp://listings.ebay.com/"
                 "Bullion_W0QQsacatZ39482QQsorecordsperpageZ50"});
    QTest::newRow("no entries, tag case counts")
        << File(Site("ebay.co.uk", "Stamps", "http://s/") + "<ebay.com>\n</ebay.com>" +
                "<EBAY.COM><MainItem>Upper</MainItem><MainURL>http://upper/</MainURL></EBAY.COM>")
        << USSiteLabel << Tree();
    // The earlier node keeps a key; sub-categories of a repeated main join it; a main on a sub's
    // key has no node to take its own; an item short of its name or URL, or before any main, is
    // passed over; the fill goes on to the end; a site element of sub-categories alone adds to the
    // main before it.
    QTest::newRow("repeats and short items")
        << File("<ebay.com>" + Sub("Early", "http://e/") + "</ebay.com>" +
                Site("ebay.com", "Coins", "http://c/",
                     Sub("Bullion", "http://c/b") + Sub("Again", "http://c/b") +
                         "<SubItem><![CDATA[No URL]]></SubItem><SubItem/>") +
                Site("ebay.com", "Coins twice", "http://c/", Sub("Medals", "http://c/m")) +
                Site("ebay.com", "Main on a sub's key", "http://c/m", Sub("Lost", "http://lost/")) +
                Site("ebay.com", "Toys", "http://t/") + "<ebay.com>" + Sub("Dolls", "http://t/d") +
                "</ebay.com>")
        << USSiteLabel
        << Tree({"~Coins\thttp://c/", "~Coins~Bullion\thttp://c/b", "~Coins~Medals\thttp://c/m",
                 "~Toys\thttp://t/", "~Toys~Dolls\thttp://t/d"});
    QTest::newRow("tilde in a name adds a part")
        << File(Site("ebay.com", "Art~Craft", "http://a/", Sub("Paint", "http://a/p"))) << USSiteLabel
        << Tree({"~Art~Craft\thttp://a/", "~Art~Craft~Paint\thttp://a/p"});
    // A hand-made file nesting as deep as the XML reader allows.
    QTest::newRow("site elements at any depth")
        << File(Site("ebay.com", "Top", "http://top/") + QByteArray("<d>").repeated(250) +
                Site("ebay.com", "Deep", "http://deep/", Sub("Bottom", "http://deep/b")) +
                QByteArray("</d>").repeated(250))
        << USSiteLabel << Tree({"~Top\thttp://top/", "~Deep\thttp://deep/", "~Deep~Bottom\thttp://deep/b"});
}

void tst_CategoryCatalogue::fillFollowsTheFile() {
    QFETCH(QByteArray, file);
    QFETCH(QString, site);
    QFETCH(QStringList, tree);
    WriteBytes(m_host->path, file);
    m_host->site = site;
    LoadCategories();
    QVERIFY(m_host->messages.isEmpty());
    QCOMPARE(TreeLines(CurrentCategoryTree()), tree);
}

void tst_CategoryCatalogue::childPositionStopsAtSixteenBits() {
    // MainItem, MainURL, then sub-categories up to position 32,767, which a 16-bit position never
    // reaches; the next element is read from its own position 0.
    QByteArray subs;
    for (int i = 0; i < 32766; ++i)
        subs += Sub("s", "u" + QByteArray::number(i));
    WriteBytes(m_host->path, File(Site("ebay.com", "Big", "http://big/", subs) +
                                  Site("ebay.com", "After", "http://after/")));
    LoadCategories();
    const std::shared_ptr<CategoryTree> tree = CurrentCategoryTree();
    QCOMPARE(tree->FindByKey("http://big/")->Children(), 32765);
    QVERIFY(tree->FindByKey("u32764") && !tree->FindByKey("u32765"));
    QVERIFY(tree->FindByKey("http://after/"));
}

void tst_CategoryCatalogue::loadReloadAndClickSite() {
    WriteBytes(m_host->path, File(Site("ebay.com", "Coins", "http://c/", Sub("Bullion", "http://c/b")) +
                                  Site("ebay.co.uk", "Stamps", "http://s/")));
    // A site click while the window loads does nothing.
    CatalogueLogic.FormLoading = FlagTrue;
    ClickSite();
    QCOMPARE(CurrentCategoryTree(), nullptr);
    LoadCategories();
    CatalogueLogic.FormLoading = FlagFalse;
    QCOMPARE(CategoryStore.CategoryFilePath, m_host->path);
    QVERIFY(CategoryStore.XmlDocument); // stays open after a load
    QVERIFY(CatalogueLogic.RootExpanded);
    QCOMPARE(m_host->hides, 1);
    QCOMPARE(m_host->refills, 1);
    QCOMPARE(m_host->auctions, DefaultAuctionsIndex);

    // A run holding the former tree keeps reading it after a refill.
    const std::shared_ptr<CategoryTree> held = CurrentCategoryTree();
    const CategoryNode* bullion = held->FindByKey("http://c/b");
    m_host->auctions = 3;
    CatalogueLogic.SavedAuctionsIndex = 1;
    // Another hand changes the file after the load: the click reads what is on disk now, and
    // leaves the auction choice alone.
    WriteBytes(m_host->path, File(Site("ebay.co.uk", "Clocks", "http://k/")));
    m_host->site = UKSiteLabel;
    ClickSite();
    QCOMPARE(TreeLines(CurrentCategoryTree()), Tree({"~Clocks\thttp://k/"}));
    QCOMPARE(bullion->FullPath(), "Select Category~Coins~Bullion");
    QVERIFY(!CategoryStore.XmlDocument);
    QCOMPARE(m_host->auctions, 3);
    QCOMPARE(CatalogueLogic.SavedAuctionsIndex, std::int16_t(1));
    QCOMPARE(m_host->refills, 2);

    // A missing file is created and gives the root alone.
    QFile::remove(m_host->path);
    LoadCategories();
    QVERIFY(QFile::exists(m_host->path));
    QCOMPARE(TreeLines(CurrentCategoryTree()), Tree());
    QVERIFY(m_host->messages.isEmpty());
}

void tst_CategoryCatalogue::unopenableFileShowsMessageAndKeepsTheTree() {
    QVERIFY(QDir().mkpath(m_host->path));
    LoadCategories();
    QCOMPARE(m_host->messages, QStringList{QStringLiteral("Cannot open %1|0").arg(m_host->path)});
    QVERIFY(!CategoryStore.XmlDocument);
    QCOMPARE(CurrentCategoryTree(), nullptr);
    QVERIFY(m_host->refills == 0 && m_host->hides == 0 && m_host->auctions == 0);

    QVERIFY(QDir(m_host->path).removeRecursively());
    WriteBytes(m_host->path, File(Site("ebay.com", "Coins", "http://c/")));
    LoadCategories();
    const std::shared_ptr<CategoryTree> shown = CurrentCategoryTree();
    QVERIFY(QFile::remove(m_host->path) && QDir().mkpath(m_host->path));
    ClickSite();
    QCOMPARE(m_host->messages.size(), 2);
    QCOMPARE(CurrentCategoryTree(), shown);
    QVERIFY(!CategoryStore.XmlDocument);
}

void tst_CategoryCatalogue::treeClickRemembersAuctions() {
    WriteBytes(m_host->path, File(Site("ebay.com", "Coins", "http://c/") +
                                  Site("ebay.com", "All Categories", "http://all/") +
                                  Site("ebay.com", "all categories", "http://all-lower/")));
    LoadCategories();
    const std::shared_ptr<CategoryTree> tree = CurrentCategoryTree();
    // Each step: the index the user picks first (-1: none), the node clicked ("" for no node), the
    // index shown after. Plain nodes show the saved index; "All Categories" (in its case) saves the
    // pick and shows 2,000.
    const QList<std::tuple<int, QString, int>> steps{
        {-1, "Coins", 0},          {3, "Select Category", 0}, {3, "all categories", 0},
        {3, "All Categories", 2},  {-1, "Coins", 3},          {1, "", 1},
        {-1, "All Categories", 2}, {-1, "All Categories", 2}, {-1, "Coins", 2}};
    for (const auto& [pick, click, shown] : steps) {
        if (pick >= 0)
            m_host->auctions = pick;
        const CategoryNode* node = nullptr;
        for (const CategoryNode* candidate : tree->NodesInOrder())
            if (candidate->Text() == click)
                node = candidate;
        ClickTree(node);
        QVERIFY2(m_host->auctions == shown, qPrintable(click));
    }
    // No fill resets the saved index.
    ReloadCategoryTree();
    QCOMPARE(int(CatalogueLogic.SavedAuctionsIndex), 2);
}

QTEST_GUILESS_MAIN(tst_CategoryCatalogue)
#include "tst_CategoryCatalogue.moc"
