#include "SubstringIndex.h"

#include <QRandomGenerator>
#include <QTest>

class tst_SubstringIndex : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void agreesWithAPlainSearchWhileGrowing();
    void emptyCases();
};

// Compared with a plain substring search on random text over a small alphabet, where repeats
// and clones of states are frequent.
void tst_SubstringIndex::agreesWithAPlainSearchWhileGrowing() {
    QRandomGenerator random(7);
    SubstringIndex index;
    QString text;
    for (int round = 0; round < 200; ++round) {
        QString chunk;
        for (int i = int(random.bounded(1, 6)); i > 0; --i)
            chunk += QChar(u'a' + random.bounded(3));
        index.Append(chunk);
        text += chunk;
        for (int probe = 0; probe < 20; ++probe) {
            QString needle;
            for (int i = int(random.bounded(1, 8)); i > 0; --i)
                needle += QChar(u'a' + random.bounded(4));
            QCOMPARE(index.Contains(needle), text.contains(needle));
        }
    }
    QCOMPARE(index.TextLength(), text.size());
}

void tst_SubstringIndex::emptyCases() {
    SubstringIndex index;
    QVERIFY(!index.Contains(u"a"));
    QVERIFY(index.Contains(u""));
    index.Append(u"abc");
    index.Clear();
    QVERIFY(!index.Contains(u"a"));
}

QTEST_GUILESS_MAIN(tst_SubstringIndex)
#include "tst_SubstringIndex.moc"
