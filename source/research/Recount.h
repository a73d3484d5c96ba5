#pragma once

#include <QString>
#include <vector>

struct SnapshotTitle;

// Counts the titles again through the tally, as a search in a fresh process counts them: the
// tally's records cleared, the exclusion list read from the file, the table reset, then each
// title in its order. No page is loaded and the event loop is not turned.
void RecountTitles(const std::vector<SnapshotTitle>& titles, const QString& exclusionPath);
