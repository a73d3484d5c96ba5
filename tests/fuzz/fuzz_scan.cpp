// The listing scan of any page as the first page of a sub-category: the page count, the auction
// links and the tally of their titles, with and without an auction limit.
#include "FuzzTarget.h"
#include "MemoryPageSource.h"
#include "modParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    static MemoryPageSource* const source = [] {
        FuzzSetUp();
        auto* pages = new MemoryPageSource;
        SetDefaultPageSource(pages);
        return pages;
    }();
    const QString url =
        QStringLiteral("http://listings.ebay.com/Coins-World_W0QQsacatZ11001QQsorecordsperpageZ50");
    const QByteArray page = FuzzBytes(data, size);
    source->Set(url, page);
    source->ClearRequested();
    ReadPageCount(QString::fromLatin1(page));
    HarvestState = HarvestRecord();
    HarvestState.MaxAuctions = size % 2 ? 20000 : 3;
    ScanListingPage(url);
    FUZZ_CHECK(HarvestState.AuctionsScanned <= HarvestState.MaxAuctions);
    FUZZ_CHECK(HarvestState.KeywordsFound == HarvestState.KeywordTable.LastEntry());
    return 0;
}
