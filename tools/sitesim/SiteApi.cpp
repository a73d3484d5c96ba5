#include "SiteApi.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrlQuery>

namespace {

const QString TokenPath = QStringLiteral("/identity/v1/oauth2/token");
const QString TaxonomyPrefix = QStringLiteral("/commerce/taxonomy/v1/");
const QString SearchPath = QStringLiteral("/buy/browse/v1/item_summary/search");
const QString ApiScope = QStringLiteral("https://api.ebay.com/oauth/api_scope");

struct Marketplace {
    const char* id;
    const char* site;
    const char* treeId;
};
constexpr Marketplace Marketplaces[] = {{"EBAY_US", "ebay.com", "0"}, {"EBAY_GB", "ebay.co.uk", "3"}};

QByteArray Json(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

ApiAnswer Errors(int status, int errorId, const QString& domain, const QString& message,
                 const QString& longMessage = QString()) {
    QJsonObject error{{QStringLiteral("errorId"), errorId},
                      {QStringLiteral("domain"), domain},
                      {QStringLiteral("category"),
                       status >= 500 ? QStringLiteral("APPLICATION") : QStringLiteral("REQUEST")},
                      {QStringLiteral("message"), message}};
    if (!longMessage.isEmpty())
        error.insert(QStringLiteral("longMessage"), longMessage);
    return {status, Json({{QStringLiteral("errors"), QJsonArray{error}}}), {}};
}

// The token endpoint speaks OAuth's own error form, not the errors array of the other calls.
ApiAnswer OAuthError(int status, const QString& error, const QString& description) {
    return {status,
            Json({{QStringLiteral("error"), error}, {QStringLiteral("error_description"), description}}),
            {}};
}

QString PathOf(const QString& target) {
    return target.section(QLatin1Char('?'), 0, 0);
}

QString QueryOf(const QString& target) {
    return target.contains(QLatin1Char('?')) ? target.section(QLatin1Char('?'), 1) : QString();
}

} // namespace

bool SiteApi::IsApiPath(const QString& target) {
    const QString path = PathOf(target);
    return path == TokenPath || path.startsWith(TaxonomyPrefix) || path == SearchPath;
}

QString SiteApi::TitleAsListed(const QByteArray& titleHtml) {
    // The references a title can hold, as a browser reads them (HTML knows AMP, LT, GT and QUOT in
    // capitals too, but not POUND); what they stand for, escaped again as markup is serialized.
    static const QList<QPair<QString, QString>> references{
        {QStringLiteral("&amp;"), QStringLiteral("&amp;")},
        {QStringLiteral("&AMP;"), QStringLiteral("&amp;")},
        {QStringLiteral("&lt;"), QStringLiteral("&lt;")},
        {QStringLiteral("&LT;"), QStringLiteral("&lt;")},
        {QStringLiteral("&gt;"), QStringLiteral("&gt;")},
        {QStringLiteral("&GT;"), QStringLiteral("&gt;")},
        {QStringLiteral("&quot;"), QStringLiteral("\"")},
        {QStringLiteral("&QUOT;"), QStringLiteral("\"")},
        {QStringLiteral("&pound;"), QStringLiteral("\u00A3")}};
    const QString html = QString::fromLatin1(titleHtml);
    QString title;
    for (qsizetype i = 0; i < html.size();) {
        if (html.at(i) == u'<') {
            const qsizetype end = html.indexOf(u'>', i);
            title += html.mid(i, end + 1 - i).toUpper();
            i = end + 1;
            continue;
        }
        if (html.at(i) == u'&') {
            const auto known = std::find_if(references.begin(), references.end(), [&](const auto& reference) {
                return QStringView(html).mid(i).startsWith(reference.first);
            });
            title += known == references.end() ? QStringLiteral("&amp;") : known->second;
            i += known == references.end() ? 1 : known->first.size();
            continue;
        }
        title += html.at(i++);
    }
    return title;
}

ApiAnswer SiteApi::TooManyRequests(const QString& url) {
    // Once per URL, so that a client that waits and asks again gets its answer.
    if (m_throttled.contains(url))
        return {0, {}, {}};
    m_throttled.insert(url);
    ApiAnswer answer = Errors(429, 2001, QStringLiteral("ACCESS"),
                              QStringLiteral("The request limit has been reached for the resource."));
    answer.headers.append({"Retry-After", QByteArray::number(m_retryAfter)});
    return answer;
}

ApiAnswer SiteApi::Unauthorized() {
    return Errors(401, 1001, QStringLiteral("OAuth"), QStringLiteral("Invalid access token"),
                  QStringLiteral("Invalid access token. Check the value of the Authorization HTTP request "
                                 "header."));
}

ApiAnswer SiteApi::InternalError() {
    return Errors(500, 10001, QStringLiteral("API_BROWSE"),
                  QStringLiteral("There was a problem with an eBay internal system or process. Contact eBay "
                                 "developer support for assistance."));
}

ApiAnswer SiteApi::Answer(const ApiRequest& request) {
    const QString path = PathOf(request.target);
    const QString query = QueryOf(request.target);
    if (path == TokenPath)
        return Token(request);
    if (request.method != "GET")
        return Errors(405, 1003, QStringLiteral("API"), QStringLiteral("Method not allowed."));
    if (!Authorized(request))
        return Unauthorized();
    if (path == TaxonomyPrefix + QStringLiteral("get_default_category_tree_id"))
        return DefaultTreeId(query);
    if (path.startsWith(TaxonomyPrefix + QStringLiteral("category_tree/")))
        return Tree(path.section(QLatin1Char('/'), -1));
    if (path == SearchPath)
        return Search(request, query);
    return Errors(404, 1002, QStringLiteral("API"), QStringLiteral("Resource not found."));
}

ApiAnswer SiteApi::Token(const ApiRequest& request) {
    if (request.method != "POST")
        return OAuthError(405, QStringLiteral("invalid_request"),
                          QStringLiteral("request method not supported"));
    const QByteArray expected = "Basic " + (ClientId + u':' + ClientSecret).toUtf8().toBase64();
    if (request.headers.value("authorization") != expected)
        return OAuthError(401, QStringLiteral("invalid_client"),
                          QStringLiteral("client authentication failed"));
    const QUrlQuery form(QString::fromUtf8(request.body));
    if (form.queryItemValue(QStringLiteral("grant_type")) != u"client_credentials")
        return OAuthError(
            400, QStringLiteral("unsupported_grant_type"),
            QStringLiteral("grant type in request is not supported by the authorization server"));
    const QStringList scopes =
        form.queryItemValue(QStringLiteral("scope"), QUrl::FullyDecoded).split(u' ', Qt::SkipEmptyParts);
    if (scopes.isEmpty() ||
        !std::all_of(scopes.begin(), scopes.end(), [](const QString& s) { return s == ApiScope; }))
        return OAuthError(400, QStringLiteral("invalid_scope"),
                          QStringLiteral("The requested scope is invalid, unknown, malformed, or exceeds the "
                                         "scope granted to the client"));
    ++m_issued;
    const QByteArray token = "v^1.1#sample-token-" + QByteArray::number(m_issued) + '-' +
                             QByteArray::number(SiteCatalogue::Mix(m_issued), 36);
    m_tokens.insert(token, QDateTime::currentDateTimeUtc().addSecs(m_tokenSeconds));
    return {200,
            Json({{QStringLiteral("access_token"), QString::fromLatin1(token)},
                  {QStringLiteral("expires_in"), m_tokenSeconds},
                  {QStringLiteral("token_type"), QStringLiteral("Application Access Token")}}),
            {}};
}

bool SiteApi::Authorized(const ApiRequest& request) const {
    const QByteArray header = request.headers.value("authorization");
    if (!header.startsWith("Bearer "))
        return false;
    const auto it = m_tokens.constFind(header.mid(7));
    return it != m_tokens.constEnd() && QDateTime::currentDateTimeUtc() < it.value();
}

const SiteCatalogue* SiteApi::CatalogueOfMarketplace(const QString& marketplace) const {
    for (const Marketplace& m : Marketplaces)
        if (marketplace == QLatin1String(m.id))
            for (const SiteCatalogue& c : m_catalogues)
                if (c.Site() == QLatin1String(m.site))
                    return &c;
    return nullptr;
}

ApiAnswer SiteApi::DefaultTreeId(const QString& query) const {
    const QString marketplace = QUrlQuery(query).queryItemValue(QStringLiteral("marketplace_id"));
    for (const Marketplace& m : Marketplaces)
        if (marketplace == QLatin1String(m.id))
            return {200,
                    Json({{QStringLiteral("categoryTreeId"), QLatin1String(m.treeId)},
                          {QStringLiteral("categoryTreeVersion"), QStringLiteral("130")}}),
                    {}};
    return Errors(400, 62004, QStringLiteral("API_TAXONOMY"),
                  QStringLiteral("The specified marketplace ID was not found."));
}

ApiAnswer SiteApi::Tree(const QString& treeId) const {
    const Marketplace* found = nullptr;
    for (const Marketplace& m : Marketplaces)
        if (treeId == QLatin1String(m.treeId))
            found = &m;
    const SiteCatalogue* site = found ? CatalogueOfMarketplace(QLatin1String(found->id)) : nullptr;
    if (!site)
        return Errors(404, 62005, QStringLiteral("API_TAXONOMY"),
                      QStringLiteral("The specified category tree ID was not found."));
    const auto node = [](qint64 id, const QString& name, int level) {
        return QJsonObject{
            {QStringLiteral("category"), QJsonObject{{QStringLiteral("categoryId"), QString::number(id)},
                                                     {QStringLiteral("categoryName"), name}}},
            {QStringLiteral("categoryTreeNodeLevel"), level}};
    };
    QJsonArray mains;
    for (const SiteMainCategory& main : site->Mains()) {
        QJsonArray subs;
        for (const SiteSubCategory& sub : main.subs) {
            QJsonObject leaf = node(sub.id, sub.name, 2);
            leaf.insert(QStringLiteral("leafCategoryTreeNode"), true);
            subs.append(leaf);
        }
        QJsonObject mainNode = node(main.id, main.name, 1);
        mainNode.insert(QStringLiteral("childCategoryTreeNodes"), subs);
        mains.append(mainNode);
    }
    QJsonObject root = node(0, QStringLiteral("Root"), 0);
    root.insert(QStringLiteral("childCategoryTreeNodes"), mains);
    return {200,
            Json({{QStringLiteral("categoryTreeId"), treeId},
                  {QStringLiteral("categoryTreeVersion"), QStringLiteral("130")},
                  {QStringLiteral("applicableMarketplaceIds"), QJsonArray{QLatin1String(found->id)}},
                  {QStringLiteral("rootCategoryNode"), root}}),
            {}};
}

ApiAnswer SiteApi::Search(const ApiRequest& request, const QString& query) const {
    const QString marketplace =
        QString::fromLatin1(request.headers.value("x-ebay-c-marketplace-id", "EBAY_US"));
    const SiteCatalogue* site = CatalogueOfMarketplace(marketplace);
    if (!site)
        return Errors(400, 12001, QStringLiteral("API_BROWSE"),
                      QStringLiteral("The marketplace value %1 is not supported.").arg(marketplace));
    const QUrlQuery params(query);
    bool limitOk = true;
    bool offsetOk = true;
    const QString limitText = params.queryItemValue(QStringLiteral("limit"));
    const QString offsetText = params.queryItemValue(QStringLiteral("offset"));
    const int limit = limitText.isEmpty() ? 50 : limitText.toInt(&limitOk);
    const int offset = offsetText.isEmpty() ? 0 : offsetText.toInt(&offsetOk);
    if (!limitOk || limit < 1 || limit > MaxLimit)
        return Errors(400, 12022, QStringLiteral("API_BROWSE"),
                      QStringLiteral("The 'limit' value must be from 1 to 200."));
    if (!offsetOk || offset < 0 || offset + limit > OffsetCap)
        return Errors(400, 12023, QStringLiteral("API_BROWSE"),
                      QStringLiteral("The 'offset' value must be from 0 to 9,999, and 'offset' and "
                                     "'limit' together must not exceed 10,000."));

    // The category's auctions, a main category's through its sub-categories, in listing order.
    QList<const SiteSubCategory*> subs;
    const qint64 id = params.queryItemValue(QStringLiteral("category_ids")).toLongLong();
    if (const SiteMainCategory* main = site->FindMain(id)) {
        for (const SiteSubCategory& sub : main->subs)
            subs << &sub;
    } else if (const SiteSubCategory* sub = site->FindSub(id)) {
        subs << sub;
    }
    qint64 auctions = 0;
    for (const SiteSubCategory* sub : subs)
        auctions += sub->recordCount;
    const auto auctionTitle = [&](qint64 index) {
        for (const SiteSubCategory* sub : subs) {
            if (index < sub->recordCount)
                return TitleAsListed(m_pages.TitleHtml(*site, *sub, int(index)));
            index -= sub->recordCount;
        }
        return QString();
    };
    // Without the auction filter, one fixed-price item follows every second auction.
    const bool auctionsOnly = params.queryItemValue(QStringLiteral("filter"), QUrl::FullyDecoded)
                                  .contains(QStringLiteral("buyingOptions:{AUCTION}"));
    const qint64 fixed = auctionsOnly || subs.isEmpty() ? 0 : auctions / 2;
    const qint64 total = auctions + fixed;

    const QString base = QStringLiteral("http://") +
                         QString::fromLatin1(request.headers.value("host", "api.ebay.com")) + SearchPath;
    const auto pageUrl = [&](int pageOffset) {
        QUrlQuery q(query);
        q.removeAllQueryItems(QStringLiteral("offset"));
        q.addQueryItem(QStringLiteral("offset"), QString::number(pageOffset));
        return base + u'?' + q.toString(QUrl::FullyEncoded);
    };
    QJsonArray items;
    for (qint64 j = offset; j < total && j < offset + limit; ++j) {
        QString title;
        QString buying = QStringLiteral("AUCTION");
        if (j < 3 * fixed && j % 3 == 2) {
            title = TitleAsListed(m_pages.TitleHtml(*site, *subs.front(), int(90000 + j / 3)));
            buying = QStringLiteral("FIXED_PRICE");
        } else {
            title = auctionTitle(j < 3 * fixed ? j / 3 * 2 + j % 3 : j - fixed);
        }
        items.append(QJsonObject{{QStringLiteral("itemId"), QStringLiteral("v1|%1|0").arg(id * 100000 + j)},
                                 {QStringLiteral("title"), title},
                                 {QStringLiteral("buyingOptions"), QJsonArray{buying}}});
    }
    QJsonObject answer{{QStringLiteral("href"), pageUrl(offset)},
                       {QStringLiteral("total"), total},
                       {QStringLiteral("limit"), limit},
                       {QStringLiteral("offset"), offset}};
    // Past the offset cap the service names no next page, whatever the total says.
    if (offset + limit < std::min<qint64>(total, OffsetCap))
        answer.insert(QStringLiteral("next"), pageUrl(offset + limit));
    if (offset > 0)
        answer.insert(QStringLiteral("prev"), pageUrl(std::max(0, offset - limit)));
    if (!items.isEmpty())
        answer.insert(QStringLiteral("itemSummaries"), items);
    return {200, Json(answer), {}};
}
