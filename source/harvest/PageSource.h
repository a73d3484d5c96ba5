#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <memory>

// Why a load gave no page, or gave an error page; the reports of the command-line tool and the
// refresh read it, the scans never do.
enum class PageFailure {
    None,
    // The server answered with a status of 400 or more; its body is still the page.
    HttpError,
    // Silence or the whole load went on past its bound.
    TimedOut,
    // No answer: refused or reset connection, unknown host, broken transfer, redirect loop.
    Network,
    // A URL that is not http or https, or has no host: nothing was asked for.
    Refused,
    // The load was abandoned by a Stop or a Quit.
    Aborted,
};

// The failure's name in reports: none, http_error, timed_out, network, refused, aborted.
QString PageFailureName(PageFailure failure);

// The answer to one page load.
struct PageResponse {
    QByteArray body;
    // The charset that the server named in its Content-Type header; empty when it named none.
    QString httpCharset;
    // The URL the body came from, after redirects; relative links resolve against it.
    QUrl finalUrl;
    // False after an error, a time-out or a refused URL; the body may still hold what came.
    bool ok = false;
    // The HTTP status of the last answer, 0 when none came.
    int httpStatus = 0;
    PageFailure failure = PageFailure::None;
};

// One load in progress. Destroying it abandons the load.
class PageLoad {
public:
    virtual ~PageLoad() = default;
    virtual bool IsFinished() const = 0;
    // The response, once IsFinished(); may be called once.
    virtual PageResponse TakeResponse() = 0;
};

// Where pages come from: HTTP for the program, stored files for unit tests.
class PageSource {
public:
    virtual ~PageSource() = default;
    virtual std::unique_ptr<PageLoad> Start(const QUrl& url) = 0;
};

// The source that BrowserPage uses when none is given: HTTP unless a host set another.
PageSource& DefaultPageSource();
void SetDefaultPageSource(PageSource* source); // null restores HTTP
