#pragma once

#include <QString>
#include <QStringList>
#include <vector>

// One row of the result list: the word in lower case and its count as the table holds it.
struct ResultRow {
    QString word;
    QString count;
};

// The rows of the keyword table in the list's order: highest count first, words of equal count
// in the order in which they were first met.
std::vector<ResultRow> ResultRowsInListOrder();

// The main and sub captions of the summary for a searched FullPath.
struct SummaryCaptions {
    QString main;
    QString sub;
};
SummaryCaptions CaptionsForPath(const QString& selectedPath);
