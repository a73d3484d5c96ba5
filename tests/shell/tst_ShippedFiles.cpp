#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QTextDocument>

// The files that lie beside the program, as the build ships them.
class tst_ShippedFiles : public QObject {
    Q_OBJECT

    static QString Read(const char* name) {
        QFile file(QStringLiteral(MARQUILL_DATA_DIR "/") + QLatin1String(name));
        return file.open(QIODevice::ReadOnly | QIODevice::Text) ? QString::fromLatin1(file.readAll())
                                                                : QString();
    }

private Q_SLOTS:
    void exclusionsHoldWholeCommonWordsAndHideNoTitleWord() {
        const QStringList lines = Read("exclude.dat").split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QVERIFY(lines.size() >= 20);
        for (const char* word : {"the", "and", "for", "with", "your"})
            QVERIFY2(lines.contains(QLatin1String(word)), word);
        for (const QString& line : lines)
            QVERIFY2(line.size() >= 2 && line.count(QRegularExpression(QStringLiteral("\\P{L}"))) == 0,
                     qPrintable(line));
        // The search drops every word found anywhere in the joined lines, across line joins too.
        const QString joined = lines.join(QString()).toUpper();
        for (const QString& word :
             QStringLiteral("new lot set box rare vintage mint gold silver ring size men women "
                            "toy car dvd cd coin art oil bag hat usb hd pc uk xl one two old "
                            "doll bear dog cat tv lp ep amp sax key tan top tee vgc nwt")
                 .split(QLatin1Char(' ')))
            QVERIFY2(!joined.contains(word.toUpper()), qPrintable(word));
    }

    void programAnswersHelpWithoutADisplay() {
        for (const char* option : {"--help", "-h"}) {
            QProcess program;
            program.start(QStringLiteral(MARQUILL_APP), {QLatin1String(option)});
            QVERIFY(program.waitForFinished(20000) && program.exitCode() == 0);
            QVERIFY2(program.readAllStandardOutput().startsWith("usage: "), option);
        }
    }

    void helpTextCoversTheCommandsAndTheLogoHasItsSize() {
        QTextDocument document;
        document.setHtml(Read("helpfile.htm"));
        for (const char* topic : {"Get Keywords", "Stop Search", "Stop Refresh", "Refresh Categories",
                                  "Print", "New Search", "Keywords dd.mm.yyyy.txt", "ebay.co.uk"})
            QVERIFY2(document.toPlainText().contains(QLatin1String(topic)), topic);
        QCOMPARE(QImage(QStringLiteral(MARQUILL_DATA_DIR "/logo.png")).size(), QSize(151, 43));
    }
};

QTEST_MAIN(tst_ShippedFiles)
#include "tst_ShippedFiles.moc"
