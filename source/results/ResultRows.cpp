#include "ResultRows.h"

#include "modMain.h"

#include <algorithm>

std::vector<ResultRow> ResultRowsInListOrder() {
    const KeywordGrid& table = HarvestState.KeywordTable;
    std::vector<ResultRow> rows;
    std::vector<qint64> counts;
    rows.reserve(size_t(table.LastEntry()));
    for (qsizetype n = 1; n <= table.LastEntry(); ++n) {
        rows.push_back({table.Word(n).toLower(), table.Count(n)});
        counts.push_back(table.Count(n).toLongLong());
    }
    std::vector<size_t> order(rows.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return counts[a] > counts[b]; });
    std::vector<ResultRow> sorted;
    sorted.reserve(rows.size());
    for (size_t i : order)
        sorted.push_back(std::move(rows[i]));
    return sorted;
}

SummaryCaptions CaptionsForPath(const QString& selectedPath) {
    const QStringList parts = selectedPath.split(u'~');
    switch (parts.size()) {
    case 1:
        return {QStringLiteral("All Categories"), QStringLiteral("All Categories")};
    case 2:
        return {parts[1], QStringLiteral("All Sub Categories")};
    case 3:
        return {parts[1], parts[2]};
    default:
        return {};
    }
}
