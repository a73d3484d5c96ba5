#include "Recount.h"

#include "HostHooks.h"
#include "TitleSnapshot.h"
#include "modMain.h"
#include "modParser.h"

void ClearTallyRecords() {
    HarvestState.ExclusionText.clear();
    HarvestState.ExclusionIndex.Clear();
    HarvestState.SeenKeywords.clear();
    HarvestState.KeywordsFound = 0;
    HarvestState.AuctionsScanned = 0;
}

void RecountTitles(const std::vector<SnapshotTitle>& titles, const QString& exclusionPath) {
    ClearTallyRecords();
    HarvestState.StopRequested = FlagFalse;
    LoadExclusionsFrom(exclusionPath);
    ResetKeywordTable();
    // Nothing waits on the network here, and a turn of the loop at every word would cost more
    // than the count itself.
    const std::function<void()> yield = std::exchange(Hooks().Yield, [] {});
    for (const SnapshotTitle& title : titles) {
        ++HarvestState.AuctionsScanned;
        TallyTitle(title.title);
    }
    Hooks().Yield = yield;
}
