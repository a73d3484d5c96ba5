#pragma once

#include <QString>
#include <cstdint>

// The search of today's site through its Browse API, beside the listing scan: a catalogue entry
// whose URL is a search address is read as JSON pages, each title going to the same tally. The one
// difference from listing pages: paging follows the service, up to 200 titles a page by offset
// instead of 50 a page by page number. Scopes, the limit, Stop and its yields are the run's own.

// The service gives no title past this offset, whatever its total says.
constexpr int ApiOffsetCap = 10000;
constexpr int ApiPageSize = 200;

// Whether the URL is a Browse API search address on the canonical host or on MARQUILL_EBAY_API's;
// the same path elsewhere is an ordinary page.
bool IsApiSearchUrl(const QString& url);
// The search address of a category's auctions, on the canonical host, 200 a page.
QString ApiSearchUrl(const QString& categoryId);
// Page n (from 1) of a search: the first page's offset plus (n - 1) times its limit.
QString ApiResultPageUrl(std::int16_t pageNumber, const QString& firstPageUrl);
// One page of a search, as ScanListingPage reads one listing page. On the first page it sets
// PageCount from the service's total, within the offset cap. A failure of the service is told to
// the user in the service's words and ends the run, since every page after it would fail alike.
void ScanApiPage(const QString& url);
