#include "SummaryFixture.h"

#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTest>

class tst_frmSummary : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { ResetSummarySeams(); }
    void cleanup() { QLocale::setDefault(QLocale::c()); }

    void rowsStandMostFrequentFirstInLowerCase() {
        FillKeywordTable({{QStringLiteral("Nice"), 9},
                          {QStringLiteral("MINT"), 10},
                          {QStringLiteral("Coin"), 3},
                          {QStringLiteral("stamp"), 3},
                          {QStringLiteral("Box"), 9},
                          {QStringLiteral("Lot"), 100}});
        frmSummary summary(nullptr);
        QCOMPARE(ShownRows(summary),
                 (QStringList{QStringLiteral("lot,100"), QStringLiteral("mint,10"), QStringLiteral("nice,9"),
                              QStringLiteral("box,9"), QStringLiteral("coin,3"), QStringLiteral("stamp,3")}));
        QTreeWidget* list = ResultList(summary);
        QCOMPARE(list->topLevelItem(1)->text(2), QStringLiteral("0000000010"));
        QCOMPARE(list->topLevelItem(2)->text(2), QStringLiteral("0000000009"));
        QVERIFY(list->isColumnHidden(2));
        QCOMPARE(list->headerItem()->text(0), QStringLiteral("Word"));
        QCOMPARE(list->headerItem()->text(1), QStringLiteral("Count"));
        QCOMPARE(list->headerItem()->text(2), QStringLiteral("counter"));
        QCOMPARE(list->columnWidth(0), 133);
        QCOMPARE(list->columnWidth(1), 40);
        // The row, its selection and its focus frame end with Count.
        QCOMPARE(list->header()->length(), 173);
        QCOMPARE(list->currentItem(), list->topLevelItem(0));
        QVERIFY(list->topLevelItem(0)->isSelected());
    }

    void equalCountsKeepTheOrderFirstMet() {
        // Interleaved counts, so that an unstable sort would shuffle the words of one count.
        QVector<QPair<QString, int>> entries;
        QStringList ones;
        QStringList twos;
        for (int i = 0; i < 300; ++i) {
            const QString word = QStringLiteral("w%1").arg(i);
            const int count = (i * 7) % 3 == 0 ? 2 : 1;
            entries.append({word, count});
            (count == 2 ? twos : ones) << word + QLatin1Char(',') + QString::number(count);
        }
        FillKeywordTable(entries);
        frmSummary summary(nullptr);
        QCOMPARE(ShownRows(summary), twos + ones);
    }

    void headerClicksChangeNothing() {
        FillKeywordTable(
            {{QStringLiteral("alpha"), 1}, {QStringLiteral("beta"), 5}, {QStringLiteral("gamma"), 3}});
        frmSummary summary(nullptr);
        summary.show();
        QTreeWidget* list = ResultList(summary);
        const QStringList before = ShownRows(summary);
        QHeaderView* header = list->header();
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(0) + 5, header->height() / 2));
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(1) + 5, header->height() / 2));
        QCOMPARE(ShownRows(summary), before);
        QVERIFY(!list->isSortingEnabled());
    }

    void emptyTableShowsNothingAndZero() {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        frmSummary summary(nullptr);
        QTreeWidget* list = ResultList(summary);
        QCOMPARE(list->topLevelItemCount(), 0);
        QCOMPARE(list->currentItem(), nullptr);
        QVERIFY(list->selectedItems().isEmpty());
        QCOMPARE(summary.findChild<QLabel*>(QStringLiteral("lblKeywordCount"))->text(), QStringLiteral("0"));
    }

    void keywordCountIsGroupedByTheLocale_data() {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<int>("found");
        QTest::addColumn<QString>("shown");
        const QLocale us(QLocale::English, QLocale::UnitedStates);
        const QLocale de(QLocale::German, QLocale::Germany);
        QTest::newRow("us zero") << us << 0 << QStringLiteral("0");
        QTest::newRow("us 999") << us << 999 << QStringLiteral("999");
        QTest::newRow("us 1234") << us << 1234 << QStringLiteral("1,234");
        QTest::newRow("us 2000") << us << 2000 << QStringLiteral("2,000");
        QTest::newRow("us 1234567") << us << 1234567 << QStringLiteral("1,234,567");
        QTest::newRow("de 1234567") << de << 1234567 << QStringLiteral("1.234.567");
    }
    void keywordCountIsGroupedByTheLocale() {
        QFETCH(QLocale, locale);
        QFETCH(int, found);
        QFETCH(QString, shown);
        QLocale::setDefault(locale);
        HarvestState.KeywordsFound = found;
        frmSummary summary(nullptr);
        QCOMPARE(summary.findChild<QLabel*>(QStringLiteral("lblKeywordCount"))->text(), shown);
    }

    void captionsFollowTheDepthSearched_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("mainShown");
        QTest::addColumn<QString>("subShown");
        QTest::newRow("no path") << QString() << QString() << QString();
        QTest::newRow("root") << QStringLiteral("eBay") << QStringLiteral("All Categories")
                              << QStringLiteral("All Categories");
        QTest::newRow("main") << QStringLiteral("eBay~Coins & Stamps") << QStringLiteral("Coins & Stamps")
                              << QStringLiteral("All Sub Categories");
        QTest::newRow("sub") << QStringLiteral("eBay~Coins~Proof & Mint & Rare") << QStringLiteral("Coins")
                             << QStringLiteral("Proof & Mint & Rare");
        // Not escaped, so the label takes the lone ampersand as a shortcut mark.
        QTest::newRow("bare ampersand")
            << QStringLiteral("eBay~Coins&Stamps") << QStringLiteral("CoinsStamps")
            << QStringLiteral("All Sub Categories");
        QTest::newRow("too deep") << QStringLiteral("eBay~a~b~c") << QString() << QString();
    }
    void captionsFollowTheDepthSearched() {
        QFETCH(QString, path);
        QFETCH(QString, mainShown);
        QFETCH(QString, subShown);
        HarvestState.SelectedPath = path;
        Hooks().SiteLabel = [] { return QStringLiteral("ebay.co.uk"); };
        frmSummary summary(nullptr);
        QCOMPARE(summary.findChild<QLabel*>(QStringLiteral("lblMain"))->text(), mainShown);
        QCOMPARE(summary.findChild<QLabel*>(QStringLiteral("lblSub"))->text(), subShown);
        QCOMPARE(summary.findChild<QLabel*>(QStringLiteral("lblSite"))->text(), QStringLiteral("ebay.co.uk"));
    }

    void escapeAmpersandsDoublesOnlyFreeStandingOnes_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("escaped");
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("one") << QStringLiteral("Coins & Stamps") << QStringLiteral("Coins && Stamps");
        QTest::newRow("two") << QStringLiteral("A & B & C") << QStringLiteral("A && B && C");
        QTest::newRow("adjacent") << QStringLiteral("a & & b") << QStringLiteral("a && && b");
        QTest::newRow("joined") << QStringLiteral("Coins&Stamps") << QStringLiteral("Coins&Stamps");
        QTest::newRow("one side") << QStringLiteral("Coins &Stamps") << QStringLiteral("Coins &Stamps");
        QTest::newRow("already") << QStringLiteral("A && B") << QStringLiteral("A && B");
    }
    void escapeAmpersandsDoublesOnlyFreeStandingOnes() {
        QFETCH(QString, text);
        QFETCH(QString, escaped);
        frmSummary::EscapeAmpersands(text);
        QCOMPARE(text, escaped);
    }

    void loadRestoresTheDefaultPointer() {
        ScreenPointer::Set(ScreenPointer::Wait);
        frmSummary summary(nullptr);
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
    }

    void captionsStandAsTheFormSaysAndEnterPressesNoButton() {
        frmSummary summary(nullptr);
        QCOMPARE(summary.windowTitle(), QStringLiteral("Search Summary"));
        QCOMPARE(summary.findChild<QLineEdit*>(QStringLiteral("txtFileName"))->text(),
                 QStringLiteral("Please select a location..."));
        QStringList captions;
        for (const char* name : {"cmdPrint", "cmdHelp", "ARButton2", "cmdExit"})
            captions << summary.findChild<QPushButton*>(QLatin1String(name))->text();
        QCOMPARE(captions.join(QLatin1Char('|')), QStringLiteral("&Print|&Help|&New Search|E&xit"));
        QCOMPARE(summary.palette().color(QPalette::Window), QColor(240, 240, 233));
        // No button is the window's default: Enter opens neither the file nor the print dialog.
        int dialogs = 0;
        CommonDialog::SetPrinterAnswer([&](QPrinter&, int, int) { return ++dialogs < 0; });
        CommonDialog::SetSaveAnswer([&](const CommonDialog::SaveRequest&) {
            ++dialogs;
            return QString();
        });
        summary.show();
        QTest::keyClick(&summary, Qt::Key_Return);
        QCOMPARE(dialogs, 0);
    }
};

QTEST_MAIN(tst_frmSummary)
#include "tst_frmSummary.moc"
