#pragma once

#include "harvest/PageSource.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <vector>

// The category refresh: rebuilds the selected site's share of the category file from the site's
// category index page and the pages of its main categories.

// How a refresh ended, for the host that started it (the command-line tool turns it into its
// exit code and report; the window needs nothing of it).
enum class RefreshOutcome {
    // The crawl ran to its end and found at least one main category.
    Completed,
    // The user stopped it after at least one find: what was found is kept.
    Stopped,
    // The crawl found no main category; the site's former entries were put back.
    NothingFound,
    // The category file could not be opened, or not written: no crawl, the site's entries untouched.
    CannotOpen,
    // A bound ended the crawl: an index page with more "See all" links than a refresh takes (the
    // former entries put back), or more finds than a refresh takes (the finds kept).
    Limited,
};

// A category page that did not load: the crawl went on without what it would have given.
struct FailedPage {
    QString Url;
    PageFailure Failure = PageFailure::None;
    int HttpStatus = 0;
    // The site's category index page; otherwise a main category's page, whose sub-categories
    // were not read.
    bool IsIndex = false;
};

struct RefreshResult {
    RefreshOutcome Outcome = RefreshOutcome::Completed;
    // The finds that reached the file.
    std::int32_t MainCount = 0;
    std::int32_t SubCount = 0;
    std::vector<FailedPage> FailedPages;
    // A save was refused (a full disk, a size limit): the crawl ended at it.
    bool SaveFailed = false;
    // The message the refresh showed at its end, if any.
    QString Message;
};

// What one crawl found.
struct CrawlResult {
    std::int32_t MainCount = 0;
    std::int32_t SubCount = 0;
    bool Stopped = false;
    bool SaveFailed = false;
    // Whether a bound ended it, and which.
    bool TooManySeeAllLinks = false;
    bool TooManyFinds = false;
    std::vector<FailedPage> FailedPages;
};

// The bounds of one crawl against hostile or broken pages; settable for tests.
struct CrawlBounds {
    std::int32_t SeeAllLinks = 10000;
    std::int32_t Finds = 100000;
};
CrawlBounds& RefreshBounds();

// The click on cmdRefresh. The host disables cboSite, cmdGetKeywords and cmdRefresh around the
// call, so no search, second refresh or change of site runs inside the crawl's yields.
RefreshResult RefreshCategories();

// Makes txtlblRefreshingCategories, txtlblGettingKeywords and fraFeedBack visible.
void ShowRefreshFeedback();

// Walks the index page at listingsBaseUrl and each main category's page, and adds every find to
// the open category file at once. Writes lblMainTotal; reads StopRequested only after its yields.
CrawlResult CrawlCategories(const QString& listingsBaseUrl);

// The main category's name in the text of a See-all link ("See all Toys categories" gives "Toys").
QString CategoryNameFromLink(const QString& linkText);

// The URL up to and including the closing slash of the current site's domain marker; empty when
// the marker is not in it.
QString SiteRootOfUrl(const QString& url);

// One line for a failed page, as the command-line tool lists them.
QString FailedPageText(const FailedPage& page);
// The refresh's report for --report: outcome, finds, failed pages and saves, as JSON.
QByteArray RefreshReportJson(const RefreshResult& result, const QString& siteLabel);
