#include "ListDiff.h"

#include "modParser.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

namespace {

bool IsCount(const QString& text) {
    if (text.isEmpty())
        return false;
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u'0' && c <= u'9'; });
}

std::optional<std::vector<ResultRow>> ReadJsonList(const QByteArray& bytes, QString& error) {
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    const QJsonValue words = document.object().value(QStringLiteral("words"));
    if (!words.isArray()) {
        error = QStringLiteral("a JSON file without a list of words");
        return std::nullopt;
    }
    std::vector<ResultRow> rows;
    for (const QJsonValue word : words.toArray())
        rows.push_back({word[QStringLiteral("word")].toString(),
                        QString::number(word[QStringLiteral("count")].toInteger())});
    return rows;
}

} // namespace

std::optional<std::vector<ResultRow>> ReadResultList(const QByteArray& bytes, QString& error) {
    if (bytes.trimmed().startsWith('{'))
        return ReadJsonList(bytes, error);
    const QString text = DecodeWordFile(bytes);
    // The window ends its lines with CR LF and never quotes: a word it wrote may begin with a
    // quote and hold commas, so its lines are cut at their last comma alone.
    const qsizetype firstEnd = text.indexOf(u'\n');
    const bool windowFile = firstEnd > 0 && text[firstEnd - 1] == u'\r';
    std::vector<ResultRow> rows;
    qsizetype i = 0;
    int lineNumber = 0;
    while (i < text.size()) {
        ++lineNumber;
        QStringList fields;
        QString field;
        bool quoted = false;
        bool inQuotes = false;
        for (; i < text.size(); ++i) {
            const QChar c = text[i];
            if (inQuotes) {
                if (c == u'"' && i + 1 < text.size() && text[i + 1] == u'"')
                    field += text[++i];
                else if (c == u'"')
                    inQuotes = false;
                else
                    field += c;
            } else if (c == u'"' && field.isEmpty() && !quoted && !windowFile) {
                inQuotes = quoted = true;
            } else if (c == u',') {
                fields << std::exchange(field, QString());
                quoted = false;
            } else if (c == u'\n') {
                ++i;
                break;
            } else if (c != u'\r') {
                field += c;
            }
        }
        fields << field;
        if (fields.size() == 1 && fields[0].isEmpty())
            continue;
        // word,count,titles from the command-line tool; else the word is all before the last
        // comma, as the window writes a word that holds commas.
        if (!windowFile && fields.size() == 3 && IsCount(fields[1]) && IsCount(fields[2]))
            fields.removeLast();
        const QString count = fields.size() >= 2 ? fields.takeLast() : QString();
        if (!IsCount(count)) {
            error = QStringLiteral("line %1 is not word,count").arg(lineNumber);
            return std::nullopt;
        }
        rows.push_back({fields.join(u','), count});
    }
    return rows;
}

QString WordChangeName(WordChange change) {
    switch (change) {
    case WordChange::Rose:
        return QStringLiteral("rose");
    case WordChange::Fell:
        return QStringLiteral("fell");
    case WordChange::New:
        return QStringLiteral("new");
    case WordChange::Gone:
        return QStringLiteral("gone");
    case WordChange::Same:
        break;
    }
    return QStringLiteral("same");
}

std::vector<DiffRow> DiffLists(const std::vector<ResultRow>& a, const std::vector<ResultRow>& b) {
    std::vector<DiffRow> rows;
    QHash<QString, size_t> index;
    index.reserve(qsizetype(a.size() + b.size()));
    for (size_t i = 0; i < a.size(); ++i) {
        if (index.contains(a[i].word))
            continue;
        index.insert(a[i].word, rows.size());
        rows.push_back({a[i].word, WordChange::Gone, qsizetype(i) + 1, a[i].count.toLongLong(), 0, 0});
    }
    for (size_t i = 0; i < b.size(); ++i) {
        const auto found = index.constFind(b[i].word);
        if (found == index.cend()) {
            index.insert(b[i].word, rows.size());
            rows.push_back({b[i].word, WordChange::New, 0, 0, qsizetype(i) + 1, b[i].count.toLongLong()});
            continue;
        }
        DiffRow& row = rows[*found];
        if (row.rankB != 0)
            continue;
        row.rankB = qsizetype(i) + 1;
        row.countB = b[i].count.toLongLong();
        row.change = row.countB > row.countA   ? WordChange::Rose
                     : row.countB < row.countA ? WordChange::Fell
                                               : WordChange::Same;
    }
    std::sort(rows.begin(), rows.end(), [](const DiffRow& x, const DiffRow& y) {
        if (x.change != y.change)
            return x.change < y.change;
        const qint64 dx = x.countB - x.countA;
        const qint64 dy = y.countB - y.countA;
        switch (x.change) {
        case WordChange::Rose:
            return dx != dy ? dx > dy : x.rankB < y.rankB;
        case WordChange::Fell:
            return dx != dy ? dx < dy : x.rankA < y.rankA;
        case WordChange::Gone:
            return x.rankA < y.rankA;
        default:
            return x.rankB < y.rankB;
        }
    });
    return rows;
}

std::vector<SiteRow> CompareSites(const std::vector<ResultRow>& a, const std::vector<ResultRow>& b) {
    const auto total = [](const std::vector<ResultRow>& list) {
        qint64 sum = 0;
        for (const ResultRow& row : list)
            sum += row.count.toLongLong();
        return sum;
    };
    const double totalA = double(total(a));
    const double totalB = double(total(b));
    std::vector<SiteRow> rows;
    QHash<QString, size_t> index;
    for (const ResultRow& row : a) {
        if (index.contains(row.word))
            continue;
        index.insert(row.word, rows.size());
        rows.push_back(
            {row.word, row.count.toLongLong(), 100.0 * double(row.count.toLongLong()) / totalA, 0, 0});
    }
    for (const ResultRow& row : b) {
        const auto found = index.constFind(row.word);
        SiteRow* site = nullptr;
        if (found == index.cend()) {
            index.insert(row.word, rows.size());
            rows.push_back({row.word, 0, 0, 0, 0});
            site = &rows.back();
        } else if (rows[*found].countB == 0) {
            site = &rows[*found];
        }
        if (site) {
            site->countB = row.count.toLongLong();
            site->shareB = 100.0 * double(site->countB) / totalB;
        }
    }
    std::stable_sort(rows.begin(), rows.end(), [](const SiteRow& x, const SiteRow& y) {
        return x.shareA + x.shareB > y.shareA + y.shareB;
    });
    return rows;
}
