#pragma once

// Hosts and tests that set the hooks also point the program at its files.
#include "DataPaths.h"

#include <QString>
#include <functional>

// What the core needs of whoever hosts it: the main window, the command-line tool or a test.
// The core never includes a widget header; it reaches the windows only through these.
struct HostHooks {
    // The text of cboSite: the SiteLabel of the moment.
    std::function<QString()> SiteLabel;
    // The caption of lblMainTotal, the progress line of a search and a refresh.
    std::function<void(const QString&)> SetMainTotalCaption;
    // One turn of the event loop, so that pending events run before the caller goes on.
    std::function<void()> Yield;
    // The wait while a page loads: sleeps in the event loop until the next event arrives.
    std::function<void()> WaitForEvents;
    // A message box: text, style (0 OK, 16 OK critical, 20 Yes/No critical), title (empty: the
    // application's title). Returns 6 for Yes, 7 for No, 1 for OK.
    std::function<int(const QString& text, int style, const QString& title)> MsgBox;
    // The exclusion file could not be read; the search goes on excluding nothing.
    std::function<void(const QString& path)> ExclusionFileUnreadable;
    // The screen's mouse pointer: 11 the wait cursor, 0 the default.
    std::function<void(int pointer)> SetMousePointer;
    // Hide txtlblRefreshingCategories, txtlblGettingKeywords and fraFeedBack.
    std::function<void()> HideFeedback;
    // Show txtlblRefreshingCategories, txtlblGettingKeywords and fraFeedBack.
    std::function<void()> ShowRefreshFeedback;
    // Whether txtlblGettingKeywords is visible, the stop command's sign that a run is on.
    std::function<bool()> GettingKeywordsVisible;
    // The ListIndex of cboMaxAuctions; setting it raises no event of the core's.
    std::function<int()> MaxAuctionsIndex;
    std::function<void(int index)> SetMaxAuctionsIndex;
    // The category tree has been rebuilt (CurrentCategoryTree() holds the new one).
    std::function<void()> CategoryTreeRefilled;
    // The caption of cmdStopSearch: "Stop Search" or "Stop Refresh".
    std::function<void(const QString&)> SetStopCaption;
};

// The hooks of this process. ResetHooks() installs the defaults: a plain event-loop yield and
// wait, the US site, a message box that answers No/OK and prints to standard error, and no-ops.
HostHooks& Hooks();
void ResetHooks();
