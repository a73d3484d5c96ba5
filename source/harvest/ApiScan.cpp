#include "ApiScan.h"

#include "ApiClient.h"
#include "HarvestObserver.h"
#include "HostHooks.h"
#include "modMain.h"
#include "modParser.h"

#include <QJsonArray>
#include <QUrl>
#include <QUrlQuery>

namespace {

const QString SearchPath = QStringLiteral("/buy/browse/v1/item_summary/search");

bool stopRequested() {
    return HarvestState.StopRequested == FlagTrue;
}

int limitOf(const QUrl& url) {
    bool ok = false;
    const int limit = QUrlQuery(url).queryItemValue(QStringLiteral("limit")).toInt(&ok);
    // The service's own default page size.
    return ok && limit > 0 ? limit : 50;
}

} // namespace

bool IsApiSearchUrl(const QString& url) {
    // Only the service's own host, or the one the user named: the token goes with every request.
    const auto under = [&url](const QString& base) {
        return url.startsWith(base + SearchPath, Qt::CaseInsensitive) &&
               (url.size() == base.size() + SearchPath.size() ||
                url.at(base.size() + SearchPath.size()) == u'?');
    };
    return under(ApiClient::CanonicalBase) || under(ApiClient::ServiceBase());
}

QString ApiSearchUrl(const QString& categoryId) {
    return ApiClient::CanonicalBase + SearchPath + QStringLiteral("?category_ids=") + categoryId +
           QStringLiteral("&filter=buyingOptions:%7BAUCTION%7D&limit=") + QString::number(ApiPageSize);
}

QString ApiResultPageUrl(std::int16_t pageNumber, const QString& firstPageUrl) {
    QUrl url(firstPageUrl);
    QUrlQuery query(url);
    const qint64 offset = QUrlQuery(url).queryItemValue(QStringLiteral("offset")).toLongLong() +
                          qint64(pageNumber - 1) * limitOf(url);
    query.removeAllQueryItems(QStringLiteral("offset"));
    query.addQueryItem(QStringLiteral("offset"), QString::number(offset));
    url.setQuery(query);
    return url.toString(QUrl::FullyEncoded);
}

void ScanApiPage(const QString& url) {
    // The limit met on the first page's last title still lets the run ask for the second page;
    // a listing page would end at its first link, before any auction, so this one is not asked for.
    if (stopRequested() || HarvestState.ScanHalted == FlagTrue)
        return;
    HarvestObserver* observer = CurrentHarvestObserver();
    ScannedPage seen;
    seen.url = url;
    const ApiReply reply = ApiClient::Process().Get(url, MarketplaceOf(Hooks().SiteLabel()));
    seen.httpStatus = reply.httpStatus;
    seen.failure = stopRequested() ? PageFailure::Aborted : reply.failure;
    if (!reply.Ok() || stopRequested()) {
        if (seen.failure != PageFailure::Aborted) {
            seen.serviceMessage = reply.message;
            HarvestState.ScanHalted = FlagTrue;
            Hooks().MsgBox(reply.message, 16, QString());
        }
        if (observer)
            observer->PageScanned(seen);
        return;
    }
    const QJsonArray items = reply.json.value(QStringLiteral("itemSummaries")).toArray();
    const qint64 total = reply.json.value(QStringLiteral("total")).toInteger();
    const qint64 offset = reply.json.value(QStringLiteral("offset")).toInteger();
    const qint64 limit =
        std::max<qint64>(1, reply.json.value(QStringLiteral("limit")).toInteger(limitOf(QUrl(url))));
    if (HarvestState.PageCount == 0) {
        const qint64 readable = std::min<qint64>(total, ApiOffsetCap);
        const qint64 pages = std::max<qint64>(0, (readable - offset + limit - 1) / limit);
        HarvestState.PageCount = std::int16_t(std::min<qint64>(pages, INT16_MAX));
    }
    seen.walked = true;
    seen.walkedToEnd = true;
    for (qsizetype i = 0; i < items.size(); ++i) {
        Hooks().Yield();
        if (stopRequested()) {
            HarvestState.ScanHalted = FlagTrue;
            seen.walkedToEnd = false;
            break;
        }
        ++HarvestState.AuctionsScanned;
        ++seen.auctionLinks;
        TallyTitle(items[i][QStringLiteral("title")].toString());
        if (WalkEndsAfterItem(seen, i + 1 == items.size()))
            break;
    }
    // The last page the service gives while its total goes on: the rest is past its offset cap.
    seen.offsetCapReached = seen.walkedToEnd && HarvestState.ScanHalted != FlagTrue &&
                            !reply.json.contains(QStringLiteral("next")) && offset + items.size() < total;
    if (observer)
        observer->PageScanned(seen);
}
