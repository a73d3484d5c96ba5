#pragma once

#include <QString>
#include <vector>

struct SnapshotTitle;

// The tally's records as a fresh process has them: the texts that only grow emptied and the
// counters at 0, so that a second count in one process is the count of a first.
void ClearTallyRecords();

// Counts the titles again through the tally, as a search in a fresh process counts them: the
// tally's records cleared, the exclusion list read from the file, the table reset, then each
// title in its order. No page is loaded and the event loop is not turned.
void RecountTitles(const std::vector<SnapshotTitle>& titles, const QString& exclusionPath);
