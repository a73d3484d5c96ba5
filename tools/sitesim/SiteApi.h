#pragma once

#include "SitePages.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

// One API request as the server read it.
struct ApiRequest {
    QByteArray method;
    QString target;                        // path and query
    QHash<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
};

struct ApiAnswer {
    int status = 200;
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers; // besides Content-Type and Content-Length
};

// Today's site through its public REST API, built from the same catalogues and titles as the
// pages: the client-credentials token, the two Taxonomy calls and the Browse search. JSON field
// names are the published ones; only what the program reads is filled in with care.
class SiteApi final {
public:
    static inline const QString ClientId = QStringLiteral("sample-id");
    static inline const QString ClientSecret = QStringLiteral("sample-secret");
    static constexpr int OffsetCap = 10000;
    static constexpr int MaxLimit = 200;

    SiteApi(const QList<SiteCatalogue>& catalogues, const SitePages& pages)
        : m_catalogues(catalogues), m_pages(pages) {}

    static bool IsApiPath(const QString& target);

    void SetTokenSeconds(int seconds) { m_tokenSeconds = seconds; }
    void SetRetryAfter(int seconds) { m_retryAfter = seconds; }

    ApiAnswer Answer(const ApiRequest& request);
    // The fault modes: 429 for the first request of each URL, or a refused token every time.
    ApiAnswer TooManyRequests(const QString& url);
    static ApiAnswer Unauthorized();
    static ApiAnswer InternalError();

    // A title as the listing page's link holds it, in the form a browser serializes the link's
    // inner markup: element names in capitals, entities other than &amp; &lt; &gt; decoded.
    static QString TitleAsListed(const QByteArray& titleHtml);

private:
    ApiAnswer Token(const ApiRequest& request);
    ApiAnswer DefaultTreeId(const QString& query) const;
    ApiAnswer Tree(const QString& treeId) const;
    ApiAnswer Search(const ApiRequest& request, const QString& query) const;
    const SiteCatalogue* CatalogueOfMarketplace(const QString& marketplace) const;
    bool Authorized(const ApiRequest& request) const;

    QList<SiteCatalogue> m_catalogues;
    const SitePages& m_pages;
    int m_tokenSeconds = 7200;
    int m_retryAfter = 1;
    QHash<QByteArray, QDateTime> m_tokens; // token to its end
    quint64 m_issued = 0;
    QSet<QString> m_throttled;
};
