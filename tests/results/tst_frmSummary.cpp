#include "harvest/modMain.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "platform/ScreenPointer.h"
#include "results/CommonDialog.h"
#include "results/frmSummary.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPrinter>
#include <QPushButton>
#include <QRegularExpression>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

namespace {

// Fills the keyword table as a search leaves it: words as first met, counts as decimal text.
void FillKeywordTable(const QVector<QPair<QString, int>>& entries) {
    HarvestState.KeywordTable.Reset();
    for (const auto& [word, count] : entries)
        HarvestState.KeywordTable.SetCount(HarvestState.KeywordTable.Add(word, word.toUpper()), count);
    HarvestState.KeywordsFound = std::int32_t(entries.size());
}

// The rows as the user sees them, "word,count".
QStringList ShownRows(frmSummary& summary) {
    QStringList rows;
    const auto* list = summary.findChild<QTreeWidget*>(QStringLiteral("lvwResults"));
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        rows << list->topLevelItem(i)->text(0) + QLatin1Char(',') + list->topLevelItem(i)->text(1);
    return rows;
}

QString Text(frmSummary& summary, const char* name) {
    if (const auto* field = summary.findChild<QLineEdit*>(QLatin1String(name)))
        return field->text();
    return summary.findChild<QLabel*>(QLatin1String(name))->text();
}

void Click(frmSummary& summary, const char* button) {
    QTest::mouseClick(summary.findChild<QPushButton*>(QLatin1String(button)), Qt::LeftButton);
}

QByteArray ReadAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<none>");
}

} // namespace

class tst_frmSummary : public QObject {
    Q_OBJECT

    QTemporaryDir m_home;
    QList<CommonDialog::SaveRequest> m_requests;
    QList<QPair<int, int>> m_offeredRanges;
    QStringList m_printed; // "document|page|text", marked where the wait pointer was not shown

    // The next save dialogs answer with these paths in turn; an empty path is a cancel.
    void AnswerSaveDialog(const QStringList& paths) {
        auto queue = std::make_shared<QStringList>(paths);
        CommonDialog::SetSaveAnswer([this, queue](const CommonDialog::SaveRequest& request) {
            m_requests.append(request);
            return queue->isEmpty() ? QString() : queue->takeFirst();
        });
    }
    // Answers the print dialog with a PDF file, copies and a last page (0: all pages).
    void Print(frmSummary& summary, const QString& pdf, int copies, int toPage, bool accept = true) {
        CommonDialog::SetPrinterAnswer([=, this](QPrinter& printer, int minPage, int maxPage) {
            m_offeredRanges.append({minPage, maxPage});
            printer.setOutputFormat(QPrinter::PdfFormat);
            printer.setOutputFileName(pdf);
            printer.setCopyCount(copies);
            printer.setPrintRange(toPage > 0 ? QPrinter::PageRange : QPrinter::AllPages);
            printer.setFromTo(toPage > 0 ? 1 : 0, toPage);
            return accept;
        });
        summary.SetPrintObserver([this](const PrintedLine& l) {
            m_printed << QStringLiteral("%1|%2|%3").arg(l.document).arg(l.page).arg(l.text) +
                             (ScreenPointer::Current() == ScreenPointer::Wait ? "" : "|no wait pointer");
        });
        Click(summary, "cmdPrint");
    }

private Q_SLOTS:
    void initTestCase() {
        // A home of the test's own, without Documents until a test makes one.
        qputenv("HOME", m_home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", m_home.filePath(QStringLiteral(".config")).toUtf8());
    }
    void init() {
        ResetHooks();
        MessageBox::Reset();
        MessageBox::SetAnswersSupplied(true);
        CommonDialog::Reset();
        ScreenPointer::Set(ScreenPointer::Wait);
        HarvestState.SelectedPath.clear();
        FillKeywordTable({});
        m_requests.clear();
        m_offeredRanges.clear();
        m_printed.clear();
    }
    void cleanup() { QLocale::setDefault(QLocale::c()); }

    void rowsStandMostFrequentFirstAndHeadersSortNothing() {
        // Interleaved counts, so that an unstable sort would shuffle the words of one count.
        QVector<QPair<QString, int>> entries{{QStringLiteral("MINT"), 10}, {QStringLiteral("Lot"), 100}};
        QStringList ones, twos;
        for (int i = 0; i < 300; ++i) {
            const int count = (i * 7) % 3 == 0 ? 2 : 1;
            entries.append({QStringLiteral("W%1").arg(i), count});
            (count == 2 ? twos : ones) << QStringLiteral("w%1,%2").arg(i).arg(count);
        }
        FillKeywordTable(entries);
        frmSummary summary(nullptr);
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        QVERIFY(summary.isModal());
        const QStringList expected =
            QStringList{QStringLiteral("lot,100"), QStringLiteral("mint,10")} + twos + ones;
        QCOMPARE(ShownRows(summary), expected);
        auto* list = summary.findChild<QTreeWidget*>(QStringLiteral("lvwResults"));
        // The row, its selection and its focus frame end with Count.
        QCOMPARE(list->header()->length(), 173);
        QCOMPARE(list->currentItem(), list->topLevelItem(0));
        QVERIFY(list->topLevelItem(0)->isSelected());
        summary.show();
        // Enter presses no button: neither dialog opens.
        QTest::keyClick(&summary, Qt::Key_Return);
        QVERIFY(m_requests.isEmpty() && m_offeredRanges.isEmpty());
    }

    void labelsShowTheSearch_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<int>("found");
        QTest::addColumn<QString>("shown"); // main|sub|count
        const QLocale us(QLocale::English, QLocale::UnitedStates);
        QTest::newRow("nothing") << QString() << us << 0 << "||0";
        QTest::newRow("root") << "eBay" << us << 999 << "All Categories|All Categories|999";
        QTest::newRow("main") << "eBay~Coins & Stamps" << us << 1234
                              << "Coins & Stamps|All Sub Categories|1,234";
        QTest::newRow("sub") << "eBay~a & & b~A & B && C" << us << 2000 << "a & & b|A & B & C|2,000";
        // Not escaped, so the label takes the lone ampersand as a shortcut mark.
        QTest::newRow("bare ampersand") << "eBay~Coins&Stamps" << QLocale(QLocale::German, QLocale::Germany)
                                        << 1234567 << "CoinsStamps|All Sub Categories|1.234.567";
        QTest::newRow("too deep") << "eBay~a~b~c" << us << 1 << "||1";
    }
    void labelsShowTheSearch() {
        QFETCH(QString, path);
        QFETCH(QLocale, locale);
        QFETCH(int, found);
        QFETCH(QString, shown);
        QLocale::setDefault(locale);
        HarvestState.SelectedPath = path;
        HarvestState.KeywordsFound = found;
        Hooks().SiteLabel = [] { return QStringLiteral("ebay.co.uk"); };
        frmSummary summary(nullptr);
        QCOMPARE(Text(summary, "lblMain") + '|' + Text(summary, "lblSub") + '|' +
                     Text(summary, "lblKeywordCount"),
                 shown);
        QCOMPARE(Text(summary, "lblSite"), QStringLiteral("ebay.co.uk"));
        // The heading alone is bold.
        QVERIFY(summary.findChild<QLabel*>(QStringLiteral("Label1"))->font().bold() &&
                !summary.findChild<QLabel*>(QStringLiteral("Label2"))->font().bold());
    }

    void browseSavesTheList_data() {
        QTest::addColumn<QString>("target"); // in a fresh folder; empty for a cancel
        QTest::addColumn<bool>("old");       // a file there already
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("readOnly");
        QTest::addColumn<bool>("written");
        QTest::newRow("new file") << "r.txt" << false << 0 << false << true;
        QTest::newRow("cancel") << "" << false << 0 << false << false;
        QTest::newRow("overwrite refused") << "r.txt" << true << MessageBox::AnswerNo << false << false;
        QTest::newRow("overwrite accepted") << "r.txt" << true << MessageBox::AnswerYes << false << true;
        QTest::newRow("read-only") << "r.txt" << true << MessageBox::AnswerYes << true << false;
        QTest::newRow("no such folder") << "none/r.txt" << false << 0 << false << false;
    }
    void browseSavesTheList() {
        QFETCH(QString, target);
        QFETCH(bool, old);
        QFETCH(int, answer);
        QFETCH(bool, readOnly);
        QFETCH(bool, written);
        FillKeywordTable({{QStringLiteral("Nice"), 9},
                          {QStringLiteral("MINT"), 10},
                          {QStringLiteral("a,b"), 3},
                          {QStringLiteral("box"), 9},
                          {QStringLiteral("Caf\u00e9"), 2}});
        QTemporaryDir dir;
        const QString path = target.isEmpty() ? QString() : dir.filePath(target);
        const QByteArray before = old ? QByteArray("keep\r\nme\0as I am", 16) : QByteArray("<none>");
        QFile file(path);
        QVERIFY(!old ||
                (file.open(QIODevice::WriteOnly) && file.write(before) == before.size() && file.flush()));
        QVERIFY(!readOnly || QFile::setPermissions(path, QFileDevice::ReadOwner));
        AnswerSaveDialog({path, QString()});
        MessageBox::SetNextAnswer(answer);
        frmSummary summary(nullptr);
        summary.SetDateSource([] { return QDate(2026, 3, 5); });
        Click(summary, "cmdFile");

        // Words go out in the list's order, in the locale's own encoding.
        QStringEncoder encoder(QStringConverter::System);
        const QByteArray rows =
            encoder.encode(QStringLiteral("mint,10\r\nnice,9\r\nbox,9\r\na,b,3\r\ncaf\u00e9,2\r\n"));
        QCOMPARE(ReadAll(path), written ? rows : before);
        QCOMPARE(MessageBox::ShownBoxes().size(), int(old));
        for (const auto& box : MessageBox::ShownBoxes())
            QCOMPARE(box.title + '|' + box.text + '|' + QString::number(box.style),
                     QStringLiteral("File Exists|The file already exists. Overwrite ?|20"));
        QCOMPARE(Text(summary, "txtFileName"),
                 path.isEmpty() ? QStringLiteral("Please select a location...") : path);
        QCOMPARE(summary.ResultsPath(), path);
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        QCOMPARE(m_requests.size(), 1);
        QCOMPARE(m_requests[0].initDir + '|' + m_requests[0].filter + '|' + m_requests[0].fileName,
                 m_home.path() + QStringLiteral("|Text (*.txt)|Keywords 05.03.2026.txt"));
    }

    void fieldEntryOnlyShowsTheChoiceAndEachOpeningTakesTheDay() {
        QTemporaryDir dir;
        SetProgramFolder(dir.path());
        const QString chosen = dir.filePath(QStringLiteral("chosen.txt"));
        AnswerSaveDialog({chosen, QString()});
        QDate today(2026, 12, 31);
        frmSummary summary(nullptr);
        summary.SetDateSource([&today] { return today; });
        summary.show();
        auto* field = summary.findChild<QLineEdit*>(QStringLiteral("txtFileName"));
        QTest::mouseDClick(field, Qt::LeftButton);
        QCOMPARE(Text(summary, "txtFileName"), chosen);
        // The double-click is the dialog's alone: the box does not go on to select a word.
        QVERIFY(!field->hasSelectedText());
        QVERIFY(summary.ResultsPath().isEmpty());
        // The browse entry afterwards starts from Documents, now there is one.
        QVERIFY(QDir(m_home.path()).mkpath(QStringLiteral("Documents")));
        today = today.addDays(1);
        Click(summary, "cmdFile");
        QCOMPARE(m_requests.size(), 2);
        QCOMPARE(m_requests[0].initDir + '|' + m_requests[0].fileName,
                 dir.path() + QStringLiteral("|Keywords 31.12.2026.txt"));
        QCOMPARE(m_requests[1].initDir + '|' + m_requests[1].fileName,
                 m_home.filePath(QStringLiteral("Documents")) + QStringLiteral("|Keywords 01.01.2027.txt"));
    }

    void realSaveDialogOpensInTheFirstFolderWithTheName() {
        QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        QTemporaryDir dir;
        QString filter;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&filter] {
            if (auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) {
                filter = dialog->selectedNameFilter();
                static_cast<QDialog*>(dialog)->accept();
            }
        });
        poll.start(10);
        const QString chosen = CommonDialog::ShowSave(
            nullptr, {dir.path(), QStringLiteral("Text (*.txt)"), QStringLiteral("K 1.txt")});
        QCOMPARE(chosen, dir.filePath(QStringLiteral("K 1.txt")));
        QCOMPARE(filter, QStringLiteral("Text (*.txt)"));
    }

    void lastPageOfferedIsRoundedHalfToEven() {
        for (const auto& [rows, maxPage] :
             QList<QPair<int, int>>{{0, 0}, {20, 0}, {21, 1}, {60, 2}, {79, 2}, {100, 2}, {140, 4}, {180, 4}})
            QCOMPARE(frmSummary::PrintMaxPage(rows), maxPage);
    }

    void everyCopyIsADocumentOfItsOwn_data() {
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("copies");
        QTest::addColumn<int>("toPage");
        QTest::addColumn<int>("printed"); // rows in each copy
        QTest::newRow("cancel") << 150 << 0 << 0 << 0;
        QTest::newRow("all pages") << 400 << 2 << 0 << 400;
        QTest::newRow("two of four pages") << 150 << 2 << 2 << 80;
        QTest::newRow("one page") << 150 << 1 << 1 << 40;
        QTest::newRow("beyond the list") << 50 << 2 << 3 << 50;
    }
    void everyCopyIsADocumentOfItsOwn() {
        QFETCH(int, rows);
        QFETCH(int, copies);
        QFETCH(int, toPage);
        QFETCH(int, printed);
        QVector<QPair<QString, int>> words;
        for (int i = 1; i <= rows; ++i)
            words.append({QStringLiteral("word%1").arg(i), i});
        FillKeywordTable(words);
        QTemporaryDir dir;
        frmSummary summary(nullptr);
        Print(summary, dir.filePath(QStringLiteral("list.pdf")), copies, toPage, copies > 0);
        QCOMPARE(m_offeredRanges, (QList<QPair<int, int>>{{1, frmSummary::PrintMaxPage(rows)}}));
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        // Sheets fill before a new one starts; 150 lines need more than one.
        const int full = int(m_printed.filter(QRegularExpression(QStringLiteral("^1\\|1\\|"))).size());
        QVERIFY(copies == 0 || (full > 0 && full < 150));
        QStringList expected;
        const QStringList shown = ShownRows(summary);
        for (int copy = 1; copy <= copies; ++copy)
            for (int i = 0; i < printed; ++i)
                expected << QStringLiteral("%1|%2|%3").arg(copy).arg(i / full + 1).arg(shown[i]);
        QCOMPARE(m_printed, expected);
        static const QRegularExpression pdfPage(QStringLiteral("/Type\\s*/Page(?![s\\w])"));
        for (int document = 1; document <= copies + 1; ++document) {
            QFile pdf(dir.filePath(document == 1 ? QStringLiteral("list.pdf")
                                                 : QStringLiteral("list (%1).pdf").arg(document)));
            QCOMPARE(pdf.open(QIODevice::ReadOnly), document <= copies);
            if (document <= copies)
                QCOMPARE(QString::fromLatin1(pdf.readAll()).count(pdfPage), (printed + full - 1) / full);
        }
    }

    void unopenablePrinterFailsSilently() {
        FillKeywordTable({{QStringLiteral("Tom,Jerry"), 4}});
        QTemporaryDir dir;
        frmSummary summary(nullptr);
        // A list of one word has that row current and selected, as a longer one has its first.
        auto* list = summary.findChild<QTreeWidget*>(QStringLiteral("lvwResults"));
        QVERIFY(list->currentItem() == list->topLevelItem(0) && list->topLevelItem(0)->isSelected());
        summary.show();
        Print(summary, dir.filePath(QStringLiteral("no such folder/out.pdf")), 2, 0);
        QVERIFY(m_printed.isEmpty());
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        // The window goes on, and prints words with commas unchanged.
        Print(summary, dir.filePath(QStringLiteral("out.pdf")), 1, 0);
        QCOMPARE(m_printed, QStringList{QStringLiteral("1|1|tom,jerry,4")});
        QCOMPARE(LinePrinter::DocumentFileName(QStringLiteral("/t/a"), 3), QStringLiteral("/t/a (3)"));
        QCOMPARE(LinePrinter::DocumentFileName(QString(), 3), QString());
    }
};

QTEST_MAIN(tst_frmSummary)
#include "tst_frmSummary.moc"
