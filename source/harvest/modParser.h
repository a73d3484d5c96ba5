#pragma once

#include "modMain.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <memory>

class CategoryNode;
class CategoryTree;

// The harvest run: walks the part of the tree that the scope stands for and scans each listing
// page. The tree is held for the length of the run, so that a refill during a stop cannot pull
// the nodes away; after a confirmed stop the run reads no node and ends.
void RunHarvest(SearchScope scope, const QString& url, std::shared_ptr<const CategoryTree> tree,
                const CategoryNode* selected);

// The scope from a node's FullPath: 1, 2 or 3 by the number of "~" fields; 0 for more.
SearchScope ScopeOfPath(const QString& fullPath);

// A copy of the URL asking for 50 records a page where it asked for 200.
QString PrepareListingUrl(const QString& url);

// The listing scan.
void ScanListingPage(const QString& url);
Flag ScanResultPage(std::int16_t pageNumber, const QString& firstPageUrl);
// The URL of a result page from the first page's: "QQlopgZ" and the number in front of
// "QQsacat". Empty when the URL has no "QQsacat".
QString ResultPageUrl(std::int16_t pageNumber, const QString& firstPageUrl);
std::int16_t ReadPageCount(const QString& outerHtml);

// The keyword tally.
// Whether the run has scanned as many auctions as its limit allows; a walk ends at once then.
bool AuctionLimitReached();

struct ScannedPage;
// After an item of a page's walk, whether the walk ends there: on a stop, or at the auction limit,
// which still leaves the page walked to its end when met at its last item.
bool WalkEndsAfterItem(ScannedPage& seen, bool lastItem);
// A word file's text (the exclusion list, a results file): UTF-8 when it is valid UTF-8, else
// Latin-1, the 8-bit code page that the old files were written in; a leading BOM dropped.
QString DecodeWordFile(const QByteArray& bytes);
void LoadExclusions();
// The same from another file, for a recount with a list of the user's choice.
void LoadExclusionsFrom(const QString& path);
void ResetKeywordTable();
void TallyTitle(const QString& title);
bool IsKeywordSeen(const QString& upperWord);
