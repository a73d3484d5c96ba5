// Tallies a generated corpus of listing titles and prints titles and words per second, beside a
// literal implementation of the table search (a walk of every column with a yield at each) as
// the baseline, on the same corpus in the same run.
#include "HostHooks.h"
#include "VbNumeric.h"
#include "modMain.h"
#include "modParser.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QStringList>
#include <QTemporaryDir>
#include <cstdio>
#include <ctime>
#include <malloc.h>
#include <vector>

namespace {

QStringList makeTitles(int count) {
    const QStringList common = {
        "New",   "Vintage",  "Lot",    "Gold",     "Silver",    "Sterling", "Antique", "Rare",  "Mint",
        "Boxed", "Sealed",   "Signed", "Original", "Genuine",   "Large",    "Small",   "Set",   "Collection",
        "Ring",  "Necklace", "Watch",  "Coin",     "Stamp",     "Card",     "Doll",    "Bear",  "Toy",
        "Train", "Car",      "Camera", "Lens",     "Book",      "First",    "Edition", "Dress", "Shoes",
        "Size",  "Women's",  "Men's",  "Kids",     "Leather",   "Wool",     "Cotton",  "Blue",  "Red",
        "Black", "White",    "Green",  "Pink",     "Victorian", "Art",      "Deco",    "Oil",   "Painting",
        "Print", "Poster",   "Record", "Vinyl",    "LP"};
    QRandomGenerator random(42);
    QStringList titles;
    titles.reserve(count);
    for (int t = 0; t < count; ++t) {
        QStringList words;
        const int length = 6 + int(random.bounded(7));
        for (int w = 0; w < length; ++w) {
            const quint32 kind = random.bounded(100);
            if (kind < 60) {
                words << common[int(random.bounded(common.size()))];
            } else if (kind < 70) {
                words << QString::number(1900 + random.bounded(110));
            } else if (kind < 75) {
                words << QStringLiteral("$%1.99").arg(random.bounded(200));
            } else if (kind < 78) {
                words << QStringLiteral("&amp;");
            } else if (kind < 81) {
                words << QStringLiteral("<B>%1</B>").arg(common[int(random.bounded(common.size()))]);
            } else {
                // A long tail of rarer words: model numbers, brands, misspellings.
                words << QStringLiteral("Zq%1").arg(random.bounded(count / 10 + 50));
            }
        }
        titles << words.join(u' ');
    }
    return titles;
}

QByteArray makeExclusions() {
    const QStringList words = {"the",     "and", "for",  "with",     "from",  "this", "that", "our",  "your",
                               "will",    "are", "free", "shipping", "look",  "wow",  "nr",   "l@@k", "item",
                               "auction", "buy", "now",  "bid",      "great", "nice", "very", "one",  "only"};
    QByteArray text;
    for (int i = 0; text.size() < 3000; ++i)
        text += words[i % words.size()].toUtf8() + QByteArray::number(i / words.size()) + "\n";
    return text;
}

// The table search as written for the old platform: a walk from column 0 with a yield per
// column, and case-insensitive searches over the whole texts.
struct LiteralTally {
    QString exclusions;
    QString seen;
    std::vector<QString> words{QString()};
    std::vector<QString> counts{QString()};
    void (*yield)() = [] {};

    void tally(const QString& title) {
        const QLocale locale;
        for (QString piece : title.split(u' ')) {
            yield();
            if (piece.isEmpty() || IsNumeric(piece, locale) || piece.size() == 1)
                continue;
            if (!exclusions.isEmpty() && exclusions.contains(piece, Qt::CaseInsensitive))
                continue;
            if (piece.right(4).toUpper() == u"</B>")
                piece.chop(4);
            else if (piece.left(3).toUpper() == u"<B>")
                piece.remove(0, 3);
            else if (piece.contains(u"&amp;", Qt::CaseInsensitive))
                piece.replace(QStringLiteral("&amp;"), QStringLiteral("&"));
            if (piece.isEmpty() || piece == u"&")
                continue;
            const QString upper = piece.toUpper();
            bool found = false;
            if (!seen.isEmpty() && seen.toUpper().contains(upper)) {
                const size_t last = words.size();
                for (size_t column = 0; column < last; ++column) {
                    yield();
                    if (words[column].compare(upper, Qt::CaseInsensitive) == 0) {
                        counts[column] = QString::number(counts[column].toInt() + 1);
                        found = true;
                        break;
                    }
                }
            }
            if (!found) {
                words.push_back(piece);
                counts.push_back(QStringLiteral("1"));
                seen += piece;
            }
        }
    }
};

// Heap in use, small blocks and mapped ones.
qint64 heapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return qint64(info.uordblks) + qint64(info.hblkhd);
}

// Titles of random words, nearly all distinct, as on a hostile page of random titles.
QStringList makeRandomTitles(int count, qint64& letters) {
    QRandomGenerator random(7);
    QStringList titles;
    letters = 0;
    for (int t = 0; t < count; ++t) {
        QStringList words;
        for (int w = 0; w < 8; ++w) {
            QString word;
            for (int i = 4 + int(random.bounded(7)); i > 0; --i)
                word += QChar(u'a' + random.bounded(26));
            letters += word.size();
            words << word;
        }
        titles << words.join(u' ');
    }
    return titles;
}

// The heap that the tally holds per distinct word, measured over random titles; the words' own
// text (two bytes a character, once) is given apart.
void printMemoryPerWord() {
    qint64 letters = 0;
    const QStringList titles = makeRandomTitles(25000, letters);
    HarvestState = HarvestRecord();
    LoadExclusions();
    ResetKeywordTable();
    const qint64 before = heapBytes();
    for (const QString& title : titles)
        TallyTitle(title);
    const qint64 held = heapBytes() - before;
    const qsizetype distinct = HarvestState.KeywordTable.LastEntry();
    const double text = 2.0 * double(letters) / double(titles.size() * 8);
    std::printf("memory: %lld distinct random words (%.1f characters on average): %.0f bytes a word, "
                "%.0f beyond its own text (%.0f); target < 300\n",
                static_cast<long long>(distinct), text / 2, double(held) / double(distinct),
                double(held) / double(distinct) - text, text);
    HarvestState = HarvestRecord();
}

double cpuSeconds() {
    return double(std::clock()) / CLOCKS_PER_SEC;
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    QCoreApplication app(argc, argv);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QTemporaryDir dir;
    const QByteArray exclusions = makeExclusions();
    QFile file(dir.filePath(QStringLiteral("exclude.dat")));
    if (!file.open(QIODevice::WriteOnly) || file.write(exclusions) != exclusions.size())
        return 1;
    file.close();
    SetProgramFolder(dir.path());
    Hooks().Yield = [] {};

    std::printf("exclusion text: %lld bytes\n", static_cast<long long>(exclusions.size()));
    for (const int count : {5000, 50000}) {
        const QStringList titles = makeTitles(count);
        qint64 words = 0;
        for (const QString& title : titles)
            words += title.count(u' ') + 1;

        HarvestState = HarvestRecord();
        const double cpu0 = cpuSeconds();
        QElapsedTimer timer;
        timer.start();
        LoadExclusions();
        ResetKeywordTable();
        for (const QString& title : titles)
            TallyTitle(title);
        const double ours = timer.nsecsElapsed() / 1e9;
        const double oursCpu = cpuSeconds() - cpu0;
        const qsizetype distinct = HarvestState.KeywordTable.LastEntry();

        LiteralTally literal;
        literal.exclusions = QString::fromUtf8(exclusions).remove(u'\n');
        timer.restart();
        for (const QString& title : titles)
            literal.tally(title);
        const double baseline = timer.nsecsElapsed() / 1e9;
        bool same = qsizetype(literal.words.size()) - 1 == distinct;
        for (qsizetype n = 1; same && n <= distinct; ++n)
            same = literal.words[size_t(n)] == HarvestState.KeywordTable.Word(n) &&
                   literal.counts[size_t(n)] == HarvestState.KeywordTable.Count(n);

        std::printf(
            "%6d titles, %7lld words, %6lld distinct: %.4f s wall, %.4f s CPU, %.0f titles/s, %.0f words/s\n",
            count, static_cast<long long>(words), static_cast<long long>(distinct), ours, oursCpu,
            count / ours, words / ours);
        std::printf("        literal table walk: %.3f s; ratio %.0fx%s\n", baseline, baseline / ours,
                    same ? "" : "  (RESULTS DIFFER)");
    }
    printMemoryPerWord();
    return 0;
}
