#include "RunHealth.h"

#include "ApiScan.h"

#include <QJsonArray>

namespace {

QString ScopeName(SearchScope scope) {
    switch (scope) {
    case ScopeAllCategories:
        return QStringLiteral("all categories");
    case ScopeMainCategory:
        return QStringLiteral("main category");
    case ScopeSubCategory:
        return QStringLiteral("sub-category");
    default:
        return QStringLiteral("none");
    }
}

} // namespace

RunHealth::RunHealth(std::function<void(const QStringList&)> pagesAhead)
    : m_pagesAhead(std::move(pagesAhead)) {}

void RunHealth::PagesAhead(const QStringList& urls) {
    if (m_pagesAhead)
        m_pagesAhead(urls);
}

void RunHealth::PageScanned(const ScannedPage& page) {
    const bool later = m_requested > 0;
    ++m_requested;
    if (page.httpStatus != 0)
        ++m_answered;
    if (page.httpStatus >= 400)
        ++m_httpErrors[page.httpStatus];
    if (page.failure == PageFailure::TimedOut)
        ++m_timeouts;
    if (page.failure == PageFailure::Network || page.failure == PageFailure::Refused)
        ++m_networkFailures;
    if (page.failure != PageFailure::None && page.failure != PageFailure::Aborted)
        m_failed << page;
    if (!page.serviceMessage.isEmpty() && m_serviceError.isEmpty())
        m_serviceError = page.serviceMessage;
    m_offsetCap = m_offsetCap || page.offsetCapReached;
    if (!page.walkedToEnd)
        return;
    const bool empty = page.auctionLinks == 0;
    if (empty)
        ++m_withoutAuctions;
    if (later) {
        ++m_laterWalked;
        if (empty) {
            ++m_laterEmpty;
            if (m_firstLaterEmpty.isEmpty())
                m_firstLaterEmpty = page.url;
        }
    }
}

void RunHealth::Start(SearchScope scope) {
    m_scope = scope;
    m_timer.start();
}

void RunHealth::Finish(int unasked) {
    m_seconds = double(m_timer.nsecsElapsed()) / 1e9;
    // ScanHalted is raised only by a stop or by the limit.
    m_ending = !m_serviceError.isEmpty()                ? Ending::ServiceError
               : HarvestState.StopRequested == FlagTrue ? Ending::Stop
               : HarvestState.ScanHalted == FlagTrue    ? Ending::Limit
                                                        : Ending::End;
    m_auctions = HarvestState.AuctionsScanned;
    m_words = HarvestState.KeywordsFound;
    m_unasked = unasked;
}

QJsonObject RunHealth::ToJson() const {
    QJsonObject errors;
    for (auto it = m_httpErrors.cbegin(); it != m_httpErrors.cend(); ++it)
        errors.insert(QString::number(it.key()), it.value());
    QJsonArray failed;
    for (const ScannedPage& page : m_failed) {
        QJsonObject entry{{QStringLiteral("url"), page.url},
                          {QStringLiteral("status"), page.httpStatus},
                          {QStringLiteral("failure"), PageFailureName(page.failure)}};
        if (!page.serviceMessage.isEmpty())
            entry.insert(QStringLiteral("message"), page.serviceMessage);
        failed.append(entry);
    }
    static const char* const endings[] = {"end", "limit", "stop", "service_error"};
    return QJsonObject{
        {QStringLiteral("scope"), ScopeName(m_scope)},
        {QStringLiteral("ended_by"), QLatin1StringView(endings[int(m_ending)])},
        {QStringLiteral("pages_requested"), m_requested},
        {QStringLiteral("pages_answered"), m_answered},
        {QStringLiteral("http_errors"), errors},
        {QStringLiteral("timeouts"), m_timeouts},
        {QStringLiteral("network_failures"), m_networkFailures},
        {QStringLiteral("failed_pages"), failed},
        {QStringLiteral("pages_without_auctions"), m_withoutAuctions},
        {QStringLiteral("first_later_page_without_auctions"),
         m_firstLaterEmpty.isEmpty() ? QJsonValue() : QJsonValue(m_firstLaterEmpty)},
        {QStringLiteral("mostly_empty"), !EmptyPagesWarning().isEmpty()},
        {QStringLiteral("pages_loaded_ahead_unused"), m_unasked},
        {QStringLiteral("auctions_counted"), m_auctions},
        {QStringLiteral("distinct_words"), m_words},
        {QStringLiteral("seconds"), qRound(m_seconds * 1000) / 1000.0},
        {QStringLiteral("service_error"),
         m_serviceError.isEmpty() ? QJsonValue() : QJsonValue(m_serviceError)},
        {QStringLiteral("offset_cap_reached"), m_offsetCap},
    };
}

QString RunHealth::Summary() const {
    QStringList errors;
    for (auto it = m_httpErrors.cbegin(); it != m_httpErrors.cend(); ++it)
        errors << QStringLiteral("%1 x%2").arg(it.key()).arg(it.value());
    static const char* const endings[] = {"its end", "its limit", "a stop", "a failure of the site's API"};
    return QStringLiteral(
               "Run: %1 pages requested, %2 answered, HTTP errors: %3, %4 time-outs, %5 without an "
               "auction link; %6 auctions, %7 words in %8 s; %9 walk ended by %10")
        .arg(m_requested)
        .arg(m_answered)
        .arg(errors.isEmpty() ? QStringLiteral("none") : errors.join(QStringLiteral(", ")))
        .arg(m_timeouts)
        .arg(m_withoutAuctions)
        .arg(m_auctions)
        .arg(m_words)
        .arg(m_seconds, 0, 'f', 1)
        .arg(ScopeName(m_scope), QLatin1StringView(endings[int(m_ending)]));
}

QString RunHealth::EmptyPagesWarning() const {
    if (m_laterWalked == 0 || m_laterEmpty * 2 <= m_laterWalked)
        return QString();
    return QStringLiteral(
               "warning: %1 of %2 listing pages after the first held no auction link. The site may "
               "have changed its page layout, answered with a block page, or a proxy may have "
               "answered with its own error page. The first such page: %3")
        .arg(m_laterEmpty)
        .arg(m_laterWalked)
        .arg(m_firstLaterEmpty);
}

QString RunHealth::OffsetCapWarning() const {
    if (!m_offsetCap)
        return QString();
    return QStringLiteral("warning: the site's API gives no more than the first %1 auctions of a category "
                          "(its offset cap); the walk stopped there.")
        .arg(ApiOffsetCap);
}
