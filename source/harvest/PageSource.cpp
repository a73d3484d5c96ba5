#include "PageSource.h"

#include "HttpPageSource.h"

namespace {

PageSource*& ChosenSource() {
    static PageSource* source = nullptr;
    return source;
}

} // namespace

QString PageFailureName(PageFailure failure) {
    switch (failure) {
    case PageFailure::None:
        break;
    case PageFailure::HttpError:
        return QStringLiteral("http_error");
    case PageFailure::TimedOut:
        return QStringLiteral("timed_out");
    case PageFailure::Network:
        return QStringLiteral("network");
    case PageFailure::Refused:
        return QStringLiteral("refused");
    case PageFailure::Aborted:
        return QStringLiteral("aborted");
    }
    return QStringLiteral("none");
}

PageSource& DefaultPageSource() {
    static HttpPageSource http;
    PageSource* chosen = ChosenSource();
    return chosen ? *chosen : http;
}

void SetDefaultPageSource(PageSource* source) {
    ChosenSource() = source;
}
