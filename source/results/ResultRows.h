#pragma once

#include <QString>
#include <QStringList>
#include <vector>

class KeywordGrid;

// One row of the result list: the word in lower case and its count as the table holds it.
struct ResultRow {
    QString word;
    QString count;
    // The number of distinct titles that hold the word, where that was asked for; else -1.
    qint64 titles = -1;
};

// The entries of a table in the list's order: highest count first, entries of equal count in
// the order in which they were first met.
std::vector<qsizetype> EntriesInListOrder(const KeywordGrid& table);

// The rows of a table in the list's order; without a table, the search's KeywordTable.
std::vector<ResultRow> ResultRowsInListOrder(const KeywordGrid& table);
std::vector<ResultRow> ResultRowsInListOrder();

// The main and sub captions of the summary for a searched FullPath.
struct SummaryCaptions {
    QString main;
    QString sub;
};
SummaryCaptions CaptionsForPath(const QString& selectedPath);
