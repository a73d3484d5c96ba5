#include "ResultRows.h"

#include "modMain.h"

#include <algorithm>

std::vector<qsizetype> EntriesInListOrder(const KeywordGrid& table) {
    std::vector<qint64> counts(size_t(table.LastEntry()) + 1);
    std::vector<qsizetype> order;
    order.reserve(size_t(table.LastEntry()));
    for (qsizetype n = 1; n <= table.LastEntry(); ++n) {
        counts[size_t(n)] = table.CountValue(n);
        order.push_back(n);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](qsizetype a, qsizetype b) { return counts[size_t(a)] > counts[size_t(b)]; });
    return order;
}

std::vector<ResultRow> ResultRowsInListOrder(const KeywordGrid& table) {
    std::vector<ResultRow> rows;
    rows.reserve(size_t(table.LastEntry()));
    for (const qsizetype n : EntriesInListOrder(table))
        rows.push_back({table.Word(n).toLower(), table.Count(n)});
    return rows;
}

std::vector<ResultRow> ResultRowsInListOrder() {
    return ResultRowsInListOrder(HarvestState.KeywordTable);
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
