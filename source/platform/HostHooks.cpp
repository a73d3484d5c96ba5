#include "HostHooks.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <cstdio>

namespace {

HostHooks makeDefaults() {
    HostHooks h;
    h.SiteLabel = [] { return QStringLiteral("ebay.com"); };
    h.SetMainTotalCaption = [](const QString&) {};
    h.Yield = [] { QCoreApplication::processEvents(); };
    h.WaitForEvents = [] { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); };
    h.MsgBox = [](const QString& text, int style, const QString&) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(text));
        return style == 20 ? 7 : 1;
    };
    h.ExclusionFileUnreadable = [](const QString& path) {
        std::fprintf(stderr, "Cannot open %s\n", qUtf8Printable(path));
    };
    h.SetMousePointer = [](int) {};
    h.HideFeedback = [] {};
    h.ShowRefreshFeedback = [] {};
    h.GettingKeywordsVisible = [] { return false; };
    h.MaxAuctionsIndex = [] { return 2; };
    h.SetMaxAuctionsIndex = [](int) {};
    h.CategoryTreeRefilled = [] {};
    h.SetStopCaption = [](const QString&) {};
    return h;
}

} // namespace

HostHooks& Hooks() {
    static HostHooks hooks = makeDefaults();
    return hooks;
}

void ResetHooks() {
    Hooks() = makeDefaults();
}
