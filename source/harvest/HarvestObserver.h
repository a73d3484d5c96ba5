#pragma once

#include "PageSource.h"

#include <QString>
#include <QStringList>

// One listing page as the scan met it.
struct ScannedPage {
    QString url;
    int httpStatus = 0;
    PageFailure failure = PageFailure::None;
    // Auction links the walk counted on the page.
    int auctionLinks = 0;
    // False when a stop dropped the page unread after its load.
    bool walked = false;
    // False when a stop or the auction limit left the walk before the page's last link.
    bool walkedToEnd = false;
    // For a page of the site's API: the failure as the service worded it, and whether the page was
    // the last the service gives because of its offset cap while more auctions were there.
    QString serviceMessage;
    bool offsetCapReached = false;
};

// Whoever watches a run from outside: the command-line tool's report and its loads ahead. The run
// only tells and never asks, so a watcher cannot change the walk.
class HarvestObserver {
public:
    virtual ~HarvestObserver() = default;
    // The listing URLs the run will scan next, in their order, as soon as the run knows them;
    // each call replaces the last.
    virtual void PagesAhead(const QStringList& urls) = 0;
    // Once for every page that was asked for, behind its walk.
    virtual void PageScanned(const ScannedPage& page) = 0;
};

// None by default, as in the window: the run then works out no upcoming URL at all.
void SetHarvestObserver(HarvestObserver* observer);
HarvestObserver* CurrentHarvestObserver();
