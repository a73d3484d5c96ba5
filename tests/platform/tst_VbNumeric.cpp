#include "VbNumeric.h"

#include <QTest>

class tst_VbNumeric : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void isNumericUnderUsLocale_data();
    void isNumericUnderUsLocale();
    void isNumericFollowsTheLocaleSymbols();
    void toInt16_data();
    void toInt16();
};

void tst_VbNumeric::isNumericUnderUsLocale_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("numeric");
    for (const char* text : {"2005", "1,000", "$5.99", "5$", "5$-", "-12", "12-", "(12)", "1E5", "1d-5", "&HFF",
                             "&hff", "&HaF", "&O17", "&17", "&7", ".5", "1.", " 12 "})
        QTest::newRow(text) << QString::fromUtf8(text) << true;
    // Characters between the digits and the capitals are no hexadecimal digits.
    for (const char* text : {"(12", "(-12)", "-12-", "1e", "&O18", "&H", "&", "&H1:", "&O7@", "&HG", ".",
                             ",100", "10kg", "1/2", "", "$", "-", "1e999", "\u0661\u0662"})
        QTest::newRow(text) << QString::fromUtf8(text) << false;
}

void tst_VbNumeric::isNumericUnderUsLocale() {
    QFETCH(QString, text);
    QFETCH(bool, numeric);
    QCOMPARE(IsNumeric(text, QLocale(QLocale::English, QLocale::UnitedStates)), numeric);
}

void tst_VbNumeric::isNumericFollowsTheLocaleSymbols() {
    const QLocale german(QLocale::German, QLocale::Germany);
    QVERIFY(IsNumeric(u"1.000,5", german));
    QCOMPARE(ParseVbNumber(u"1.000,5", german).value_or(0), 1000.5);
    QVERIFY(IsNumeric(QStringLiteral("5") + german.currencySymbol(), german));
    QVERIFY(!IsNumeric(u"$5", german));
    const QLocale uk(QLocale::English, QLocale::UnitedKingdom);
    QVERIFY(IsNumeric(QString::fromUtf8("\u00a35"), uk));
    QVERIFY(!IsNumeric(u"$5", uk));
}

void tst_VbNumeric::toInt16_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("value");
    const int ok = int(ConversionStatus::Ok);
    const int overflow = int(ConversionStatus::Overflow);
    const int mismatch = int(ConversionStatus::TypeMismatch);
    QTest::newRow("plain") << " 12" << ok << 12;
    QTest::newRow("half to even down") << "2.5" << ok << 2;
    QTest::newRow("half to even up") << "3.5" << ok << 4;
    QTest::newRow("negative half") << "-2.5" << ok << -2;
    QTest::newRow("above half") << "2.51" << ok << 3;
    QTest::newRow("top") << "32767" << ok << 32767;
    QTest::newRow("bottom") << "-32768" << ok << -32768;
    QTest::newRow("rounds over the top") << "32767.5" << overflow << 0;
    QTest::newRow("over") << "40000" << overflow << 0;
    QTest::newRow("bottom half rounds to even") << "-32768.5" << ok << -32768;
    QTest::newRow("hex pattern") << "&HFFFF" << ok << -1;
    QTest::newRow("hex long") << "&H10000" << overflow << 0;
    QTest::newRow("octal") << "&O777" << ok << 511;
    QTest::newRow("exponent") << "1.2E3" << ok << 1200;
    QTest::newRow("parentheses") << "(7)" << ok << -7;
    QTest::newRow("not a number") << "abc" << mismatch << 0;
    QTest::newRow("empty") << "" << mismatch << 0;
}

void tst_VbNumeric::toInt16() {
    QFETCH(QString, text);
    QFETCH(int, status);
    QFETCH(int, value);
    const Int16Conversion result = ToInt16(text, QLocale(QLocale::English, QLocale::UnitedStates));
    QCOMPARE(int(result.status), status);
    QCOMPARE(int(result.value), value);
}

QTEST_GUILESS_MAIN(tst_VbNumeric)
#include "tst_VbNumeric.moc"
