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
    Hooks().SetMainTotalCaption(QStringLiteral("Total found: 0"));
    const QString marketplace = MarketplaceOf(siteLabel);
    ApiClient& api = ApiClient::Process();
    ApiReply reply =
        api.Get(TaxonomyBase + QStringLiteral("get_default_category_tree_id?marketplace_id=") + marketplace,
                marketplace);
    const QString treeId = reply.json.value(QStringLiteral("categoryTreeId")).toString();
    if (reply.Ok() && treeId.isEmpty()) {
        reply.failure = PageFailure::HttpError;
        reply.message = QStringLiteral("The site's API named no category tree for %1.").arg(marketplace);
    }
    if (reply.Ok())
        reply = api.Get(TaxonomyBase + QStringLiteral("category_tree/") + treeId, marketplace);
    if (!reply.Ok()) {
        result.Stopped = reply.failure == PageFailure::Aborted;
        if (!result.Stopped)
            Hooks().MsgBox(reply.message, 16, QString());
        return result;
    }

    const QJsonArray mains =
        reply.json[QStringLiteral("rootCategoryNode")][QStringLiteral("childCategoryTreeNodes")].toArray();
    for (const QJsonValue main : mains) {
        Hooks().Yield();
        if (StopConfirmed()) {
            result.Stopped = true;
            break;
        }
        // A node without an id or a name is no category a search could use.
        if (CategoryId(main).isEmpty() || CategoryName(main).isEmpty())
            continue;
        ++result.MainCount;
        Hooks().SetMainTotalCaption(QStringLiteral("Total found: ") + QString::number(result.MainCount));
        AddMainCategory(CategoryName(main), ApiSearchUrl(CategoryId(main)));
        for (const QJsonValue sub : main[QStringLiteral("childCategoryTreeNodes")].toArray()) {
            Hooks().Yield();
            if (StopConfirmed()) {
                result.Stopped = true;
                break;
            }
            if (CategoryId(sub).isEmpty() || CategoryName(sub).isEmpty())
                continue;
            ++result.SubCount;
            Hooks().SetMainTotalCaption(QStringLiteral("Total Found: ") + QString::number(result.MainCount) +
                                        QStringLiteral(" (") + QString::number(result.SubCount) + u')');
            AddSubCategory(CategoryName(sub), ApiSearchUrl(CategoryId(sub)));
        }
        if (result.Stopped)
            break;
    }
    return result;
}
