#pragma once

#include "harvest/modMain.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "platform/ScreenPointer.h"
#include "results/CommonDialog.h"
#include "results/frmSummary.h"

#include <QLineEdit>
#include <QPair>
#include <QTreeWidget>
#include <QVector>

// Fills the keyword table as a search leaves it: words as first met, counts as decimal text.
inline void FillKeywordTable(const QVector<QPair<QString, int>>& entries) {
    HarvestState.KeywordTable.Reset();
    for (const auto& [word, count] : entries) {
        const qsizetype column = HarvestState.KeywordTable.Add(word, word.toUpper());
        HarvestState.KeywordTable.SetCount(column, count);
    }
    HarvestState.KeywordsFound = std::int32_t(entries.size());
}

// n distinct words "wordN", each with its own count, so the list order is known.
inline void FillDistinctWords(int n) {
    QVector<QPair<QString, int>> entries;
    for (int i = 1; i <= n; ++i)
        entries.append({QStringLiteral("word%1").arg(i), i});
    FillKeywordTable(entries);
}

// Every seam back to its state of a fresh process, with message boxes answered in advance.
inline void ResetSummarySeams() {
    ResetHooks();
    MessageBox::Reset();
    MessageBox::SetAnswersSupplied(true);
    CommonDialog::Reset();
    ScreenPointer::Set(ScreenPointer::Default);
    HarvestState.SelectedPath.clear();
    HarvestState.KeywordsFound = 0;
    HarvestState.KeywordTable.Reset();
}

inline QTreeWidget* ResultList(frmSummary& summary) {
    return summary.findChild<QTreeWidget*>(QStringLiteral("lvwResults"));
}

// The rows as the user sees them, "word,count".
inline QStringList ShownRows(frmSummary& summary) {
    QStringList rows;
    const QTreeWidget* list = ResultList(summary);
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        rows << list->topLevelItem(i)->text(0) + QLatin1Char(',') + list->topLevelItem(i)->text(1);
    return rows;
}
