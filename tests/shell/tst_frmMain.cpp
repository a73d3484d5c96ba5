#include "CategoryFileBytes.h"
#include "CliRun.h"
#include "MemoryPageSource.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "harvest/PageSource.h"
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
#include <QHash>
#include <QLabel>
#include <QLineEdit>
#include <QMovie>
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
const QString Dolls = QStringLiteral("Select Category~Toys & Games~Dolls");

// One listing page of auctions; a picture link to the same item comes first, as on the site.
QByteArray ListingPage(const QStringList& titles) {
    QByteArray html = "<html><body><table><tr><td><b>Page 1</b> of 1</td></tr></table>\n";
    int item = 100;
    for (const QString& title : titles) {
        const QByteArray href = "<a href=\"http://cgi.ebay.com/ws/" + QByteArray::number(++item) + "\">";
        html += href + "<img src=\"p.jpg\"></a>\n" + href + title.toUtf8() + "</a>\n";
    }
    return html + "<a href=\"http://pages.ebay.com/help\">Help pages</a></body></html>\n";
}

} // namespace

class tst_frmMain : public QObject {
    Q_OBJECT

    QTemporaryDir m_folder;
    MemoryPageSource m_pages;
    std::unique_ptr<frmMain> m_window;
    int m_summaries = 0;
    QString m_summarySaw; // path|found|pointer|frame shown|Get Keywords open, as the summary step saw them
    int m_exits = 0;
    int m_probes = 0;
    std::function<void()> m_plainYield;

    template <typename T> T* Control(const char* name) const {
        T* control = m_window->findChild<T*>(QString::fromLatin1(name));
        if (!control)
            qFatal("no control %s", name);
        return control;
    }
    QComboBox* Limits() const { return Control<QComboBox>("cboMaxAuctions"); }

    void SelectNode(const QString& fullPath) {
        const CategoryNode* node = CurrentCategoryTree()->FindByPath(fullPath);
        QVERIFY2(node, qPrintable(fullPath));
        auto* tree = Control<QTreeWidget>("treCategories");
        tree->scrollToItem(m_window->ItemOfNode(node));
        tree->setCurrentItem(m_window->ItemOfNode(node));
        QVERIFY(m_window->SelectedNode() == node);
    }
    void ClickGetKeywords() { QTest::mouseClick(Control<ARButton>("cmdGetKeywords"), Qt::LeftButton); }
    void ClickStop(int answer) {
        MessageBox::SetNextAnswer(answer);
        QTest::mouseClick(Control<ARButton>("cmdStopSearch"), Qt::LeftButton);
    }

    // Runs a step at each yield of the next search, given the yield's number, then yields as usual.
    void AtYield(std::function<void(int)> step) {
        auto count = std::make_shared<int>(0);
        Hooks().Yield = [this, count, step] {
            step(++*count);
            m_plainYield();
        };
    }

    void CheckState(bool idle) {
        for (const char* name :
             {"cboSite", "cboMaxAuctions", "cmdGetKeywords", "cmdRefresh", "cmdHelp", "cmdExit"})
            QVERIFY2(Control<QWidget>(name)->isEnabled() == idle, name);
        QCOMPARE(Control<QAction>("mnuExit")->isEnabled(), idle);
        QVERIFY(Control<QTreeWidget>("treCategories")->isEnabled());
        QStringList shown;
        for (const char* name :
             {"fraFeedBack", "cmdStopSearch", "txtlblGettingKeywords", "txtlblRefreshingCategories"})
            shown << (Control<QWidget>(name)->isVisible() ? QLatin1String(name) : QLatin1String("-"));
        QCOMPARE(shown.join(' '), idle ? QStringLiteral("- - - -")
                                       : QStringLiteral("fraFeedBack cmdStopSearch txtlblGettingKeywords -"));
        QCOMPARE(ScreenPointer::Current(), idle ? 0 : 11);
        if (!idle)
            QCOMPARE(Control<ARButton>("cmdStopSearch")->Caption(), QStringLiteral("Stop Search"));
    }
    int Count(const char* word) const {
        const KeywordGrid& table = HarvestState.KeywordTable;
        const qsizetype at = table.Find(QString::fromLatin1(word));
        return at ? table.Count(at).toInt() : 0;
    }

private Q_SLOTS:
    void initTestCase() {
        const QString toys = QStringLiteral("Select Category~Toys & Games");
        writeCatalogue(m_folder.path(), USSiteLabel,
                       {toys + "\thttp://listings.ebay.com/Toys-Games_W0QQfromZR4QQsacatZ220",
                        Dolls + '\t' + DollsUrl, toys + "~Cafe Sets\t" + CafeUrl,
                        "Select Category~Coins\thttp://listings.ebay.com/Coins_W0QQsacatZ11116",
                        "Select Category~Coins~Bullion\t" + BullionUrl});
        writeCatalogue(m_folder.path(), UKSiteLabel,
                       {"Select Category~Antiques\thttp://listings.ebay.co.uk/Antiques_W0QQsacatZ20081",
                        "Select "
                        "Category~Antiques~Clocks\thttp://listings.ebay.co.uk/"
                        "Clocks_W0QQsacatZ13QQsorecordsperpageZ50"});
        WriteBytes(m_folder.filePath(QStringLiteral("exclude.dat")), "with\r\n");
        QVERIFY(QFile::copy(QStringLiteral(MARQUILL_DATA_DIR "/anwork.gif"),
                            m_folder.filePath(QStringLiteral("anwork.gif"))));
        SetProgramFolder(m_folder.path());
        m_pages.Set(DollsUrl, ListingPage({"Vintage Porcelain Doll", "Teddy Bear vintage mohair",
                                           "Porcelain doll house", "Rag doll with bonnet",
                                           "Steiff bear button", "Antique bisque doll head"}));
        m_pages.Set(CafeUrl, ListingPage({QStringLiteral("Blue cafe cup")}));
        m_pages.Set(BullionUrl, ListingPage({QStringLiteral("Silver bullion bar")}));
        SetDefaultPageSource(&m_pages);
    }
    void cleanupTestCase() { SetDefaultPageSource(nullptr); }

    void init() {
        MessageBox::Reset();
        MessageBox::SetAnswersSupplied(true);
        frmMain::ResetSeams();
        m_exits = m_probes = m_summaries = 0;
        m_summarySaw.clear();
        frmMain::SetExitProcess([this] { ++m_exits; });
        frmMain::SetProbe([this](const QString& url) {
            ++m_probes;
            return url == ProbeUrl ? QStringLiteral("<html>up</html>") : QString();
        });
        frmMain::SetShowSummary([this](QWidget* owner) {
            QCOMPARE(owner, m_window.get());
            ++m_summaries;
            m_summarySaw = QStringLiteral("%1|%2|%3|%4|%5")
                               .arg(HarvestState.SelectedPath)
                               .arg(int(HarvestState.KeywordsFound > 0))
                               .arg(ScreenPointer::Current())
                               .arg(int(Control<QFrame>("fraFeedBack")->isVisible()))
                               .arg(int(Control<ARButton>("cmdGetKeywords")->isEnabled()));
            // The summary's load is what puts the pointer back.
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
        QCOMPARE(site->itemText(0) + '|' + site->itemText(1) + '|' + site->currentText(),
                 UKSiteLabel + '|' + USSiteLabel + '|' + USSiteLabel);
        QStringList limits;
        for (int i = 0; i < Limits()->count(); ++i)
            limits << Limits()->itemText(i) + '=' + Limits()->itemData(i).toString();
        QCOMPARE(limits.join(' '), QStringLiteral("500=500 1,000=1000 2,000=2000 5,000=5000"));
        QCOMPARE(Limits()->currentIndex(), 2);
        // The one fill of the start: the US site, root expanded, main categories folded.
        auto* tree = Control<QTreeWidget>("treCategories");
        QCOMPARE(tree->topLevelItemCount(), 1);
        QTreeWidgetItem* root = tree->topLevelItem(0);
        QCOMPARE(root->text(0) + '|' + root->child(0)->text(0) + '|' + root->child(1)->text(0),
                 QStringLiteral("Select Category|Toys & Games|Coins"));
        QVERIFY(root->isExpanded() && !root->child(0)->isExpanded());
        QCOMPARE(root->childCount() + root->child(0)->childCount(), 4);
        QVERIFY(tree->selectedItems().isEmpty());
        QCOMPARE(Control<QWidget>("centralwidget")->size(), QSize(549, 403));
        QVERIFY(Control<ARButton>("cmdGetKeywords")->font().bold());
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        CheckState(true);
        site->setCurrentIndex(0);
        QCOMPARE(Hooks().SiteLabel(), UKSiteLabel);
        QCOMPARE(tree->topLevelItem(0)->childCount(), 1);
        QCOMPARE(tree->topLevelItem(0)->child(0)->text(0), QStringLiteral("Antiques"));

        QTest::mouseClick(Control<ARButton>("cmdExit"), Qt::LeftButton);
        Control<QAction>("mnuExit")->trigger();
        QCOMPARE(m_exits, 2);

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

    void searchRefusedIsToldAndLeadsBack_data() {
        QTest::addColumn<QString>("node");
        QTest::addColumn<QString>("probe");
        QTest::addColumn<QString>("box"); // text|style|title
        QTest::addColumn<int>("probes");
        QTest::newRow("no node") << QString() << ""
                                 << "Please select an item in the list|0|Marquill" << 0;
        QTest::newRow("offline") << Dolls << "   "
                                 << "You appear not to be online..\r\nPlease connect and try again|16|Online?"
                                 << 1;
    }
    void searchRefusedIsToldAndLeadsBack() {
        QFETCH(QString, node);
        QFETCH(QString, probe);
        QFETCH(QString, box);
        QFETCH(int, probes);
        frmMain::SetProbe([this, probe](const QString&) {
            ++m_probes;
            return probe;
        });
        if (!node.isEmpty()) {
            SelectNode(node);
            HarvestState.SelectedPath = QStringLiteral("left over");
        }
        bool frameBehind = false;
        MessageBox::SetOnShow([&](const MessageBox::Shown&) {
            frameBehind = Control<QFrame>("fraFeedBack")->isVisible() &&
                          !Control<ARButton>("cmdGetKeywords")->isEnabled() && ScreenPointer::Current() == 11;
        });
        HarvestState.KeywordsFound = 12;
        ClickGetKeywords();
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        const MessageBox::Shown& shown = MessageBox::ShownBoxes()[0];
        QCOMPARE(shown.text + '|' + QString::number(shown.style) + '|' + shown.title, box);
        QVERIFY(frameBehind);
        QCOMPARE(m_probes, probes);
        QCOMPARE(m_summaries, 0);
        QVERIFY(m_pages.Requested().isEmpty());
        QVERIFY(HarvestState.SelectedPath.isEmpty());
        if (node.isEmpty())
            QCOMPARE(Control<QLabel>("lblMainTotal")->text(), QStringLiteral("Keywords Found: 0"));
        CheckState(true);
        // The selection stays, so the user can try again.
        QCOMPARE(m_window->SelectedNode() != nullptr, !node.isEmpty());
    }

    void searchOnSubCategoryShowsSearchingStateThenSummary() {
        Control<ARButton>("cmdStopSearch")->SetCaption(QStringLiteral("Stop Refresh"));
        SelectNode(Dolls);
        Limits()->setCurrentIndex(3);
        QList<int> pointers; // over the stop button, then beside it
        AtYield([&](int n) {
            if (n != 3)
                return;
            CheckState(false);
            // The exit commands are closed during a search.
            QTest::mouseClick(Control<ARButton>("cmdExit"), Qt::LeftButton);
            Control<QAction>("mnuExit")->trigger();
            QCOMPARE(HarvestState.MaxAuctions, 5000);
            QCOMPARE(HarvestState.SelectedPath, Dolls);
            auto* stop = Control<ARButton>("cmdStopSearch");
            QEnterEvent enter(QPointF(3, 3), QPointF(3, 3), QPointF(3, 3));
            QApplication::sendEvent(stop, &enter);
            pointers << ScreenPointer::Current();
            QEvent leave(QEvent::Leave);
            QApplication::sendEvent(stop, &leave);
            pointers << ScreenPointer::Current();
        });
        ClickGetKeywords();
        QCOMPARE(pointers, (QList<int>{0, 11}));
        QCOMPARE(m_probes + m_exits, 1);
        QCOMPARE(m_pages.Requested(), QStringList{DollsUrl});
        QCOMPARE(m_summaries, 1);
        QCOMPARE(m_summarySaw, Dolls + QStringLiteral("|1|11|0|0"));
        QCOMPARE(HarvestState.AuctionsScanned, 6);
        // Each title word once per auction, "with" excluded, any case alike.
        QCOMPARE(QList<int>({Count("DOLL"), Count("VINTAGE"), Count("WITH")}), QList<int>({4, 2, 0}));
        QVERIFY(HarvestState.SelectedPath.isEmpty());
        CheckState(true);
        // After the run its last progress text stays, hidden with the frame.
        QVERIFY(Control<QLabel>("lblMainTotal")->text().startsWith(QStringLiteral("Keywords Found: ")));
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
    }

    void searchFromTheRootWalksEverySubCategory() {
        SelectNode(QStringLiteral("Select Category"));
        ClickGetKeywords();
        QCOMPARE(m_summarySaw.section('|', 0, 0), QStringLiteral("Select Category"));
        QCOMPARE(QSet<QString>(m_pages.Requested().begin(), m_pages.Requested().end()),
                 (QSet<QString>{DollsUrl, CafeUrl, BullionUrl}));
        QCOMPARE(HarvestState.AuctionsScanned, 8);
    }

    void stopAskedThenConfirmedRebuildsTheTreeAndStillShowsTheSummary() {
        // A click on a node puts the limit on the remembered index: "500" after a fresh start.
        SelectNode(Dolls);
        CatalogueLogic.SavedAuctionsIndex = 0;
        auto* tree = Control<QTreeWidget>("treCategories");
        QTest::mouseClick(tree->viewport(), Qt::LeftButton, {},
                          tree->visualItemRect(tree->currentItem()).center());
        QCOMPARE(Limits()->currentText(), QStringLiteral("500"));
        const CategoryTree* treeBefore = CurrentCategoryTree().get();
        AtYield([&](int n) {
            if (n == 4) {
                ClickStop(MessageBox::AnswerNo);
                QCOMPARE(HarvestState.StopRequested, FlagFalse);
                CheckState(false);
            } else if (n == 8) {
                ClickStop(MessageBox::AnswerYes);
                QCOMPARE(HarvestState.StopRequested, FlagTrue);
                // At once, inside the click: tree rebuilt, "2,000", feedback hidden, commands still closed.
                QVERIFY(CurrentCategoryTree().get() != treeBefore);
                QCOMPARE(m_window->ItemOfNode(CurrentCategoryTree()->Root()), tree->topLevelItem(0));
                QCOMPARE(tree->topLevelItem(0)->childCount(), 2);
                QVERIFY(!m_window->SelectedNode());
                QCOMPARE(Limits()->currentText(), QStringLiteral("2,000"));
                QVERIFY(!Control<QFrame>("fraFeedBack")->isVisible());
                QVERIFY(!Control<QLineEdit>("txtlblGettingKeywords")->isVisible());
                QVERIFY(!Limits()->isEnabled() && !Control<ARButton>("cmdGetKeywords")->isEnabled());
            }
        });
        ClickGetKeywords();
        QStringList boxes;
        for (const MessageBox::Shown& box : MessageBox::ShownBoxes())
            boxes << box.text + '|' + QString::number(box.style) + '|' + box.title;
        QCOMPARE(boxes, QStringList(2, QStringLiteral("Are you sure you want to cancel ?|20|Stop Search?")));
        QCOMPARE(m_summarySaw.section('|', 0, 0), Dolls);
        QVERIFY(HarvestState.AuctionsScanned < 6 && HarvestState.AuctionsScanned > 0);
        QCOMPARE(Limits()->currentText(), QStringLiteral("2,000"));
        CheckState(true);
    }

    void blankClickKeepsTheNodeAndSetsTheLimitAndASecondSearchCountsAfresh() {
        SelectNode(Dolls);
        CatalogueLogic.SavedAuctionsIndex = 1;
        auto* tree = Control<QTreeWidget>("treCategories");
        const QPoint blank(tree->viewport()->width() - 2, tree->viewport()->height() - 2);
        QVERIFY(!tree->indexAt(blank).isValid());
        QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, blank);
        QCOMPARE(Limits()->currentText(), QStringLiteral("1,000"));
        ClickGetKeywords();
        // Back in the idle state with the choices as they were.
        QCOMPARE(Limits()->currentText(), QStringLiteral("1,000"));
        QCOMPARE(m_window->SelectedNode()->FullPath(), Dolls);
        ClickGetKeywords();
        QCOMPARE(m_summaries, 2);
        QCOMPARE(m_summarySaw.section('|', 0, 0), Dolls);
        QCOMPARE(HarvestState.MaxAuctions, 1000);
        QCOMPARE(Count("DOLL"), 4);
    }

    void closeBoxEndsTheCommandWithoutSummary_data() {
        QTest::addColumn<bool>("inProbe");
        QTest::newRow("during the probe") << true;
        QTest::newRow("during the search") << false;
    }
    void closeBoxEndsTheCommandWithoutSummary() {
        QFETCH(bool, inProbe);
        SelectNode(Dolls);
        bool openWhileUnwinding = false;
        // The probe blocks input: neither the stop button nor the tree answers, only the close box.
        frmMain::SetProbe([&](const QString&) {
            if (inProbe) {
                ClickStop(MessageBox::AnswerYes);
                QTest::keyClick(Control<QTreeWidget>("treCategories"), Qt::Key_Up);
                m_window->close();
                openWhileUnwinding = m_window->isVisible();
            }
            return QStringLiteral("<html>up</html>");
        });
        AtYield([&](int n) {
            if (n == 5) {
                m_window->close();
                openWhileUnwinding = m_window->isVisible();
            }
        });
        ClickGetKeywords();
        QVERIFY(openWhileUnwinding);
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        QCOMPARE(m_window->SelectedNode()->FullPath(), Dolls);
        QCOMPARE(m_pages.Requested().isEmpty(), inProbe);
        QCOMPARE(HarvestState.StopRequested, FlagTrue);
        QVERIFY(inProbe || HarvestState.AuctionsScanned < 6);
        QCOMPARE(m_summaries, 0);
        QVERIFY(!m_window->isVisible());
        QVERIFY(HarvestState.SelectedPath.isEmpty());
        QCOMPARE(ScreenPointer::Current(), 0);
    }
};

QTEST_MAIN(tst_frmMain)
#include "tst_frmMain.moc"
