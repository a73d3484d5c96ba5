#pragma once

#include "SiteCatalogue.h"

#include <QByteArray>
#include <QList>
#include <QString>

struct SiteAnswer {
    int status = 200;
    QByteArray body;
};

// Renders the pages of both sites in the layout the program was written against. Everything is
// a function of the catalogue, the seed and the URL, so a page is the same bytes every time.
class SitePages final {
public:
    SitePages(const QList<SiteCatalogue>& catalogues, quint64 seed);

    // host without port; target is the path and query as requested.
    SiteAnswer Answer(const QString& host, const QString& target) const;

    // The title of one auction as the listing page holds it (HTML).
    QByteArray TitleHtml(const SiteCatalogue& site, const SiteSubCategory& sub, int record) const;
    static qint64 ItemId(const SiteCatalogue& site, const SiteSubCategory& sub, int record);

    static QByteArray ProbePage();
    static QByteArray ErrorPage(int status);
    // A well-formed page of at least size bytes.
    static QByteArray HugePage(qsizetype size);
    static QByteArray GarbageBytes(const QString& url, qsizetype size);

    // The value behind key (such as "QQsacatZ") in a listing URL, or -1; key is matched without
    // regard to case, as the program matches it.
    static qint64 UrlNumber(const QString& target, const QString& key);

private:
    const SiteCatalogue* CatalogueForHost(const QString& host, QString* subdomain) const;
    QByteArray IndexPage(const SiteCatalogue& site) const;
    QByteArray MainPage(const SiteCatalogue& site, const SiteMainCategory& main) const;
    QByteArray ListingPage(const SiteCatalogue& site, const SiteMainCategory& main,
                           const SiteSubCategory& sub, int page, int perPage) const;
    QByteArray EmptyListingPage(const SiteCatalogue& site) const;
    QByteArray ItemPage(const SiteCatalogue& site, const QString& target) const;

    QList<SiteCatalogue> m_catalogues;
    quint64 m_seed;
};
