#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// A sub-category with the size of its listing: recordCount auctions in all, pageCount pages of 50.
struct SiteSubCategory {
    QString name;
    qint64 id = 0;
    QString url; // as the main category page links it, without the records-per-page key
    int pageCount = 1;
    int recordCount = 0;
};

struct SiteMainCategory {
    QString name;
    qint64 id = 0;
    QString url; // as the index page links it
    QList<SiteSubCategory> subs;
};

// The categories one site shows. Deterministic: the same site and sizes always give the same ids,
// names, URLs and page counts, whatever the seed of the titles.
class SiteCatalogue final {
public:
    // The hand-written catalogue of a dozen main categories; site is "ebay.com" or "ebay.co.uk".
    static SiteCatalogue Builtin(const QString& site);
    // mains main categories of subs sub-categories each, for benchmarks.
    static SiteCatalogue Generated(const QString& site, int mains, int subs);

    const QString& Site() const { return m_site; }
    QString ListingsHost() const { return QStringLiteral("listings.") + m_site; }
    const QList<SiteMainCategory>& Mains() const { return m_mains; }

    const SiteMainCategory* FindMain(qint64 id) const;
    const SiteSubCategory* FindSub(qint64 id) const;

    // The tree as a refresh builds it: "FullPath<TAB>URL" lines, root first.
    QStringList TreeLines() const;

    static QString Slug(const QString& name);
    // A fixed 64-bit mixer: page counts and titles must not depend on the process's hash seed.
    static quint64 Mix(quint64 value);

private:
    void Add(const QString& mainName, const QStringList& subNames);

    QString m_site;
    QList<SiteMainCategory> m_mains;
    qint64 m_nextId = 0;
};
