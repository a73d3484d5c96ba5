#pragma once

#include <QString>
#include <cstdint>

// The category refresh: rebuilds the selected site's share of the category file from the site's
// category index page and the pages of its main categories.

// How a refresh ended, for the host that started it (the command-line tool turns it into its
// exit code; the window needs nothing of it).
enum class RefreshOutcome {
    // The crawl ran to its end and found at least one main category.
    Completed,
    // The user stopped it after at least one find: what was found is kept.
    Stopped,
    // The crawl found no main category; the site's former entries were put back.
    NothingFound,
    // The category file could not be opened: no crawl, the site's entries untouched.
    CannotOpen,
};

struct RefreshResult {
    RefreshOutcome Outcome = RefreshOutcome::Completed;
    std::int32_t MainCount = 0;
    std::int32_t SubCount = 0;
};

// What one crawl found.
struct CrawlResult {
    std::int32_t MainCount = 0;
    std::int32_t SubCount = 0;
    bool Stopped = false;
};

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
