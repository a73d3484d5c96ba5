#include "SummaryFixture.h"

#include <QFile>
#include <QPrinter>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The number of sheets in a PDF that Qt wrote: one page object each.
int PdfPageCount(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray bytes = file.readAll();
    if (!bytes.startsWith("%PDF"))
        return -1;
    static const QRegularExpression page(QStringLiteral("/Type\\s*/Page(?![s\\w])"));
    return int(QString::fromLatin1(bytes).count(page));
}

struct PrintChoice {
    int copies = 1;
    int toPage = 0; // 0: all pages
    QString pdfFile;
    bool accept = true;
};

} // namespace

class tst_ResultsPrinting : public QObject {
    Q_OBJECT

    QList<QPair<int, int>> m_offeredRanges;
    QList<PrintedLine> m_lines;
    bool m_waitCursorWhilePrinting = true;

    void AnswerPrintDialog(const PrintChoice& choice) {
        CommonDialog::SetPrinterAnswer([this, choice](QPrinter& printer, int minPage, int maxPage) {
            m_offeredRanges.append({minPage, maxPage});
            printer.setOutputFormat(QPrinter::PdfFormat);
            printer.setOutputFileName(choice.pdfFile);
            printer.setCopyCount(choice.copies);
            if (choice.toPage > 0) {
                printer.setPrintRange(QPrinter::PageRange);
                printer.setFromTo(1, choice.toPage);
            }
            return choice.accept;
        });
    }
    void Print(frmSummary& summary) {
        summary.SetPrintObserver([this](const PrintedLine& line) {
            m_lines.append(line);
            m_waitCursorWhilePrinting &= ScreenPointer::Current() == ScreenPointer::Wait;
        });
        QTest::mouseClick(summary.findChild<QPushButton*>(QStringLiteral("cmdPrint")), Qt::LeftButton);
    }
    QStringList LinesOf(int document) const {
        QStringList texts;
        for (const PrintedLine& line : m_lines)
            if (line.document == document)
                texts << line.text;
        return texts;
    }
    int PagesOf(int document) const {
        int pages = 0;
        for (const PrintedLine& line : m_lines)
            if (line.document == document)
                pages = std::max(pages, line.page);
        return pages;
    }

private Q_SLOTS:
    void init() {
        ResetSummarySeams();
        m_offeredRanges.clear();
        m_lines.clear();
        m_waitCursorWhilePrinting = true;
    }

    void lastPageOfferedIsRoundedHalfToEven_data() {
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("maxPage");
        QTest::newRow("0") << 0 << 0;
        QTest::newRow("20") << 20 << 0;
        QTest::newRow("21") << 21 << 1;
        QTest::newRow("60") << 60 << 2;
        QTest::newRow("79") << 79 << 2;
        QTest::newRow("100") << 100 << 2;
        QTest::newRow("140") << 140 << 4;
        QTest::newRow("180") << 180 << 4;
    }
    void lastPageOfferedIsRoundedHalfToEven() {
        QFETCH(int, rows);
        QFETCH(int, maxPage);
        FillDistinctWords(rows);
        QTemporaryDir dir;
        AnswerPrintDialog({1, 0, dir.filePath(QStringLiteral("none.pdf")), false});
        frmSummary summary(nullptr);
        Print(summary);
        QCOMPARE(m_offeredRanges, (QList<QPair<int, int>>{{1, maxPage}}));
        // A cancel prints nothing at all.
        QVERIFY(m_lines.isEmpty());
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("none.pdf"))));
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
    }

    void everyCopyIsADocumentOfItsOwn() {
        FillDistinctWords(150);
        QTemporaryDir dir;
        const QString pdf = dir.filePath(QStringLiteral("list.pdf"));
        AnswerPrintDialog({3, 0, pdf, true});
        frmSummary summary(nullptr);
        const QStringList expected = ShownRows(summary);
        Print(summary);

        QCOMPARE(m_lines.size(), 450);
        QVERIFY(m_waitCursorWhilePrinting);
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        const QStringList files{pdf, dir.filePath(QStringLiteral("list (2).pdf")),
                                dir.filePath(QStringLiteral("list (3).pdf"))};
        for (int document = 1; document <= 3; ++document) {
            QCOMPARE(LinesOf(document), expected);
            QVERIFY2(PagesOf(document) > 1, "150 lines should need more than one sheet");
            QCOMPARE(PdfPageCount(files[document - 1]), PagesOf(document));
        }
        QCOMPARE(expected.first(), QStringLiteral("word150,150"));
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("list (4).pdf"))));
    }

    void sheetsFillBeforeANewOneStarts() {
        FillDistinctWords(200);
        QTemporaryDir dir;
        AnswerPrintDialog({1, 0, dir.filePath(QStringLiteral("sheets.pdf")), true});
        frmSummary summary(nullptr);
        Print(summary);
        QCOMPARE(m_lines.size(), 200);
        // Every sheet but the last holds the same number of lines.
        QMap<int, int> perPage;
        for (const PrintedLine& line : m_lines)
            ++perPage[line.page];
        QVERIFY(perPage.size() > 1);
        const int full = perPage.first();
        for (auto it = perPage.cbegin(); it != std::prev(perPage.cend()); ++it)
            QCOMPARE(it.value(), full);
        QVERIFY(perPage.last() <= full);
    }

    void pageRangePrintsUpToItsLastPage_data() {
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("toPage");
        QTest::addColumn<int>("printed");
        QTest::newRow("two of four pages") << 150 << 2 << 80;
        QTest::newRow("one page") << 150 << 1 << 40;
        QTest::newRow("beyond the list") << 50 << 3 << 50;
        QTest::newRow("short list, page 1") << 20 << 1 << 20;
    }
    void pageRangePrintsUpToItsLastPage() {
        QFETCH(int, rows);
        QFETCH(int, toPage);
        QFETCH(int, printed);
        FillDistinctWords(rows);
        QTemporaryDir dir;
        AnswerPrintDialog({2, toPage, dir.filePath(QStringLiteral("range.pdf")), true});
        frmSummary summary(nullptr);
        Print(summary);
        QCOMPARE(LinesOf(1), ShownRows(summary).mid(0, printed));
        QCOMPARE(LinesOf(2), ShownRows(summary).mid(0, printed));
        QCOMPARE(m_lines.size(), 2 * printed);
    }

    void wordsWithCommasPrintUnchanged() {
        FillKeywordTable({{QStringLiteral("Tom,Jerry"), 4}, {QStringLiteral("x,y,z"), 2}});
        QTemporaryDir dir;
        AnswerPrintDialog({1, 0, dir.filePath(QStringLiteral("commas.pdf")), true});
        frmSummary summary(nullptr);
        summary.show();
        Print(summary);
        QCOMPARE(LinesOf(1), (QStringList{QStringLiteral("tom,jerry,4"), QStringLiteral("x,y,z,2")}));
        QCOMPARE(PdfPageCount(dir.filePath(QStringLiteral("commas.pdf"))), 1);
        // The window goes on: a second print gives a second run of the same lines.
        Print(summary);
        QCOMPARE(m_lines.size(), 4);
        QVERIFY(summary.isVisible());
    }

    void unopenablePrinterFailsSilently() {
        FillDistinctWords(10);
        QTemporaryDir dir;
        AnswerPrintDialog({2, 0, dir.filePath(QStringLiteral("no such folder/out.pdf")), true});
        frmSummary summary(nullptr);
        summary.show();
        Print(summary);
        QVERIFY(m_lines.isEmpty());
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        QVERIFY(summary.isVisible());
    }

    void documentFileNamesNumberTheCopies() {
        QCOMPARE(LinePrinter::DocumentFileName(QStringLiteral("/t/a.pdf"), 1), QStringLiteral("/t/a.pdf"));
        QCOMPARE(LinePrinter::DocumentFileName(QStringLiteral("/t/a.pdf"), 2),
                 QStringLiteral("/t/a (2).pdf"));
        QCOMPARE(LinePrinter::DocumentFileName(QStringLiteral("/t/a"), 3), QStringLiteral("/t/a (3)"));
        QCOMPARE(LinePrinter::DocumentFileName(QString(), 3), QString());
    }
};

QTEST_MAIN(tst_ResultsPrinting)
#include "tst_ResultsPrinting.moc"
