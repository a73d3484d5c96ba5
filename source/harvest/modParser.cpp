#include "modParser.h"

#include "HostHooks.h"
#include "VbNumeric.h"

#include <QFile>
#include <QStringDecoder>

#include <limits>

// ---- The keyword tally ----

namespace {

// The exclusion file's text: UTF-8 when it is valid UTF-8, else Latin-1, the 8-bit code page
// that the old files were written in.
QString decodeExclusions(const QByteArray& bytes) {
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8.decode(bytes);
    if (utf8.hasError())
        text = QString::fromLatin1(bytes);
    if (text.startsWith(QChar(0xFEFF)))
        text.remove(0, 1);
    return text;
}

bool stopRequested() { return HarvestState.StopRequested == FlagTrue; }

} // namespace

void LoadExclusions() {
    const QString path = ProgramFolder() + QStringLiteral("/exclude.dat");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        // A missing list excludes nothing; the host tells the user and the search goes on.
        Hooks().ExclusionFileUnreadable(path);
        return;
    }
    const QString text = decodeExclusions(file.readAll());
    // Line ends are dropped and the lines joined with nothing between them, seams included.
    qsizetype start = 0;
    while (start < text.size()) {
        qsizetype end = start;
        while (end < text.size() && text[end] != u'\n' && text[end] != u'\r')
            ++end;
        const QStringView line = QStringView(text).mid(start, end - start);
        HarvestState.ExclusionText.append(line);
        HarvestState.ExclusionIndex.Append(line.toString().toUpper());
        if (end + 1 < text.size() && text[end] == u'\r' && text[end + 1] == u'\n')
            ++end;
        start = end + 1;
    }
}

void ResetKeywordTable() { HarvestState.KeywordTable.Reset(); }

bool IsKeywordSeen(const QString& upperWord) {
    if (HarvestState.SeenKeywords.isEmpty())
        return false;
    return HarvestState.SeenIndex.Contains(upperWord.toUpper());
}

namespace {

// Steps 6 and 7 of a piece: one cleaning, the first that fits. Returns false when the piece is
// dropped.
bool cleanPiece(QString& piece) {
    if (piece.right(4).toUpper() == u"</B>") {
        piece.chop(4);
    } else if (piece.left(3).toUpper() == u"<B>") {
        piece.remove(0, 3);
    } else if (piece.contains(u"&amp;", Qt::CaseInsensitive)) {
        piece.replace(QStringLiteral("&amp;"), QStringLiteral("&"), Qt::CaseSensitive);
    }
    return !piece.isEmpty() && piece != u"&";
}

void raiseCount(qsizetype column) {
    KeywordGrid& table = HarvestState.KeywordTable;
    // A count goes through a 32-bit integer; it cannot get near its end in one search, but a
    // wrap would show a negative count, so it stops at the top instead.
    const qint64 count = table.Count(column).toLongLong() + 1;
    table.SetCount(column, QString::number(std::min<qint64>(count, std::numeric_limits<std::int32_t>::max())));
}

void addKeyword(const QString& word, const QString& upperWord) {
    ++HarvestState.KeywordsFound;
    Hooks().SetMainTotalCaption(QStringLiteral("Keywords Found: ") + QString::number(HarvestState.KeywordsFound));
    HarvestState.KeywordTable.Add(word, upperWord);
    HarvestState.SeenKeywords.append(word);
    HarvestState.SeenIndex.Append(upperWord);
}

} // namespace

void TallyTitle(const QString& title) {
    // An empty title gives no pieces at all, so not even a yield.
    if (title.isEmpty())
        return;
    const QLocale locale;
    qsizetype start = 0;
    for (;;) {
        qsizetype end = title.indexOf(u' ', start);
        const bool last = end < 0;
        if (last)
            end = title.size();
        QString piece = title.mid(start, end - start);
        start = end + 1;

        Hooks().Yield();
        if (stopRequested())
            return;
        const bool dropped = piece.isEmpty() || IsNumeric(piece, locale) || piece.size() == 1 ||
                             HarvestState.ExclusionIndex.Contains(piece.toUpper()) || !cleanPiece(piece);
        if (!dropped) {
            const QString upperWord = piece.toUpper();
            const bool seen = IsKeywordSeen(upperWord);
            if (stopRequested())
                return;
            // The seen-text is only a hint: a word can hide inside a longer one, so a hint still
            // needs the table, found here through its index rather than a walk.
            const qsizetype column = seen ? HarvestState.KeywordTable.Find(upperWord) : 0;
            if (column > 0)
                raiseCount(column);
            else
                addKeyword(piece, upperWord);
        }
        if (last)
            return;
    }
}
