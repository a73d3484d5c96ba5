#include "ApiCategories.h"

#include "catalogue/modXML.h"
#include "harvest/ApiClient.h"
#include "harvest/ApiKeys.h"
#include "harvest/ApiScan.h"
#include "harvest/modMain.h"
#include "platform/HostHooks.h"

#include <QJsonArray>

namespace {

std::optional<CategorySource>& SourceSetting() {
    static std::optional<CategorySource> source;
    return source;
}

const QString TaxonomyBase = ApiClient::CanonicalBase + QStringLiteral("/commerce/taxonomy/v1/");

bool StopConfirmed() {
    return HarvestState.StopRequested == FlagTrue;
}

QString CategoryId(const QJsonValue& node) {
    return node[QStringLiteral("category")][QStringLiteral("categoryId")].toString();
}

QString CategoryName(const QJsonValue& node) {
    return node[QStringLiteral("category")][QStringLiteral("categoryName")].toString();
}

} // namespace

void SetRefreshSource(std::optional<CategorySource> source) {
    SourceSetting() = source;
}

CategorySource RefreshSource() {
    if (SourceSetting())
        return *SourceSetting();
    return ApiKeysGiven() ? CategorySource::Api : CategorySource::Pages;
}

QString ApiCategoryTreeAddress(const QString& siteLabel) {
    return ApiClient::RequestUrl(TaxonomyBase +
                                 QStringLiteral("get_default_category_tree_id?marketplace_id=") +
                                 MarketplaceOf(siteLabel));
}

CrawlResult CrawlCategoriesThroughApi(const QString& siteLabel) {
    CrawlResult result;
    const CrawlBounds bounds = RefreshBounds();
    Hooks().SetMainTotalCaption(QStringLiteral("Total found: 0"));
    const QString marketplace = MarketplaceOf(siteLabel);
    ApiClient& api = ApiClient::Process();
    QString url = TaxonomyBase + QStringLiteral("get_default_category_tree_id?marketplace_id=") + marketplace;
    ApiReply reply = api.Get(url, marketplace);
    const QString treeId = reply.json.value(QStringLiteral("categoryTreeId")).toString();
    if (reply.Ok() && treeId.isEmpty()) {
        reply.failure = PageFailure::HttpError;
        reply.message = QStringLiteral("The site's API named no category tree for %1.").arg(marketplace);
    }
    if (reply.Ok()) {
        url = TaxonomyBase + QStringLiteral("category_tree/") + treeId;
        reply = api.Get(url, marketplace);
    }
    if (!reply.Ok()) {
        result.Stopped = reply.failure == PageFailure::Aborted;
        if (!result.Stopped) {
            result.FailedPages.push_back({ApiClient::RequestUrl(url), reply.failure, reply.httpStatus, true});
            Hooks().MsgBox(reply.message, 16, QString());
        }
        return result;
    }

    // Each find is counted and shown once it is saved, as in the crawl of the pages.
    const auto add = [&](const QJsonValue& node, bool main) {
        result.TooManyFinds = result.MainCount + result.SubCount >= bounds.Finds;
        const QString name = CategoryName(node);
        const QString search = ApiSearchUrl(CategoryId(node));
        result.SaveFailed =
            !result.TooManyFinds && !(main ? AddMainCategory(name, search) : AddSubCategory(name, search));
        if (result.TooManyFinds || result.SaveFailed)
            return false;
        ++(main ? result.MainCount : result.SubCount);
        Hooks().SetMainTotalCaption(main ? QStringLiteral("Total found: ") + QString::number(result.MainCount)
                                         : QStringLiteral("Total Found: ") +
                                               QString::number(result.MainCount) + QStringLiteral(" (") +
                                               QString::number(result.SubCount) + u')');
        return true;
    };
    // A node without an id or a name is no category a search could use.
    const auto usable = [](const QJsonValue& node) {
        return !CategoryId(node).isEmpty() && !CategoryName(node).isEmpty();
    };
    const QJsonArray mains =
        reply.json[QStringLiteral("rootCategoryNode")][QStringLiteral("childCategoryTreeNodes")].toArray();
    for (const QJsonValue main : mains) {
        Hooks().Yield();
        result.Stopped = StopConfirmed();
        if (result.Stopped)
            break;
        if (!usable(main))
            continue;
        if (!add(main, true))
            break;
        for (const QJsonValue sub : main[QStringLiteral("childCategoryTreeNodes")].toArray()) {
            Hooks().Yield();
            result.Stopped = StopConfirmed();
            if (result.Stopped || (usable(sub) && !add(sub, false)))
                break;
        }
        if (result.Stopped || result.TooManyFinds || result.SaveFailed)
            break;
    }
    return result;
}
