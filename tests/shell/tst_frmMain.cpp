#include "MemoryPageSource.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "harvest/modMain.h"
#include "platform/ARButton.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "platform/ScreenPointer.h"
#include "platform/WorkAnimation.h"
#include "shell/frmMain.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QEnterEvent>
#include <QFile>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMovie>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>
#include <memory>

namespace {

const QString DollsUrl =
    QStringLiteral("http://listings.ebay.com/Dolls-Bears_W0QQsacatZ237QQsorecordsperpageZ50");
const QString CafeUrl =
    QStringLiteral("http://listings.ebay.com/Cafe-Sets_W0QQsacatZ238QQsorecordsperpageZ50");
const QString BullionUrl =
    QStringLiteral("http://listings.ebay.com/Bullion_W0QQsacatZ39482QQsorecordsperpageZ50");

const char CategoryFile[] = R"(<?xml version="1.0" encoding="ISO-8859-1"?>
<Categories>
  <ebay.com>
    <MainItem><![CDATA[Toys & Games]]></MainItem>
    <MainURL><![CDATA[http://listings.ebay.com/Toys-Games_W0QQfromZR4QQsacatZ220]]></MainURL>
    <SubItem><![CDATA[Dolls]]><SubURL><![CDATA[http://listings.ebay.com/Dolls-Bears_W0QQsacatZ237QQsorecordsperpageZ50]]></SubURL></SubItem>
    <SubItem><![CDATA[Cafe Sets]]><SubURL><![CDATA[http://listings.ebay.com/Cafe-Sets_W0QQsacatZ238QQsorecordsperpageZ50]]></SubURL></SubItem>
  </ebay.com>
  <ebay.co.uk>
    <MainItem><![CDATA[Antiques]]></MainItem>
    <MainURL><![CDATA[http://listings.ebay.co.uk/Antiques_W0QQfromZR4QQsacatZ20081]]></MainURL>
    <SubItem><![CDATA[Clocks]]><SubURL><![CDATA[http://listings.ebay.co.uk/Clocks_W0QQsacatZ13QQsorecordsperpageZ50]]></SubURL></SubItem>
  </ebay.co.uk>
  <ebay.com>
    <MainItem><![CDATA[Coins]]></MainItem>
    <MainURL><![CDATA[http://listings.ebay.com/Coins_W0QQfromZR4QQsacatZ11116]]></MainURL>
    <SubItem><![CDATA[Bullion]]><SubURL><![CDATA[http://listings.ebay.com/Bullion_W0QQsacatZ39482QQsorecordsperpageZ50]]></SubURL></SubItem>
  </ebay.com>
</Categories>
)";

QByteArray ListingPage(const QStringList& titles) {
    QByteArray html = "<html><body><table><tr><td><b>Page 1</b> of 1</td></tr></table>\n";
    int item = 100;
    for (const QString& title : titles) {
        const QByteArray href = "http://cgi.ebay.com/ws/" + QByteArray::number(++item);
        // A picture link to the same item comes first, as on the site; it is no auction.
        html += "<a href=\"" + href + "\"><img src=\"p.jpg\"></a>\n";
        html += "<a href=\"" + href + "\">" + title.toUtf8() + "</a>\n";
    }
    html += "<a href=\"http://pages.ebay.com/help\">Help pages</a></body></html>\n";
    return html;
}

const QStringList DollsTitles{
    QStringLiteral("Vintage Porcelain Doll"), QStringLiteral("Teddy Bear vintage mohair"),
    QStringLiteral("Porcelain doll house"),   QStringLiteral("Rag doll with bonnet"),
    QStringLiteral("Steiff bear button"),     QStringLiteral("Antique bisque doll head"),
};

// What the summary step saw when the search command reached it.
struct SummarySeen {
    int calls = 0;
    QString selectedPath;
    std::int32_t keywordsFound = 0;
    int pointer = -1;
    bool feedbackVisible = true;
    bool getKeywordsEnabled = true;
};

} // namespace

class tst_frmMain : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    MemoryPageSource m_pages;
    std::unique_ptr<frmMain> m_window;
    SummarySeen m_summary;
    int m_exits = 0;
    int m_probes = 0;
    std::function<void()> m_plainYield;

    template <typename T> T* Control(const char* name) const {
        T* control = m_window->findChild<T*>(QString::fromLatin1(name));
        if (!control)
            qFatal("no control %s", name);
        return control;
    }

    void SelectNode(const QString& fullPath) {
        const CategoryNode* node = CurrentCategoryTree()->FindByPath(fullPath);
        QVERIFY2(node, qPrintable(fullPath));
        QTreeWidgetItem* item = m_window->ItemOfNode(node);
        QVERIFY(item);
        auto* tree = Control<QTreeWidget>("treCategories");
        tree->scrollToItem(item);
        tree->setCurrentItem(item);
        QVERIFY(m_window->SelectedNode() == node);
    }

    void ClickGetKeywords() { QTest::mouseClick(Control<ARButton>("cmdGetKeywords"), Qt::LeftButton); }

    // Runs a step at the Nth yield of the next search, then yields as usual.
    void AtYield(int n, std::function<void()> step) {
        auto count = std::make_shared<int>(0);
        Hooks().Yield = [this, count, n, step] {
            if (++*count == n)
                step();
            m_plainYield();
        };
    }

    enum class State { Idle, Searching };

    void CheckState(State state) {
        const bool idle = state == State::Idle;
        for (const char* name : {"cboSite", "cboMaxAuctions"})
            QVERIFY2(Control<QComboBox>(name)->isEnabled() == idle, name);
        for (const char* name : {"cmdGetKeywords", "cmdRefresh", "cmdHelp", "cmdExit"})
            QVERIFY2(Control<ARButton>(name)->isEnabled() == idle, name);
        QCOMPARE(Control<QAction>("mnuExit")->isEnabled(), idle);
        QVERIFY(Control<QTreeWidget>("treCategories")->isEnabled());
        QCOMPARE(Control<QFrame>("fraFeedBack")->isVisible(), !idle);
        QCOMPARE(Control<ARButton>("cmdStopSearch")->isVisible(), !idle);
        QCOMPARE(Control<QLineEdit>("txtlblGettingKeywords")->isVisible(), !idle);
        QVERIFY(!Control<QLineEdit>("txtlblRefreshingCategories")->isVisible());
        QCOMPARE(ScreenPointer::Current(), idle ? 0 : 11);
        if (!idle)
            QCOMPARE(Control<ARButton>("cmdStopSearch")->Caption(), QStringLiteral("Stop Search"));
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_folder.isValid());
        QFile file(m_folder.filePath(QStringLiteral("aeurl.xml")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(CategoryFile);
        file.close();
        QFile exclusions(m_folder.filePath(QStringLiteral("exclude.dat")));
        QVERIFY(exclusions.open(QIODevice::WriteOnly));
        exclusions.write("with\r\n");
        exclusions.close();
        QVERIFY(QFile::copy(QStringLiteral(MARQUILL_DATA_DIR "/anwork.gif"),
                            m_folder.filePath(QStringLiteral("anwork.gif"))));
        SetProgramFolder(m_folder.path());
        m_pages.Set(DollsUrl, ListingPage(DollsTitles));
        m_pages.Set(CafeUrl, ListingPage({QStringLiteral("Blue cafe cup")}));
        m_pages.Set(BullionUrl, ListingPage({QStringLiteral("Silver bullion bar")}));
        SetDefaultPageSource(&m_pages);
    }

    void cleanupTestCase() { SetDefaultPageSource(nullptr); }

    void init() {
        MessageBox::Reset();
        MessageBox::SetAnswersSupplied(true);
        frmMain::ResetSeams();
        m_exits = 0;
        m_probes = 0;
        m_summary = SummarySeen{};
        frmMain::SetExitProcess([this] { ++m_exits; });
        frmMain::SetProbe([this](const QString& url) {
            ++m_probes;
            return url == ProbeUrl ? QStringLiteral("<html>up</html>") : QString();
        });
        frmMain::SetShowSummary([this](QWidget* owner) {
            QCOMPARE(owner, m_window.get());
            ++m_summary.calls;
            m_summary.selectedPath = HarvestState.SelectedPath;
            m_summary.keywordsFound = HarvestState.KeywordsFound;
            m_summary.feedbackVisible = Control<QFrame>("fraFeedBack")->isVisible();
            m_summary.getKeywordsEnabled = Control<ARButton>("cmdGetKeywords")->isEnabled();
            // The summary's load is what puts the pointer back.
            m_summary.pointer = ScreenPointer::Current();
            ScreenPointer::Set(ScreenPointer::Default);
        });
        m_pages.ClearRequested();
        m_window = std::make_unique<frmMain>();
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        m_plainYield = Hooks().Yield;
    }

    void cleanup() {
        m_window.reset();
        MessageBox::Reset();
        ScreenPointer::Set(ScreenPointer::Default);
        frmMain::ResetSeams();
        HarvestState.SelectedPath.clear();
        HarvestState.StopRequested = FlagFalse;
    }

    void loadFillsSitesLimitsAndTree() {
        auto* site = Control<QComboBox>("cboSite");
        QCOMPARE(site->count(), 2);
        QCOMPARE(site->itemText(0), UKSiteLabel);
        QCOMPARE(site->itemText(1), USSiteLabel);
        QCOMPARE(site->currentIndex(), 1);
        QCOMPARE(Hooks().SiteLabel(), USSiteLabel);

        auto* limits = Control<QComboBox>("cboMaxAuctions");
        const QStringList texts{QStringLiteral("500"), QStringLiteral("1,000"), QStringLiteral("2,000"),
                                QStringLiteral("5,000")};
        const QList<int> values{500, 1000, 2000, 5000};
        QCOMPARE(limits->count(), 4);
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(limits->itemText(i), texts[i]);
            QCOMPARE(limits->itemData(i).toInt(), values[i]);
        }
        QCOMPARE(limits->currentIndex(), 2);
        QCOMPARE(CatalogueLogic.FormLoading, FlagFalse);

        // The one fill of the start: the US site, root expanded, main categories folded.
        auto* tree = Control<QTreeWidget>("treCategories");
        QCOMPARE(tree->topLevelItemCount(), 1);
        QTreeWidgetItem* root = tree->topLevelItem(0);
        QCOMPARE(root->text(0), QStringLiteral("Select Category"));
        QVERIFY(root->isExpanded());
        QCOMPARE(root->childCount(), 2);
        QCOMPARE(root->child(0)->text(0), QStringLiteral("Toys & Games"));
        QCOMPARE(root->child(1)->text(0), QStringLiteral("Coins"));
        QVERIFY(!root->child(0)->isExpanded());
        QCOMPARE(root->child(0)->childCount(), 2);
        QVERIFY(tree->selectedItems().isEmpty());

        QCOMPARE(Control<QLabel>("lblMainTotal")->text(), QStringLiteral("Total found: 0"));
        QCOMPARE(Control<ARButton>("cmdStopSearch")->Caption(), QStringLiteral("Stop Search"));
        QVERIFY(Control<QStatusBar>("StatusBar1")->currentMessage().isEmpty());
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        QMovie* movie = Control<WorkAnimation>("WebBrowser1")->Movie();
        QVERIFY(movie);
        QCOMPARE(movie->state(), QMovie::Running);
        CheckState(State::Idle);

        // Only a category file that opens chooses the auction entry.
        QTemporaryDir broken;
        QVERIFY(QDir(broken.path()).mkdir(QStringLiteral("aeurl.xml")));
        SetProgramFolder(broken.path());
        frmMain without;
        SetProgramFolder(m_folder.path());
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        QVERIFY(MessageBox::ShownBoxes()[0].text.startsWith(QStringLiteral("Cannot open ")));
        auto* unchosen = without.findChild<QComboBox*>(QStringLiteral("cboMaxAuctions"));
        QCOMPARE(unchosen->count(), 4);
        QCOMPARE(unchosen->currentIndex(), -1);
        QVERIFY(unchosen->currentText().isEmpty());
        // A file that opens later, a node chosen without a click: the search takes "2,000".
        QVERIFY(QDir(broken.path()).rmdir(QStringLiteral("aeurl.xml")));
        without.findChild<QComboBox*>(QStringLiteral("cboSite"))->setCurrentIndex(0);
        auto* otherTree = without.findChild<QTreeWidget*>(QStringLiteral("treCategories"));
        otherTree->setCurrentItem(otherTree->topLevelItem(0));
        frmMain::SetShowSummary([](QWidget*) {});
        QTest::mouseClick(without.findChild<ARButton*>(QStringLiteral("cmdGetKeywords")), Qt::LeftButton);
        QCOMPARE(HarvestState.MaxAuctions, 2000);
        QCOMPARE(unchosen->currentText(), QStringLiteral("2,000"));
    }

    void siteChangeShowsThatSitesCatalogue() {
        Control<QComboBox>("cboSite")->setCurrentIndex(0);
        QCOMPARE(Hooks().SiteLabel(), UKSiteLabel);
        QTreeWidgetItem* root = Control<QTreeWidget>("treCategories")->topLevelItem(0);
        QCOMPARE(root->childCount(), 1);
        QCOMPARE(root->child(0)->text(0), QStringLiteral("Antiques"));
    }

    void searchWithNoNodeSelectedShowsTheFrameBehindTheMessage() {
        bool frameBehind = false;
        MessageBox::SetOnShow([&](const MessageBox::Shown&) {
            frameBehind = Control<QFrame>("fraFeedBack")->isVisible() &&
                          !Control<ARButton>("cmdGetKeywords")->isEnabled() && ScreenPointer::Current() == 11;
        });
        HarvestState.KeywordsFound = 12;
        ClickGetKeywords();
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        QCOMPARE(MessageBox::ShownBoxes()[0].text, QStringLiteral("Please select an item in the list"));
        QCOMPARE(MessageBox::ShownBoxes()[0].style, 0);
        QCOMPARE(MessageBox::ShownBoxes()[0].title, QStringLiteral("Marquill"));
        QVERIFY(frameBehind);
        QCOMPARE(m_probes, 0);
        QCOMPARE(m_summary.calls, 0);
        QCOMPARE(HarvestState.KeywordsFound, 0);
        QCOMPARE(Control<QLabel>("lblMainTotal")->text(), QStringLiteral("Keywords Found: 0"));
        CheckState(State::Idle);
    }

    void probeWithNothingButSpacesLeadsBack() {
        frmMain::SetProbe([this](const QString&) {
            ++m_probes;
            return QStringLiteral("   ");
        });
        SelectNode(QStringLiteral("Select Category~Toys & Games~Dolls"));
        HarvestState.SelectedPath = QStringLiteral("left over");
        ClickGetKeywords();

        QCOMPARE(m_probes, 1);
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        const MessageBox::Shown& box = MessageBox::ShownBoxes()[0];
        QCOMPARE(box.text, QStringLiteral("You appear not to be online..\r\nPlease connect and try again"));
        QCOMPARE(box.style, 16);
        QCOMPARE(box.title, QStringLiteral("Online?"));
        QCOMPARE(m_summary.calls, 0);
        QVERIFY(HarvestState.SelectedPath.isEmpty());
        QVERIFY(m_pages.Requested().isEmpty());
        CheckState(State::Idle);
        // The selection stays, so the user can try again.
        QVERIFY(m_window->SelectedNode());
    }

    void searchOnSubCategoryShowsSearchingStateThenSummary() {
        Control<ARButton>("cmdStopSearch")->SetCaption(QStringLiteral("Stop Refresh"));
        SelectNode(QStringLiteral("Select Category~Toys & Games~Dolls"));
        Control<QComboBox>("cboMaxAuctions")->setCurrentIndex(3);
        bool checked = false;
        int pointerOverStop = -1;
        int pointerBesideStop = -1;
        AtYield(3, [&] {
            CheckState(State::Searching);
            QCOMPARE(HarvestState.MaxAuctions, 5000);
            QCOMPARE(HarvestState.SelectedPath, QStringLiteral("Select Category~Toys & Games~Dolls"));
            QVERIFY(Control<QLabel>("lblMainTotal")->text().startsWith(QStringLiteral("Keywords Found: ")));
            auto* stop = Control<ARButton>("cmdStopSearch");
            QEnterEvent enter(QPointF(3, 3), QPointF(3, 3), QPointF(3, 3));
            QApplication::sendEvent(stop, &enter);
            pointerOverStop = ScreenPointer::Current();
            QEvent leave(QEvent::Leave);
            QApplication::sendEvent(stop, &leave);
            pointerBesideStop = ScreenPointer::Current();
            checked = true;
        });
        ClickGetKeywords();
        QVERIFY(checked);
        QCOMPARE(pointerOverStop, 0);
        QCOMPARE(pointerBesideStop, 11);
        QCOMPARE(m_probes, 1);
        QCOMPARE(m_pages.Requested(), QStringList{DollsUrl});

        QCOMPARE(m_summary.calls, 1);
        QCOMPARE(m_summary.selectedPath, QStringLiteral("Select Category~Toys & Games~Dolls"));
        QVERIFY(!m_summary.feedbackVisible);
        QVERIFY(!m_summary.getKeywordsEnabled);
        QCOMPARE(m_summary.pointer, 11);
        QCOMPARE(HarvestState.AuctionsScanned, 6);
        // Each title word once per auction, "with" excluded, any case alike.
        const KeywordGrid& table = HarvestState.KeywordTable;
        QCOMPARE(table.Count(table.Find(QStringLiteral("DOLL"))), QStringLiteral("4"));
        QCOMPARE(table.Count(table.Find(QStringLiteral("VINTAGE"))), QStringLiteral("2"));
        QCOMPARE(table.Find(QStringLiteral("WITH")), 0);
        QVERIFY(m_summary.keywordsFound > 0);

        QVERIFY(HarvestState.SelectedPath.isEmpty());
        CheckState(State::Idle);
        // After the run its last progress text stays, hidden with the frame.
        QVERIFY(Control<QLabel>("lblMainTotal")->text().startsWith(QStringLiteral("Keywords Found: ")));
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
    }

    void searchFromTheRootWalksEverySubCategory() {
        SelectNode(QStringLiteral("Select Category"));
        ClickGetKeywords();
        QCOMPARE(m_summary.calls, 1);
        QCOMPARE(m_summary.selectedPath, QStringLiteral("Select Category"));
        QVERIFY(m_pages.Requested().contains(DollsUrl));
        QVERIFY(m_pages.Requested().contains(CafeUrl));
        QVERIFY(m_pages.Requested().contains(BullionUrl));
        QCOMPARE(HarvestState.AuctionsScanned, 8);
        CheckState(State::Idle);
    }

    void stopAnsweredNoLetsTheRunGoOn() {
        SelectNode(QStringLiteral("Select Category~Toys & Games~Dolls"));
        AtYield(4, [this] {
            MessageBox::SetNextAnswer(MessageBox::AnswerNo);
            QTest::mouseClick(Control<ARButton>("cmdStopSearch"), Qt::LeftButton);
            QCOMPARE(HarvestState.StopRequested, FlagFalse);
            CheckState(State::Searching);
        });
        ClickGetKeywords();
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        const MessageBox::Shown& box = MessageBox::ShownBoxes()[0];
        QCOMPARE(box.text, QStringLiteral("Are you sure you want to cancel ?"));
        QCOMPARE(box.style, 20);
        QCOMPARE(box.title, QStringLiteral("Stop Search?"));
        QCOMPARE(HarvestState.StopRequested, FlagFalse);
        QCOMPARE(HarvestState.AuctionsScanned, 6);
        QCOMPARE(m_summary.calls, 1);
    }

    void stopAnsweredYesRebuildsTheTreeAndStillShowsTheSummary() {
        // A click on a node puts the limit on the remembered index: "500" after a fresh start.
        SelectNode(QStringLiteral("Select Category~Toys & Games~Dolls"));
        CatalogueLogic.SavedAuctionsIndex = 0;
        auto* tree = Control<QTreeWidget>("treCategories");
        const QRect itemBox = tree->visualItemRect(tree->currentItem());
        QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, itemBox.center());
        auto* limits = Control<QComboBox>("cboMaxAuctions");
        QCOMPARE(limits->currentText(), QStringLiteral("500"));
        const CategoryTree* treeBefore = CurrentCategoryTree().get();

        bool stopped = false;
        AtYield(8, [&] {
            MessageBox::SetNextAnswer(MessageBox::AnswerYes);
            QTest::mouseClick(Control<ARButton>("cmdStopSearch"), Qt::LeftButton);
            QCOMPARE(HarvestState.StopRequested, FlagTrue);
            // At once, inside the click: tree rebuilt, "2,000", feedback hidden, commands still closed.
            QVERIFY(CurrentCategoryTree().get() != treeBefore);
            QCOMPARE(m_window->ItemOfNode(CurrentCategoryTree()->Root()), tree->topLevelItem(0));
            QCOMPARE(tree->topLevelItem(0)->childCount(), 2);
            QVERIFY(!m_window->SelectedNode());
            QCOMPARE(limits->currentText(), QStringLiteral("2,000"));
            QVERIFY(!Control<QFrame>("fraFeedBack")->isVisible());
            QVERIFY(!Control<QLineEdit>("txtlblGettingKeywords")->isVisible());
            QVERIFY(!limits->isEnabled());
            QVERIFY(!Control<ARButton>("cmdGetKeywords")->isEnabled());
            stopped = true;
        });
        ClickGetKeywords();
        QVERIFY(stopped);
        QCOMPARE(m_summary.calls, 1);
        QCOMPARE(m_summary.selectedPath, QStringLiteral("Select Category~Toys & Games~Dolls"));
        QVERIFY(HarvestState.AuctionsScanned < 6);
        QVERIFY(HarvestState.AuctionsScanned > 0);
        QCOMPARE(limits->currentText(), QStringLiteral("2,000"));
        CheckState(State::Idle);
    }

    void blankClickInTheTreeKeepsTheNodeAndSetsTheLimit() {
        SelectNode(QStringLiteral("Select Category~Toys & Games~Dolls"));
        CatalogueLogic.SavedAuctionsIndex = 1;
        auto* tree = Control<QTreeWidget>("treCategories");
        const QPoint blank(tree->viewport()->width() - 2, tree->viewport()->height() - 2);
        QVERIFY(!tree->indexAt(blank).isValid());
        QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, blank);
        QCOMPARE(m_window->SelectedNode()->FullPath(), QStringLiteral("Select Category~Toys & Games~Dolls"));
        QCOMPARE(Control<QComboBox>("cboMaxAuctions")->currentText(), QStringLiteral("1,000"));
        ClickGetKeywords();
        QCOMPARE(m_summary.selectedPath, QStringLiteral("Select Category~Toys & Games~Dolls"));
        QCOMPARE(HarvestState.MaxAuctions, 1000);
    }

    void secondSearchAfterTheSummaryCountsAfresh() {
        SelectNode(QStringLiteral("Select Category~Coins~Bullion"));
        auto* limits = Control<QComboBox>("cboMaxAuctions");
        limits->setCurrentIndex(1);
        ClickGetKeywords();
        QCOMPARE(m_summary.calls, 1);
        const std::int32_t first = m_summary.keywordsFound;
        // Back in the idle state with the choices as they were.
        CheckState(State::Idle);
        QCOMPARE(Control<QComboBox>("cboSite")->currentText(), USSiteLabel);
        QCOMPARE(limits->currentIndex(), 1);
        QCOMPARE(m_window->SelectedNode()->FullPath(), QStringLiteral("Select Category~Coins~Bullion"));

        ClickGetKeywords();
        QCOMPARE(m_summary.calls, 2);
        QCOMPARE(m_summary.keywordsFound, first);
        QCOMPARE(HarvestState.MaxAuctions, 1000);
        const KeywordGrid& table = HarvestState.KeywordTable;
        QCOMPARE(table.Count(table.Find(QStringLiteral("SILVER"))), QStringLiteral("1"));
    }

    void closingDuringASearchEndsTheRunWithoutSummary() {
        SelectNode(QStringLiteral("Select Category~Toys & Games~Dolls"));
        AtYield(5, [this] { m_window->close(); });
        ClickGetKeywords();
        QCOMPARE(HarvestState.StopRequested, FlagTrue);
        QVERIFY(HarvestState.AuctionsScanned < 6);
        QCOMPARE(m_summary.calls, 0);
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        QVERIFY(!m_window->isVisible());
        QCOMPARE(ScreenPointer::Current(), 0);
    }

    void probeBlocksInputButTheCloseBoxEndsTheCommand() {
        SelectNode(QStringLiteral("Select Category~Toys & Games~Dolls"));
        bool openDuringProbe = false;
        frmMain::SetProbe([&](const QString&) {
            MessageBox::SetNextAnswer(MessageBox::AnswerYes);
            QTest::mouseClick(Control<ARButton>("cmdStopSearch"), Qt::LeftButton);
            QTest::keyClick(Control<QTreeWidget>("treCategories"), Qt::Key_Up);
            m_window->close();
            // Still open: the command has not unwound yet.
            openDuringProbe = m_window->isVisible();
            return QStringLiteral("<html>up</html>");
        });
        ClickGetKeywords();
        QVERIFY(openDuringProbe);
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        QCOMPARE(m_window->SelectedNode()->FullPath(), QStringLiteral("Select Category~Toys & Games~Dolls"));
        QVERIFY(m_pages.Requested().isEmpty());
        QCOMPARE(m_summary.calls, 0);
        QVERIFY(!m_window->isVisible());
        QVERIFY(HarvestState.SelectedPath.isEmpty());
    }

    void exitCommandsEndTheProcess() {
        QTest::mouseClick(Control<ARButton>("cmdExit"), Qt::LeftButton);
        QCOMPARE(m_exits, 1);
        Control<QAction>("mnuExit")->trigger();
        QCOMPARE(m_exits, 2);
        // Neither is open during a search.
        SelectNode(QStringLiteral("Select Category~Toys & Games~Dolls"));
        AtYield(2, [this] {
            QTest::mouseClick(Control<ARButton>("cmdExit"), Qt::LeftButton);
            Control<QAction>("mnuExit")->trigger();
        });
        ClickGetKeywords();
        QCOMPARE(m_exits, 2);
    }

    void windowIsFixedWithItsMenuTabOrderAndColours() {
        QCOMPARE(m_window->windowTitle(), QStringLiteral("Marquill"));
        QCOMPARE(Control<QWidget>("centralwidget")->size(), QSize(549, 403));
        QCOMPARE(m_window->minimumSize(), m_window->maximumSize());
        QVERIFY(!(m_window->windowFlags() & Qt::WindowMaximizeButtonHint));
        QCOMPARE(m_window->palette().color(QPalette::Window), QColor(240, 240, 233));
        QCOMPARE(Control<QMenu>("menuFile")->title(), QStringLiteral("&File"));
        QCOMPARE(Control<QAction>("mnuExit")->text(), QStringLiteral("E&xit"));
        QCOMPARE(Control<QLabel>("Label2")->text(), QStringLiteral("Version 1.1.2d"));
        QCOMPARE(Control<QLabel>("Label6")->text(), QStringLiteral("Auctions to Search :"));
        QVERIFY(Control<QLineEdit>("txtlblGettingKeywords")->isReadOnly());
        QCOMPARE(Control<QLineEdit>("txtlblGettingKeywords")->text(), QStringLiteral(" Getting keywords "));
        // Every button is a hover button from the form, its on-mouse background its background.
        for (const char* name : {"cmdGetKeywords", "cmdStopSearch", "cmdHelp", "cmdExit", "cmdRefresh"}) {
            auto* button = Control<ARButton>(name);
            QCOMPARE(button->BackColor(), QColor(240, 240, 233));
            QCOMPARE(button->BackColorOnMouse(), button->BackColor());
            QCOMPARE(button->Caption(), button->text());
        }
        QCOMPARE(Control<ARButton>("cmdRefresh")->Caption(), QStringLiteral("Refresh Categories"));
        QVERIFY(Control<ARButton>("cmdGetKeywords")->font().bold());
        QCOMPARE(Control<ARButton>("cmdGetKeywords")->font().pointSizeF(), 9.75);
        // txtlblRefreshingCategories stands in front of txtlblGettingKeywords.
        const QObjectList& order = Control<QWidget>("centralwidget")->children();
        QVERIFY(order.indexOf(Control<QLineEdit>("txtlblRefreshingCategories")) >
                order.indexOf(Control<QLineEdit>("txtlblGettingKeywords")));

        const QStringList expected{QStringLiteral("treCategories"),  QStringLiteral("cboSite"),
                                   QStringLiteral("cboMaxAuctions"), QStringLiteral("cmdGetKeywords"),
                                   QStringLiteral("cmdStopSearch"),  QStringLiteral("cmdHelp"),
                                   QStringLiteral("cmdExit"),        QStringLiteral("cmdRefresh")};
        QStringList chain;
        QWidget* w = Control<QTreeWidget>("treCategories");
        for (int guard = 0; guard < 100 && chain.size() < expected.size(); ++guard, w = w->nextInFocusChain())
            if (expected.contains(w->objectName()) && !chain.contains(w->objectName()))
                chain << w->objectName();
        QCOMPARE(chain, expected);
    }
};

QTEST_MAIN(tst_frmMain)
#include "tst_frmMain.moc"
