#include "frmMain.h"

#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "catalogue/modRetreiver.h"
#include "harvest/modParser.h"
#include "platform/ARButton.h"
#include "platform/DataPaths.h"
#include "platform/FormFont.h"
#include "platform/HostHooks.h"
#include "platform/Inet.h"
#include "platform/MessageBox.h"
#include "platform/ProgramIcon.h"
#include "platform/ScreenPointer.h"
#include "platform/WorkAnimation.h"
#include "results/frmSummary.h"
#include "shell/frmHelp.h"
#include "ui_frmMain.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QGuiApplication>
#include <QIcon>
#include <QMouseEvent>
#include <QPixmap>
#include <QScreen>
#include <QTreeWidgetItem>
#include <cstdlib>
#include <utility>

namespace {

const QColor WindowColour(240, 240, 233);
const QColor HeaderBarColour(49, 106, 197);

void ShowSummaryWindow(QWidget* owner) {
    frmSummary summary(owner);
    summary.exec();
}

// cmdExit ends the process at once with no clean-up, as the category file is always whole.
void EndProcessNow() {
    std::_Exit(0);
}

struct Seams {
    std::function<void()> exitProcess = EndProcessNow;
    std::function<QString(const QString&)> probe = [](const QString& url) { return OpenURL(url); };
    std::function<void(QWidget*)> showSummary = ShowSummaryWindow;
};

Seams& seams() {
    static Seams s;
    return s;
}

QFont Tahoma(qreal points, bool bold) {
    return FormFont(QStringLiteral("Tahoma"), points, bold);
}

// The probe blocks the window as a call that waits for the network would: what the user does
// meanwhile is dropped, so Stop cannot be clicked and the pointer stays the wait cursor.
// Painting, timers and the close box go on.
class InputBlock final : public QObject {
public:
    InputBlock() { QCoreApplication::instance()->installEventFilter(this); }
    ~InputBlock() override { QCoreApplication::instance()->removeEventFilter(this); }
    InputBlock(const InputBlock&) = delete;
    InputBlock& operator=(const InputBlock&) = delete;

protected:
    // A key's shortcut is tried only after its override event, which is input and dropped too.
    bool eventFilter(QObject*, QEvent* event) override { return event->isInputEvent(); }
};

} // namespace

void frmMain::SetExitProcess(std::function<void()> exitProcess) {
    seams().exitProcess = std::move(exitProcess);
}

void frmMain::SetProbe(std::function<QString(const QString&)> probe) {
    seams().probe = std::move(probe);
}

void frmMain::SetShowSummary(std::function<void(QWidget*)> showSummary) {
    seams().showSummary = std::move(showSummary);
}

void frmMain::ResetSeams() {
    seams() = Seams{};
}

frmMain::frmMain(QWidget* parent) : QMainWindow(parent), m_ui(std::make_unique<Ui::frmMain>()) {
    m_ui->setupUi(this);
    setWindowIcon(ProgramIcon());
    ApplyLook();
    InstallHooks();

    connect(m_ui->cmdGetKeywords, &QPushButton::clicked, this, &frmMain::cmdGetKeywords_Click);
    connect(m_ui->cmdStopSearch, &QPushButton::clicked, this, &frmMain::cmdStopSearch_Click);
    connect(m_ui->cmdExit, &QPushButton::clicked, this, &frmMain::cmdExit_Click);
    connect(m_ui->cmdHelp, &QPushButton::clicked, this, [this] { ShowHelp(this); });
    connect(m_ui->cmdRefresh, &QPushButton::clicked, this, &frmMain::cmdRefresh_Click);
    // The menu's Exit has nothing of its own to do: it is the Exit button by another road.
    connect(m_ui->mnuExit, &QAction::triggered, this, &frmMain::cmdExit_Click);
    connect(m_ui->cmdStopSearch, &ARButton::PointerEnter, this,
            [] { ScreenPointer::Set(ScreenPointer::Default); });
    connect(m_ui->cmdStopSearch, &ARButton::PointerLeave, this,
            [] { ScreenPointer::Set(ScreenPointer::Wait); });
    connect(m_ui->cboSite, &QComboBox::currentIndexChanged, this, [] { ClickSite(); });
    connect(m_ui->treCategories, &QTreeWidget::itemClicked, this, [this] { treCategories_Click(); });
    m_ui->treCategories->viewport()->installEventFilter(this);

    Form_Load();
}

frmMain::~frmMain() {
    // The core must not call into controls that are gone.
    ResetHooks();
}

void frmMain::ApplyLook() {
    // The window cannot be resized and has no maximize button.
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                   Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
    QPalette windowPalette = palette();
    windowPalette.setColor(QPalette::Window, WindowColour);
    windowPalette.setColor(QPalette::Button, WindowColour);
    setPalette(windowPalette);
    setFont(Tahoma(8.25, false));
    m_ui->centralwidget->setFixedSize(549, 403);
    m_ui->centralwidget->setAutoFillBackground(true);

    const QString outline = QStringLiteral("QFrame { background: transparent; border: 1px solid %1; }");
    m_ui->Shape4->setStyleSheet(outline.arg(QStringLiteral("rgb(255,255,255)")));
    m_ui->Shape2->setStyleSheet(outline.arg(QStringLiteral("rgb(210,200,181)")));
    m_ui->Shape1->setStyleSheet(
        QStringLiteral("QFrame { background: %1; border: none; }").arg(HeaderBarColour.name()));
    for (QWidget* shape : {static_cast<QWidget*>(m_ui->Shape1), static_cast<QWidget*>(m_ui->Shape2),
                           static_cast<QWidget*>(m_ui->Shape4)})
        shape->setAttribute(Qt::WA_TransparentForMouseEvents);

    m_ui->Label1->setFont(Tahoma(8.25, true));
    WidenToCaption(m_ui->Label1);
    WidenToCaption(m_ui->Label6);
    QPalette white = m_ui->Label1->palette();
    white.setColor(QPalette::WindowText, Qt::white);
    m_ui->Label1->setPalette(white);
    QPalette grey = m_ui->Label2->palette();
    grey.setColor(QPalette::WindowText, QColor(128, 128, 128));
    m_ui->Label2->setPalette(grey);

    for (QLineEdit* title : {m_ui->txtlblGettingKeywords, m_ui->txtlblRefreshingCategories}) {
        title->setFont(Tahoma(8.25, true));
        title->setTextMargins(0, 0, 0, 0);
        // Shown from its start: where a wider face pushes the trailing blank out, only that goes.
        title->setCursorPosition(0);
        QPalette p = title->palette();
        p.setColor(QPalette::Base, WindowColour);
        title->setPalette(p);
    }
    m_ui->cmdGetKeywords->setFont(Tahoma(9.75, true));
    m_ui->StatusBar1->setSizeGripEnabled(false);

    const QString logo = ReadOnlyFilePath(QStringLiteral("logo.png"));
    if (QFile::exists(logo))
        m_ui->Image1->setPixmap(QPixmap(logo));
    else
        m_ui->Image1->setText(QStringLiteral("Marquill"));

    // The pointer never strays onto the animation: it only shows work, it takes no clicks.
    m_ui->WebBrowser1->setAttribute(Qt::WA_TransparentForMouseEvents);

    adjustSize();
    setFixedSize(sizeHint());
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
}

void frmMain::InstallHooks() {
    HostHooks& hooks = Hooks();
    hooks.SiteLabel = [this] { return m_ui->cboSite->currentText(); };
    hooks.SetMainTotalCaption = [this](const QString& caption) { m_ui->lblMainTotal->setText(caption); };
    hooks.Yield = [] { QCoreApplication::processEvents(); };
    hooks.WaitForEvents = [] { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); };
    hooks.MsgBox = [this](const QString& text, int style, const QString& title) {
        return MessageBox::Show(text, style, title, this);
    };
    hooks.ExclusionFileUnreadable = [this](const QString& path) {
        MessageBox::Show(QStringLiteral("Cannot open ") + path, 0, QString(), this);
    };
    hooks.SetMousePointer = [](int pointer) { ScreenPointer::Set(pointer); };
    hooks.HideFeedback = [this] { HideFeedback(); };
    hooks.ShowRefreshFeedback = [this] {
        m_ui->txtlblGettingKeywords->show();
        m_ui->fraFeedBack->show();
        m_ui->txtlblRefreshingCategories->show();
    };
    hooks.GettingKeywordsVisible = [this] { return !m_ui->txtlblGettingKeywords->isHidden(); };
    hooks.MaxAuctionsIndex = [this] { return m_ui->cboMaxAuctions->currentIndex(); };
    hooks.SetMaxAuctionsIndex = [this](int index) { m_ui->cboMaxAuctions->setCurrentIndex(index); };
    hooks.CategoryTreeRefilled = [this] { RefillTree(); };
    hooks.SetStopCaption = [this](const QString& caption) { m_ui->cmdStopSearch->SetCaption(caption); };
}

void frmMain::Form_Load() {
    HideFeedback();
    m_ui->cboMaxAuctions->addItem(QStringLiteral("500"), 500);
    m_ui->cboMaxAuctions->addItem(QStringLiteral("1,000"), 1000);
    m_ui->cboMaxAuctions->addItem(QStringLiteral("2,000"), 2000);
    m_ui->cboMaxAuctions->addItem(QStringLiteral("5,000"), 5000);
    // The entry is chosen by a category file that opens, and by nothing else.
    m_ui->cboMaxAuctions->setCurrentIndex(-1);

    CatalogueLogic.FormLoading = FlagTrue;
    m_ui->cboSite->addItem(UKSiteLabel);
    m_ui->cboSite->addItem(USSiteLabel);
    m_ui->cboSite->setCurrentIndex(1);
    LoadCategories();
    CatalogueLogic.FormLoading = FlagFalse;
    m_ui->WebBrowser1->Navigate(ReadOnlyFilePath(QStringLiteral("anwork.gif")));
}

void frmMain::HideFeedback() {
    m_ui->txtlblRefreshingCategories->hide();
    m_ui->txtlblGettingKeywords->hide();
    m_ui->fraFeedBack->hide();
}

void frmMain::RefillTree() {
    QTreeWidget* view = m_ui->treCategories;
    view->clear();
    m_shownTree = CurrentCategoryTree();
    if (!m_shownTree || !m_shownTree->Root())
        return;
    const CategoryNode* root = m_shownTree->Root();
    auto makeItem = [](const CategoryNode* node) {
        auto* item = new QTreeWidgetItem(QStringList{node->Text()});
        item->setData(0, Qt::UserRole, QVariant::fromValue(reinterpret_cast<quintptr>(node)));
        return item;
    };
    // Built detached and inserted once, so a large catalogue costs one layout.
    QTreeWidgetItem* rootItem = makeItem(root);
    for (const CategoryNode* main = root->Child(); main; main = main->Next()) {
        QTreeWidgetItem* mainItem = makeItem(main);
        QList<QTreeWidgetItem*> subs;
        for (const CategoryNode* sub = main->Child(); sub; sub = sub->Next())
            subs.append(makeItem(sub));
        mainItem->addChildren(subs);
        rootItem->addChild(mainItem);
    }
    view->addTopLevelItem(rootItem);
    rootItem->setExpanded(true);
}

const CategoryNode* frmMain::SelectedNode() const {
    const QList<QTreeWidgetItem*> selected = m_ui->treCategories->selectedItems();
    if (selected.isEmpty())
        return nullptr;
    return reinterpret_cast<const CategoryNode*>(selected.front()->data(0, Qt::UserRole).value<quintptr>());
}

QTreeWidgetItem* frmMain::ItemOfNode(const CategoryNode* node) const {
    const QVariant wanted = QVariant::fromValue(reinterpret_cast<quintptr>(node));
    for (QTreeWidgetItemIterator it(m_ui->treCategories); *it; ++it)
        if ((*it)->data(0, Qt::UserRole) == wanted)
            return *it;
    return nullptr;
}

void frmMain::treCategories_Click() {
    ClickTree(SelectedNode());
}

bool frmMain::eventFilter(QObject* watched, QEvent* event) {
    // A click beside the items keeps the selected node, and is a click on the tree all the same.
    QTreeWidget* tree = m_ui->treCategories;
    if (watched != tree->viewport())
        return QMainWindow::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick: {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (tree->indexAt(mouse->position().toPoint()).isValid())
            return false;
        // The second press of a double click makes no click of its own.
        m_blankClick = event->type() == QEvent::MouseButtonPress && mouse->button() == Qt::LeftButton
                           ? BlankClick::Click
                           : BlankClick::Swallow;
        return true;
    }
    case QEvent::MouseButtonRelease:
        if (m_blankClick == BlankClick::None)
            return false;
        if (std::exchange(m_blankClick, BlankClick::None) == BlankClick::Click)
            treCategories_Click();
        return true;
    default:
        return false;
    }
}

void frmMain::SetCommandsEnabled(bool enabled) {
    m_ui->cboSite->setEnabled(enabled);
    m_ui->cboMaxAuctions->setEnabled(enabled);
    m_ui->cmdGetKeywords->setEnabled(enabled);
    m_ui->cmdRefresh->setEnabled(enabled);
    m_ui->cmdHelp->setEnabled(enabled);
    m_ui->cmdExit->setEnabled(enabled);
    m_ui->mnuExit->setEnabled(enabled);
}

void frmMain::cmdGetKeywords_Click() {
    m_inRun = true;
    SearchCommand();
    m_inRun = false;
    if (m_closeAfterRun) {
        // The window was closed while the command ran: no summary, and now the window goes.
        ScreenPointer::Set(ScreenPointer::Default);
        close();
    }
}

void frmMain::SearchCommand() {
    ScreenPointer::Set(ScreenPointer::Wait);
    m_ui->lblMainTotal->setText(QStringLiteral("Keywords Found: 0"));
    HarvestState.KeywordsFound = 0;
    HarvestState.StopRequested = FlagFalse;
    m_ui->cmdStopSearch->SetCaption(QStringLiteral("Stop Search"));
    m_ui->txtlblGettingKeywords->show();
    SetCommandsEnabled(false);
    m_ui->fraFeedBack->show();

    const CategoryNode* selected = SelectedNode();
    if (!selected) {
        MessageBox::Show(QStringLiteral("Please select an item in the list"), 0, QString(), this);
        ScreenPointer::Set(ScreenPointer::Default);
        m_ui->txtlblGettingKeywords->hide();
        m_ui->fraFeedBack->hide();
        SetCommandsEnabled(true);
        return;
    }

    QString answer;
    {
        const InputBlock block;
        answer = seams().probe(ProbeUrl);
    }
    if (ProbeAnswerIsEmpty(answer)) {
        MessageBox::Show(QStringLiteral("You appear not to be online..\r\nPlease connect and try again"), 16,
                         QStringLiteral("Online?"), this);
        m_ui->txtlblGettingKeywords->hide();
        m_ui->fraFeedBack->hide();
        HarvestState.SelectedPath.clear();
        SetCommandsEnabled(true);
        ScreenPointer::Set(ScreenPointer::Default);
        return;
    }
    // The probe waited in an event loop: the selection may have moved, or the tree been rebuilt.
    selected = SelectedNode();
    if (!selected) {
        HideFeedback();
        SetCommandsEnabled(true);
        ScreenPointer::Set(ScreenPointer::Default);
        return;
    }

    const QString url = selected->Key();
    HarvestState.SelectedPath = selected->FullPath();
    const SearchScope scope = ScopeOfPath(HarvestState.SelectedPath);
    HarvestState.AuctionsScanned = 0;
    // Only a list that no category file has set yet has no entry; the search takes the default.
    if (m_ui->cboMaxAuctions->currentIndex() < 0)
        m_ui->cboMaxAuctions->setCurrentIndex(DefaultAuctionsIndex);
    HarvestState.MaxAuctions = m_ui->cboMaxAuctions->currentData().toInt();

    RunHarvest(scope, url, m_shownTree, selected);

    m_ui->txtlblGettingKeywords->hide();
    m_ui->fraFeedBack->hide();
    if (m_closeAfterRun) {
        HarvestState.SelectedPath.clear();
        return;
    }
    seams().showSummary(this);
    HarvestState.SelectedPath.clear();
    SetCommandsEnabled(true);
}

void frmMain::cmdStopSearch_Click() {
    HarvestState.StopRequested = FlagFalse;
    if (MessageBox::Show(QStringLiteral("Are you sure you want to cancel ?"), 20,
                         QStringLiteral("Stop Search?"), this) != MessageBox::AnswerYes)
        return;
    HarvestState.StopRequested = FlagTrue;
    if (!m_ui->txtlblGettingKeywords->isHidden())
        LoadCategories();
    HideFeedback();
}

void frmMain::cmdRefresh_Click() {
    // Inside the crawl's yields no search, second refresh or change of site may start.
    m_ui->cboSite->setEnabled(false);
    m_ui->cmdGetKeywords->setEnabled(false);
    m_ui->cmdRefresh->setEnabled(false);
    m_inRun = true;
    RefreshCategories();
    m_inRun = false;
    m_ui->cboSite->setEnabled(true);
    m_ui->cmdGetKeywords->setEnabled(true);
    m_ui->cmdRefresh->setEnabled(true);
    if (m_closeAfterRun)
        close();
}

void frmMain::cmdExit_Click() {
    seams().exitProcess();
}

void frmMain::closeEvent(QCloseEvent* event) {
    if (m_inRun) {
        // A close during a run, search or refresh, is a stop without the question; the window
        // closes once the run has unwound, and no summary is shown.
        m_closeAfterRun = true;
        HarvestState.StopRequested = FlagTrue;
        HideFeedback();
        event->ignore();
        return;
    }
    QMainWindow::closeEvent(event);
}
