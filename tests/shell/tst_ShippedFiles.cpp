#include <QFile>
#include <QImage>
#include <QTest>
#include <QTextDocument>

namespace {

QStringList Lines(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    QStringList lines;
    while (!file.atEnd())
        lines << QString::fromLatin1(file.readLine()).chopped(1);
    return lines;
}

} // namespace

// The files that lie beside the program, as the build ships them.
class tst_ShippedFiles : public QObject {
    Q_OBJECT

    const QString m_data = QStringLiteral(MARQUILL_DATA_DIR);

private Q_SLOTS:
    void exclusionsHoldWholeCommonWords() {
        const QStringList lines = Lines(m_data + QStringLiteral("/exclude.dat"));
        QVERIFY(lines.size() >= 20);
        for (const char* word : {"the", "and", "for", "with", "your"})
            QVERIFY2(lines.contains(QLatin1String(word)), word);
        for (const QString& line : lines) {
            QVERIFY2(line.size() >= 2, qPrintable(line));
            for (const QChar c : line)
                QVERIFY2(c.isLetter(), qPrintable(line));
        }
    }

    void exclusionsHideNoCommonTitleWord() {
        // The search drops every word found anywhere in the joined lines, across line joins too.
        const QString joined = Lines(m_data + QStringLiteral("/exclude.dat")).join(QString()).toUpper();
        const QStringList titleWords =
            QStringLiteral(
                "new lot set kit box rare vintage mint card gold silver ring watch dress size men mens women "
                "ladies black white red blue green pink toy car book dvd cd game coin stamp art oil tan top "
                "bag "
                "hat cap pen pin tin led usb hd pc uk us xl one two free sale nwt bnib old antique original "
                "genuine retro leather wood glass brass iron seat bed rug cup mug tea jar pot ice ski bike "
                "boat "
                "lamp doll bear dog cat horse tee shirt shoe boot coat jacket jeans sock tv ny la gb eu no "
                "ex "
                "vgc bnwt nib mib moc uv gps lego ford bmw vw gt sport golf ball bat net cable case cover "
                "phone "
                "camera lens film photo print poster map signed auto rose lace silk wool cotton denim baby "
                "kids "
                "girl boy child teen tall petite plus mini maxi long short slim wide high low heel flat hot "
                "cool "
                "rock pop jazz vinyl lp ep tape radio hifi amp bass drum guitar piano sax key lock door tile")
                .split(QLatin1Char(' '));
        QStringList hidden;
        for (const QString& word : titleWords)
            if (joined.contains(word.toUpper()))
                hidden << word;
        QVERIFY2(hidden.isEmpty(), qPrintable(hidden.join(QLatin1Char(' '))));
    }

    void helpTextCoversTheCommands() {
        QFile file(m_data + QStringLiteral("/helpfile.htm"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QTextDocument document;
        document.setHtml(QString::fromUtf8(file.readAll()));
        const QString text = document.toPlainText();
        for (const char* topic : {"Get Keywords", "Stop Search", "Stop Refresh", "Refresh Categories",
                                  "Print", "New Search", "Keywords dd.mm.yyyy.txt", "ebay.co.uk"})
            QVERIFY2(text.contains(QLatin1String(topic)), topic);
    }

    void logoHasItsSize() {
        const QImage logo(m_data + QStringLiteral("/logo.png"));
        QCOMPARE(logo.size(), QSize(151, 43));
    }
};

QTEST_MAIN(tst_ShippedFiles)
#include "tst_ShippedFiles.moc"
