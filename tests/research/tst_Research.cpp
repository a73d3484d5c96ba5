#include "BarChart.h"
#include "CliRun.h"
#include "ListDiff.h"
#include "Recount.h"
#include "ShareTally.h"
#include "TitleSnapshot.h"

#include <QImage>
#include <utility>

using Rows = QList<QStringList>;

// RFC 4180 read back: quoted fields with doubled quotes, commas and line breaks inside.
inline Rows readCsv(const QString& text) {
    Rows rows;
    QStringList row;
    QString field;
    bool inQuotes = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (inQuotes && c == u'"' && i + 1 < text.size() && text[i + 1] == u'"')
            field += text[++i];
        else if (c == u'"')
            inQuotes = !inQuotes;
        else if (!inQuotes && (c == u',' || c == u'\n')) {
            row << std::exchange(field, QString());
            if (c == u'\n')
                rows << std::exchange(row, QStringList());
        } else
            field += c;
    }
    return rows;
}

inline Rows rowsOf(const QJsonObject& result) {
    Rows rows;
    for (const QJsonValue word : result["words"].toArray())
        rows << QStringList{word["word"].toString(), QString::number(word["count"].toInteger())};
    return rows;
}

// The research kit: kept titles count again to the search's very list, phrases and shares follow
// the tally's rules, a diff sorts its changes, a chart is a picture.
class tst_Research : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { m_run.SetUp(); }
    void recountGivesTheSearchByteForByte();
    void compareSetsTheSearchesSideBySide();
    void phrasesAndSharesFollowTheTally();
    void diffOrdersTheFourChanges();
    void chartIsAPicture();

private:
    CliFixture m_run;
};

void tst_Research::recountGivesTheSearchByteForByte() {
    const QString dir = m_run.dir.path();
    struct Case {
        QStringList node;
        QSet<int> pages;
        qsizetype titles; // 0: as many as the pages hold
    };
    // The limit of 60 is met on page 2; a main category reads each sub-category's first page.
    const QList<Case> cases{{{AsianAntiques}, {1, 2, 3, 4, 5}, 0},
                            {{"Select Category~Antiques"}, {1}, 0},
                            {{AsianAntiques, "--auctions", "60"}, {1, 2}, 60}};
    for (const Case& run : cases) {
        const QString titles = dir + "/titles.jsonl";
        const Run search = runCli(QStringList{"search", "--quiet", "--save-titles", titles, "--node"} +
                                  run.node + m_run.Common());
        QCOMPARE(search.exitCode, 0);
        verifyList(search.out);
        const Run recount = runCli({"recount", titles, "--data", dir, "--quiet"});
        QCOMPARE(recount.exitCode, 0);
        QCOMPARE(recount.out, search.out);
        // The titles column beside the same counts: never more titles than occurrences.
        const Rows shares = run.titles
                                ? readCsv(QString::fromUtf8(
                                      runCli({"recount", titles, "--data", dir, "--titles-column"}).out))
                                : Rows();
        const Rows words = readCsv(QString::fromUtf8(search.out));
        QCOMPARE(shares.size(), run.titles ? words.size() : 0);
        for (qsizetype i = 0; run.titles && i < words.size(); ++i)
            QVERIFY(shares.value(i).mid(0, 2) == words[i] && shares[i][2].toInt() >= 1 &&
                    shares[i][2].toInt() <= words[i][1].toInt());
        QFile file(titles);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QString error;
        const std::optional<TitleSnapshot> snapshot = ReadSnapshot(file.readAll(), error);
        QVERIFY2(snapshot, qPrintable(error));
        QSet<int> pages;
        // Each title names the sub-category whose listing held it.
        const QString node = run.node[0] == AsianAntiques ? AsianAntiques : run.node[0] + u'~';
        for (const SnapshotTitle& title : snapshot->titles) {
            pages << title.page;
            QVERIFY2(title.node.startsWith(node), qPrintable(title.node));
        }
        QCOMPARE(pages, run.pages);
        if (run.titles)
            QCOMPARE(qsizetype(snapshot->titles.size()), run.titles);
    }
}

void tst_Research::compareSetsTheSearchesSideBySide() {
    const QString dir = m_run.dir.path();
    writeCatalogue(dir, UKSiteLabel, m_run.site->catalogue(UKSiteLabel));
    const QString proxy = m_run.site->proxyUrl().toString();
    const QString node = "Select Category~Antiques~Antiquities";
    const QStringList common{"--node", node, "--auctions", "40", "--data", dir, "--proxy", proxy, "--quiet"};
    const Run compare = runCli(QStringList{"compare", "--format", "json"} + common);
    QCOMPARE(compare.exitCode, 0);
    // Each side is the site's own search, as a process of its own would count it.
    for (const QString& site : {USSiteLabel, UKSiteLabel}) {
        const QString side = site == USSiteLabel ? "us" : "uk";
        QHash<QString, qint64> counts;
        qint64 total = 0;
        for (const QStringList& row :
             rowsOf(runCli(QStringList{"search", "--site", site, "--format", "json"} + common).json())) {
            counts.insert(row[0], row[1].toLongLong());
            total += row[1].toLongLong();
        }
        QVERIFY(total > 0);
        double shares = 0;
        for (const QJsonValue word : compare.json()["words"].toArray()) {
            QCOMPARE(word[side + "_count"].toInteger(), counts.take(word["word"].toString()));
            shares += word[side + "_share"].toDouble();
        }
        QVERIFY(counts.isEmpty());
        QVERIFY(qAbs(shares - 100) < 0.5);
    }
    const Run missing = runCli({"compare", "--node", AsianAntiques, "--data", dir, "--proxy", proxy});
    QCOMPARE(missing.exitCode, 2);
    QVERIFY(missing.err.contains("ebay.co.uk"));
    const Run noNode = runCli({"compare", "--data", dir, "--proxy", proxy});
    QVERIFY(noNode.exitCode == 2 && noNode.err.contains("compare: missing --node"));
}

void tst_Research::phrasesAndSharesFollowTheTally() {
    QTemporaryDir dir;
    QFile exclusions(dir.filePath("exclude.dat"));
    QVERIFY(exclusions.open(QIODevice::WriteOnly));
    exclusions.write("the\nbrand\n");
    exclusions.close();
    std::vector<SnapshotTitle> titles;
    for (const QString title : {"Mint MINT coin", "mint coin 2005 mint coin", "Brand new mint coin",
                                "<B>Mint</B> coin &amp; box", "new  mint", ""})
        titles.push_back({{}, {}, {}, 1, title});
    ShareTally shares;
    SetTallyObserver(&shares);
    RecountTitles(titles, exclusions.fileName());
    shares.Finish();
    SetTallyObserver(nullptr);
    const auto table = [](const std::vector<ResultRow>& rows) {
        Rows out;
        for (const ResultRow& row : rows)
            out << QStringList{row.word, row.count, QString::number(row.titles)};
        return out;
    };
    QCOMPARE(HarvestState.AuctionsScanned, 6);
    QCOMPARE(table(WordRows(&shares)), (Rows{{"mint", "6", "4"},
                                             {"coin", "5", "4"},
                                             {"new", "2", "2"},
                                             {"<b>mint", "1", "1"},
                                             {"box", "1", "1"}}));
    // 2005, brand and & break a phrase; a double blank does not.
    QCOMPARE(table(PhraseRows(shares)), (Rows{{"mint coin", "4", "3"},
                                              {"new mint", "2", "2"},
                                              {"mint mint", "1", "1"},
                                              {"<b>mint coin", "1", "1"}}));
}

void tst_Research::diffOrdersTheFourChanges() {
    QString error;
    // The window's results file, unquoted words with a comma or a quote; the tool's csv with titles.
    const auto a = ReadResultList("ring,5\r\ngold,,4\r\nsilver,3\r\n\"old\",1\r\nlamp,1\r\n", error);
    const auto b =
        ReadResultList("ring,9,4\n\"gold,\",4,2\nnew,3,1\nvase,3,3\nsilver,1,1\nlamp,2,1\n", error);
    QVERIFY(a && b);
    Rows rows;
    for (const DiffRow& row : DiffLists(*a, *b))
        rows << QStringList{row.word,
                            WordChangeName(row.change),
                            QString::number(row.rankA),
                            QString::number(row.countA),
                            QString::number(row.rankB),
                            QString::number(row.countB)};
    QCOMPARE(rows, (Rows{{"ring", "rose", "1", "5", "1", "9"},
                         {"lamp", "rose", "5", "1", "6", "2"},
                         {"silver", "fell", "3", "3", "5", "1"},
                         {"new", "new", "0", "0", "3", "3"},
                         {"vase", "new", "0", "0", "4", "3"},
                         {"\"old\"", "gone", "4", "1", "0", "0"},
                         {"gold,", "same", "2", "4", "2", "4"}}));
    QVERIFY(!ReadResultList("ring,5\nno count here\n", error));
    QCOMPARE(error, "line 2 is not word,count");

    // The command reads both files and prints the same order.
    QTemporaryDir dir;
    for (const auto& [name, bytes] :
         {std::pair{"a.csv", "ring,5\r\nlamp,1\r\n"}, {"b.csv", "ring,9\nnew,3\n"}}) {
        QFile file(dir.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) > 0);
    }
    const Run diff = runCli({"diff", dir.filePath("a.csv"), dir.filePath("b.csv"), "--format", "tsv",
                             "--data", m_run.dir.path()});
    QCOMPARE(diff.exitCode, 0);
    QCOMPARE(diff.err, "Rose 1, fell 0, new 1, gone 1, same 0\n");
    QCOMPARE(diff.out, "ring\trose\t1\t5\t1\t9\t+4\nnew\tnew\t\t0\t2\t3\t+3\nlamp\tgone\t2\t1\t\t0\t-1\n");
    // The chart shows the changes, the largest first.
    QCOMPARE(runCli({"diff", dir.filePath("a.csv"), dir.filePath("b.csv"), "--data", m_run.dir.path(), "--chart",
                     dir.filePath("diff.svg")})
                 .exitCode,
             0);
    QFile chart(dir.filePath("diff.svg"));
    QVERIFY(chart.open(QIODevice::ReadOnly));
    const QByteArray svg = chart.readAll();
    const qsizetype ring = svg.indexOf(">ring</text>"), added = svg.indexOf(">new</text>");
    QVERIFY(ring >= 0 && added > ring && svg.indexOf(">lamp</text>") > added);
}

void tst_Research::chartIsAPicture() {
    QTemporaryDir dir;
    const std::vector<ChartBar> bars{{"ring", 9, "9"}, {"gold", -4, "-4"}, {"silver", 1, "1"}};
    QString error;
    QVERIFY(!DrawBarChart(dir.filePath("chart.txt"), "title", "subtitle", bars, error));
    QVERIFY(!QFile::exists(dir.filePath("chart.txt")));
    QVERIFY2(DrawBarChart(dir.filePath("chart.png"), "ebay.com: Coins", "Top 3 words", bars, error),
             qPrintable(error));
    const QImage image(dir.filePath("chart.png"));
    QCOMPARE(image.size(), BarChartSize(3));
    const QRgb background = image.pixel(0, 0);
    int inked = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            inked += image.pixel(x, y) != background;
    QVERIFY(inked > image.width() * image.height() / 50);
    QVERIFY(DrawBarChart(dir.filePath("chart.svg"), "ebay.com: Coins", "Top 3 words", bars, error));
    QFile svg(dir.filePath("chart.svg"));
    QVERIFY(svg.open(QIODevice::ReadOnly));
    const QByteArray text = svg.readAll();
    const QSize size = BarChartSize(3);
    QVERIFY(
        text.contains(QStringLiteral("viewBox=\"0 0 %1 %2\"").arg(size.width()).arg(size.height()).toUtf8()));
    QVERIFY(text.contains(">silver</text>"));
}

QTEST_MAIN(tst_Research)
#include "tst_Research.moc"
