#include "frmSummary.h"

#include "CommonDialog.h"
#include "harvest/modMain.h"
#include "platform/FormFont.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "platform/ProgramIcon.h"
#include "platform/ScreenPointer.h"
#include "platform/VbNumeric.h"
#include "platform/WindowPlacement.h"
#include "shell/NewSearch.h"
#include "shell/frmHelp.h"
#include "ui_frmSummary.h"

#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QHeaderView>
#include <QIcon>
#include <QLocale>
#include <QPrinter>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QStringEncoder>
#include <QStyle>
#include <algorithm>

namespace {

constexpr int SortColumn = 2;

// A file whose owner may not write it is read-only, and a delete that is not forced leaves it.
bool DeleteFileNotForced(const QString& path) {
    if (!(QFile::permissions(path) & QFileDevice::WriteOwner))
        return false;
    return QFile::remove(path);
}

} // namespace

frmSummary::frmSummary(QWidget* owner)
    : QDialog(owner), m_ui(std::make_unique<Ui::frmSummary>()), m_today([] { return QDate::currentDate(); }) {
    m_ui->setupUi(this);
    setWindowIcon(ProgramIcon());
    setWindowFlags(Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setFixedSize(size());
    setModal(true);
    CentreOnOwner(this, owner);

    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, QColor(240, 240, 233));
    setPalette(palette);
    setAutoFillBackground(true);
    setFont(FormFont(QStringLiteral("Tahoma"), 8.25));
    // Its style sheet would otherwise take the label out of the form's font.
    m_ui->Label1->setFont(FormFont(QStringLiteral("Tahoma"), 8.25, true));
    for (QLabel* label : {m_ui->Label1, m_ui->Label2, m_ui->Label3, m_ui->Label4, m_ui->lblFilename})
        WidenToCaption(label);

    QTreeWidget* list = m_ui->lvwResults;
    list->setColumnWidth(0, 2000 / 15);
    list->setColumnWidth(1, 600 / 15);
    // A section's least width would keep the hidden column in the row, and the focus frame of
    // the selected row would reach past Count.
    list->header()->setMinimumSectionSize(0);
    list->setColumnWidth(SortColumn, 0);
    list->setColumnHidden(SortColumn, true);
    // The list has one order only; its headers sort nothing.
    list->header()->setSectionsClickable(false);
    list->header()->setStretchLastSection(false);
    list->header()->setSortIndicatorShown(false);
    list->setSelectionMode(QAbstractItemView::SingleSelection);
    list->setEditTriggers(QAbstractItemView::NoEditTriggers);

    m_ui->cmdFile->SetPicture(style()
                                  ->standardPixmap(QStyle::SP_DirOpenIcon)
                                  .scaled(16, 16, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    m_ui->txtFileName->installEventFilter(this);

    connect(m_ui->cmdFile, &QPushButton::clicked, this, &frmSummary::cmdFile_Click);
    connect(m_ui->cmdPrint, &QPushButton::clicked, this, &frmSummary::cmdPrint_Click);
    connect(m_ui->cmdHelp, &QPushButton::clicked, this, &frmSummary::cmdHelp_Click);
    connect(m_ui->ARButton2, &QPushButton::clicked, this, &frmSummary::ARButton2_Click);
    connect(m_ui->cmdExit, &QPushButton::clicked, this, &frmSummary::cmdExit_Click);

    // The load, in its order.
    PopulateResults();
    SortResults();
    if (list->topLevelItemCount() > 0) {
        list->setCurrentItem(list->topLevelItem(0));
        list->topLevelItem(0)->setSelected(true);
    }
    ScreenPointer::Set(ScreenPointer::Default);
    m_ui->lblSite->setText(Hooks().SiteLabel());
    m_ui->lblKeywordCount->setText(NumericLocale().toString(HarvestState.KeywordsFound));
    SetCaptions();
}

frmSummary::~frmSummary() = default;

void frmSummary::PopulateResults() {
    const KeywordGrid& table = HarvestState.KeywordTable;
    QList<QTreeWidgetItem*> rows;
    rows.reserve(table.LastEntry());
    for (qsizetype entry = 1; entry <= table.LastEntry(); ++entry) {
        const QString& count = table.Count(entry);
        const QString sortText = QStringLiteral("%1").arg(count.toLongLong(), 10, 10, QLatin1Char('0'));
        rows.append(new QTreeWidgetItem(QStringList{table.Word(entry).toLower(), count, sortText}));
    }
    m_ui->lvwResults->addTopLevelItems(rows);
}

void frmSummary::SortResults() {
    // Once, descending on the ten-digit text. The sort is stable, so words of equal count keep
    // the order in which the search first met them.
    QList<QTreeWidgetItem*> rows = m_ui->lvwResults->invisibleRootItem()->takeChildren();
    std::stable_sort(rows.begin(), rows.end(), [](const QTreeWidgetItem* a, const QTreeWidgetItem* b) {
        return a->text(SortColumn) > b->text(SortColumn);
    });
    m_ui->lvwResults->addTopLevelItems(rows);
}

void frmSummary::SetCaptions() {
    const QString& path = HarvestState.SelectedPath;
    const QStringList parts = path.isEmpty() ? QStringList() : path.split(QLatin1Char('~'));
    QString mainCaption;
    QString subCaption;
    switch (parts.size()) {
    case 1:
        mainCaption = QStringLiteral("All Categories");
        subCaption = QStringLiteral("All Categories");
        break;
    case 2:
        mainCaption = parts.at(1);
        subCaption = QStringLiteral("All Sub Categories");
        break;
    case 3:
        mainCaption = parts.at(1);
        subCaption = parts.at(2);
        break;
    default:
        break;
    }
    EscapeAmpersands(mainCaption);
    EscapeAmpersands(subCaption);
    m_ui->lblMain->setText(ShownCaption(mainCaption));
    m_ui->lblSub->setText(ShownCaption(subCaption));
}

void frmSummary::EscapeAmpersands(QString& text) {
    const QString single = QStringLiteral(" & ");
    for (qsizetype at = text.indexOf(single); at >= 0; at = text.indexOf(single))
        text.replace(at, single.size(), QStringLiteral(" && "));
}

QString frmSummary::ShownCaption(const QString& caption) {
    QString shown;
    shown.reserve(caption.size());
    for (qsizetype i = 0; i < caption.size(); ++i) {
        if (caption.at(i) == QLatin1Char('&')) {
            if (i + 1 < caption.size() && caption.at(i + 1) == QLatin1Char('&')) {
                shown += QLatin1Char('&');
                ++i;
            }
            continue;
        }
        shown += caption.at(i);
    }
    return shown;
}

QString frmSummary::DefaultResultsFileName(const QDate& date) {
    return QStringLiteral("Keywords ") + date.toString(QStringLiteral("dd.MM.yyyy")) + QStringLiteral(".txt");
}

int frmSummary::PrintMaxPage(int rows) {
    int pages = rows / RowsPerPrintPage;
    const int twiceRest = 2 * (rows % RowsPerPrintPage);
    if (twiceRest > RowsPerPrintPage || (twiceRest == RowsPerPrintPage && pages % 2 == 1))
        ++pages;
    return pages;
}

void frmSummary::SetDateSource(std::function<QDate()> today) {
    m_today = std::move(today);
}

void frmSummary::SetPrintObserver(LinePrinter::Observer observer) {
    m_printObserver = std::move(observer);
}

bool frmSummary::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_ui->txtFileName && event->type() == QEvent::MouseButtonDblClick) {
        txtFileName_DblClick();
        return true;
    }
    return QDialog::eventFilter(watched, event);
}

QString frmSummary::AskResultsFile(const QString& initDir) {
    // The date is read as the dialog opens, so a window left open overnight offers the new day.
    return CommonDialog::ShowSave(this, CommonDialog::SaveRequest{initDir, QStringLiteral("Text (*.txt)"),
                                                                  DefaultResultsFileName(m_today())});
}

QString frmSummary::ResultsFirstFolder() {
    // The first folder was the root of the system drive, writable where the program came from; on
    // Linux the user's own writable place is the Documents folder, or home when there is none.
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return !documents.isEmpty() && QFileInfo(documents).isDir() ? documents : QDir::homePath();
}

void frmSummary::cmdFile_Click() {
    const QString path = AskResultsFile(ResultsFirstFolder());
    if (path.isEmpty())
        return;
    m_ui->txtFileName->setText(path);
    m_resultsPath = path;
    SaveResultsFile(m_resultsPath);
}

void frmSummary::txtFileName_DblClick() {
    const QString path = AskResultsFile(ProgramFolder());
    if (!path.isEmpty())
        m_ui->txtFileName->setText(path);
}

void frmSummary::SaveResultsFile(const QString& path) {
    ScreenPointer::Set(ScreenPointer::Wait);
    const auto restorePointer = qScopeGuard([] { ScreenPointer::Set(ScreenPointer::Default); });

    // Any failure ends the save without a word; a file begun stays as far as it was written.
    if (QFileInfo(path).isFile()) {
        if (MessageBox::Show(QStringLiteral("The file already exists. Overwrite ?"), 20,
                             QStringLiteral("File Exists"), this) != MessageBox::AnswerYes)
            return;
        if (!DeleteFileNotForced(path))
            return;
    }
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    // The locale's own encoding: the ANSI code page on Windows, UTF-8 under a UTF-8 locale, so
    // the words of a page come back as the user's other programs read plain text.
    QStringEncoder encoder(QStringConverter::System);
    const QTreeWidget* list = m_ui->lvwResults;
    const int count = list->topLevelItemCount();
    for (int row = 0; row < count; ++row) {
        const QTreeWidgetItem* item = list->topLevelItem(row);
        const QByteArray line =
            encoder.encode(item->text(0) + QLatin1Char(',') + item->text(1) + QStringLiteral("\r\n"));
        if (file.write(line) != line.size())
            return;
    }
    file.close();
}

void frmSummary::cmdPrint_Click() {
    const QTreeWidget* list = m_ui->lvwResults;
    const int rows = list->topLevelItemCount();
    QPrinter printer(QPrinter::HighResolution);
    if (!CommonDialog::ShowPrinter(this, printer, 1, PrintMaxPage(rows)))
        return;
    const int copies = std::max(1, printer.copyCount());
    // A page range prints from row 1 to the end of its last page; all pages print every row.
    int lastRow = rows;
    if (printer.printRange() == QPrinter::PageRange)
        lastRow = std::clamp(RowsPerPrintPage * printer.toPage(), 0, rows);
    // Each copy is a document of its own, so the device must not repeat them as well.
    printer.setCopyCount(1);

    LinePrinter out(printer, m_printObserver);
    for (int copy = 1; copy <= copies; ++copy) {
        ScreenPointer::Set(ScreenPointer::Wait);
        const auto restorePointer = qScopeGuard([] { ScreenPointer::Set(ScreenPointer::Default); });
        for (int row = 0; row < lastRow; ++row) {
            const QTreeWidgetItem* item = list->topLevelItem(row);
            if (!out.Print(item->text(0) + QLatin1Char(',') + item->text(1)))
                return;
        }
        if (!out.EndDoc())
            return;
    }
}

void frmSummary::cmdHelp_Click() {
    ShowHelp(this);
}

void frmSummary::ARButton2_Click() {
    if (!StartNewSearch(this))
        return;
    hide();
    reject();
    ProcessControl().EndProcess();
}

void frmSummary::cmdExit_Click() {
    ProcessControl().EndProcess();
}
