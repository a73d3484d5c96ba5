#include "SitePages.h"

#include <QRegularExpression>
#include <QStringList>

namespace {

// A tiny deterministic generator; std's engines differ in nothing we need and cost more to seed.
class Rng {
public:
    explicit Rng(quint64 seed) : m_state(SiteCatalogue::Mix(seed)) {}
    quint64 Next() { return SiteCatalogue::Mix(m_state++); }
    int Below(int n) { return int(Next() % quint64(n)); }
    bool Chance(int percent) { return Below(100) < percent; }

private:
    quint64 m_state;
};

quint64 HashText(const QString& text) {
    quint64 h = 1469598103934665603ULL;
    for (const QChar c : text) {
        h ^= c.unicode();
        h *= 1099511628211ULL;
    }
    return h;
}

QByteArray Escape(const QString& text) {
    return text.toHtmlEscaped().toLatin1();
}

const char* const kWords[] = {
    "NEW",       "Vintage",    "Rare",      "Lot",       "Antique",      "Genuine",  "Mint",      "Sealed",
    "Original",  "Collection", "Set",       "Box",       "Free",         "Shipping", "NR",        "L@@K",
    "Signed",    "Limited",    "Edition",   "Authentic", "Large",        "Small",    "Old",       "Estate",
    "Gold",      "Silver",     "Sterling",  "Brass",     "Wood",         "Blue",     "Red",       "Black",
    "White",     "Pair",       "Case",      "Boxed",     "Complete",     "Perfect",  "Condition", "Excellent",
    "Beautiful", "Unique",     "Deluxe",    "Great",     "Gift",         "Kids",     "Size",      "Retro",
    "Classic",   "Handmade",   "Carved",    "Glass",     "Crystal",      "Leather",  "Japan",     "England",
    "German",    "French",     "Victorian", "Deco",      "Collector",    "Special",  "Mixed",     "Huge",
    "Nice",      "Used",       "Works",     "Tested",    "Warranty",     "Bundle",   "Series",    "Issue",
    "First",     "Grade",      "Graded",    "Proof",     "Uncirculated", "Sample",   "Wholesale", "Premium",
    "Cheap",     "Best",       "Offer",     "Quality",   "Fine"};
const char* const kOneLetter[] = {"a", "A", "X", "w", "&amp;", "-", "/"};
const char* const kPunct[] = {"!!", "!!!", "*", "~", "L@@K", "(", ")", "--", "+", "#1"};
const char* const kSellers[] = {"coinman99",    "grandmas-attic", "retro_finds",     "bargainbin2004",
                                "sparkle.gems", "the-book-nook",  "toyboxtreasures", "camera-king",
                                "silverfox_uk", "vinylvault"};

} // namespace

SitePages::SitePages(const QList<SiteCatalogue>& catalogues, quint64 seed)
    : m_catalogues(catalogues), m_seed(seed) {}

qint64 SitePages::UrlNumber(const QString& target, const QString& key) {
    const qsizetype at = target.indexOf(key, 0, Qt::CaseInsensitive);
    if (at < 0)
        return -1;
    qsizetype end = at + key.size();
    while (end < target.size() && target[end].isDigit() && end - at - key.size() < 15)
        ++end;
    bool ok = false;
    const qint64 value = target.mid(at + key.size(), end - at - key.size()).toLongLong(&ok);
    return ok ? value : -1;
}

qint64 SitePages::ItemId(const SiteCatalogue& site, const SiteSubCategory& sub, int record) {
    const qint64 base = site.Site().endsWith(QLatin1String(".uk")) ? 120000000000LL : 110000000000LL;
    return base + sub.id * 100000 + record;
}

QByteArray SitePages::TitleHtml(const SiteCatalogue& site, const SiteSubCategory& sub, int record) const {
    Rng rng(m_seed * 0x100000001b3ULL ^ HashText(site.Site()) ^ (quint64(sub.id) << 20) ^ quint64(record));
    const bool uk = site.Site().endsWith(QLatin1String(".uk"));
    QStringList nameWords = sub.name.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    QList<QByteArray> words;
    const int count = 3 + rng.Below(7);
    for (int i = 0; i < count; ++i) {
        const int kind = rng.Below(100);
        if (kind < 15 && !nameWords.isEmpty())
            words.append(Escape(nameWords[rng.Below(int(nameWords.size()))]));
        else if (kind < 70)
            words.append(kWords[rng.Below(int(std::size(kWords)))]);
        else if (kind < 82)
            words.append(QByteArray::number(1950 + rng.Below(59)));
        else if (kind < 85)
            words.append(QByteArray::number(1 + rng.Below(9)) + ',' +
                         QByteArray::number(100 + rng.Below(900)).right(3));
        else if (kind < 89)
            words.append((uk ? QByteArray("&pound;") : QByteArray("$")) +
                         QByteArray::number(1 + rng.Below(99)) + '.' +
                         QByteArray::number(10 + rng.Below(90)));
        else if (kind < 94)
            words.append(kOneLetter[rng.Below(int(std::size(kOneLetter)))]);
        else
            words.append(kPunct[rng.Below(int(std::size(kPunct)))]);
    }
    // A word again in other capitals: the tally must count it once per occurrence, case folded.
    if (rng.Chance(30) && !words.isEmpty()) {
        const QByteArray again = words[rng.Below(int(words.size()))];
        words.append(rng.Chance(50) ? again.toUpper() : again.toLower());
    }
    if (rng.Chance(20))
        words.prepend("<b>NEW</b>");
    if (rng.Chance(10) && words.size() > 1) {
        // Bold inside a word: the tags split nothing for the reader but are in the HTML.
        QByteArray& w = words[1];
        if (w.size() > 3 && !w.contains('&') && !w.contains('<'))
            w = w.left(2) + "<b>" + w.mid(2) + "</b>";
    }
    QByteArray title;
    for (qsizetype i = 0; i < words.size(); ++i) {
        if (i > 0)
            title += rng.Chance(8) ? "  " : " ";
        title += words[i];
        if (rng.Chance(6))
            title += rng.Chance(50) ? "," : "!";
    }
    return title;
}

const SiteCatalogue* SitePages::CatalogueForHost(const QString& host, QString* subdomain) const {
    for (const SiteCatalogue& c : m_catalogues) {
        const QString suffix = QLatin1Char('.') + c.Site();
        if (host.endsWith(suffix, Qt::CaseInsensitive)) {
            *subdomain = host.left(host.size() - suffix.size()).toLower();
            return &c;
        }
    }
    return nullptr;
}

namespace {

QByteArray PageHead(const QByteArray& title) {
    return "<html>\r\n<head>\r\n<meta http-equiv=\"Content-Type\" content=\"text/html; "
           "charset=ISO-8859-1\">\r\n"
           "<title>" +
           title + "</title>\r\n</head>\r\n<body bgcolor=\"#FFFFFF\">\r\n";
}

QByteArray Header(const QString& site) {
    const QByteArray s = site.toLatin1();
    return "<table width=\"100%\" border=\"0\" cellpadding=\"0\" cellspacing=\"0\"><tr>\r\n"
           "<td width=\"150\"><a href=\"http://pages." +
           s +
           "/\"><img src=\"http://pics.ebaystatic.com/aw/pics/logos/logoEbay_150x70.gif\" border=\"0\" "
           "alt=\"eBay\"></a></td>\r\n<td align=\"right\"><a href=\"http://pages." +
           s + "/\">home</a> | <a href=\"http://my." + s +
           "/ws/eBayISAPI.dll?MyEbay\">my eBay</a> | "
           "<a href=\"http://pages." +
           s + "/sitemap.html\">site map</a> | <a href=\"http://pages." + s +
           "/help/index.html\">help</a></td>\r\n</tr>\r\n<tr><td colspan=\"2\"><a href=\"http://listings." +
           s + "/\">Browse</a> | <a href=\"http://search." + s + "/\">Search</a> | <a href=\"http://cgi5." +
           s + "/ws/eBayISAPI.dll?SellHub\">Sell</a> | <a href=\"http://pages." + s +
           "/community/index.html\">Community</a></td></tr>\r\n</table>\r\n";
}

QByteArray Footer(const QString& site) {
    const QByteArray s = site.toLatin1();
    return "<hr>\r\n<p><font size=\"-2\"><a href=\"http://pages." + s +
           "/help/policies/user-agreement.html\">User Agreement</a> | <a href=\"http://pages." + s +
           "/help/policies/privacy-policy.html\">Privacy Policy</a> | <a href=\"http://pages." + s +
           "/aboutebay/index.html\">About eBay</a><br>Copyright &copy; 1995-2005 eBay Inc. All Rights "
           "Reserved.</font></p>\r\n</body>\r\n</html>\r\n";
}

} // namespace

QByteArray SitePages::ProbePage() {
    return PageHead("eBay - New &amp; used electronics, cars, apparel, collectibles") +
           Header(QStringLiteral("ebay.com")) + "<p>Welcome to eBay.</p>\r\n" +
           Footer(QStringLiteral("ebay.com"));
}

QByteArray SitePages::ErrorPage(int status) {
    return "<html><head><title>Error " + QByteArray::number(status) +
           "</title></head><body><h1>We're sorry</h1><p>The page you requested could not be shown (" +
           QByteArray::number(status) +
           ").</p><p><a href=\"http://pages.ebay.com/help/\">Help</a></p></body></html>\r\n";
}

QByteArray SitePages::HugePage(qsizetype size) {
    QByteArray page = PageHead("Everything") + Header(QStringLiteral("ebay.com"));
    page.reserve(size + 4096);
    const QByteArray line =
        "<p>Lots of everything <b>here</b> and <a href=\"http://pages.ebay.com/help/\">help</a> "
        "for all of it, over and over again.</p>\r\n";
    while (page.size() < size)
        page += line;
    return page + Footer(QStringLiteral("ebay.com"));
}

QByteArray SitePages::GarbageBytes(const QString& url, qsizetype size) {
    Rng rng(HashText(url));
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(rng.Next() & 0xff);
    return bytes;
}

QByteArray SitePages::IndexPage(const SiteCatalogue& site) const {
    const QByteArray s = site.Site().toLatin1();
    QByteArray page =
        PageHead("eBay Category Overview") + Header(site.Site()) +
        "<h2>Category Overview</h2>\r\n<p>Click a category below, or <a href=\"http://search." + s +
        "/\">search</a> for an item.</p>\r\n<table width=\"100%\" border=\"0\" cellpadding=\"4\">\r\n";
    for (const SiteMainCategory& main : site.Mains()) {
        page += "<tr><td valign=\"top\"><a href=\"" + main.url.toLatin1() + "\"><b>" + Escape(main.name) +
                "</b></a><br>\r\n";
        for (qsizetype j = 0; j < main.subs.size() && j < 3; ++j)
            page += "&nbsp;&nbsp;<a href=\"" + main.subs[j].url.toLatin1() + "\">" +
                    Escape(main.subs[j].name) + "</a><br>\r\n";
        // The See-all link alone in its cell: row and table give the same text but are no links.
        page += "</td></tr>\r\n<tr><td><a href=\"" + main.url.toLatin1() + "\">See all " + Escape(main.name) +
                " categories...</a></td></tr>\r\n";
    }
    page += "</table>\r\n";
    // One featured-items link per site, written differently on each so both forms are met.
    const QByteArray featured =
        site.Site().endsWith(QLatin1String(".uk")) ? "  SEE ALL Featured Items  " : "See all featured items";
    page += "<table><tr><td><b>Featured Items</b><br><a href=\"http://listings." + s +
            "/_W0QQfcsZ1QQfclZ3\">" + featured + "</a></td></tr></table>\r\n";
    return page + Footer(site.Site());
}

QByteArray SitePages::MainPage(const SiteCatalogue& site, const SiteMainCategory& main) const {
    const QByteArray s = site.Site().toLatin1();
    const QByteArray name = Escape(main.name);
    QByteArray page = PageHead(name + " items on eBay." + s.mid(5)) + Header(site.Site()) +
                      "<p><a href=\"http://listings." + s + "/\">All Categories</a> &gt; <b>" + name +
                      "</b></p>\r\n<table width=\"100%\"><tr><td valign=\"top\" width=\"30%\">\r\n";
    for (const SiteSubCategory& sub : main.subs)
        page += "<b><a href=\"" + sub.url.toLatin1() + "\">" + Escape(sub.name) +
                "</a></b> <font size=\"-1\">(" + QByteArray::number(sub.recordCount) + ")</font><br>\r\n";
    // Bold links that are not sub-categories: a Browse link on the same host, pages of other hosts,
    // and a link whose bold is not its direct parent.
    page += "<br><b><a href=\"" + main.url.toLatin1() + "QQfbdZ1\">Browse all items in " + name +
            "</a></b><br>\r\n"
            "<b><a href=\"http://stores." +
            s +
            "/_W0QQcolZ4\">eBay Stores</a></b><br>\r\n"
            "<b><a href=\"http://pages." +
            s +
            "/help/buy/index.html\">Buying help</a></b><br>\r\n"
            "<b><font size=\"-1\"><a href=\"" +
            main.url.toLatin1() +
            "QQftrtZ1\">Gallery view</a></font></b><br>\r\n"
            "</td>\r\n<td valign=\"top\"><p>Popular searches:</p>\r\n";
    // The same sub-category links again, outside bold: no second entry may come of them.
    for (qsizetype j = 0; j < main.subs.size() && j < 4; ++j)
        page +=
            "<a href=\"" + main.subs[j].url.toLatin1() + "\">" + Escape(main.subs[j].name) + "</a><br>\r\n";
    page += "<a href=\"" + main.url.toLatin1() + "QQftrtZ2\">Ending today</a></td></tr></table>\r\n";
    return page + Footer(site.Site());
}

QByteArray SitePages::EmptyListingPage(const SiteCatalogue& site) const {
    const QByteArray s = site.Site().toLatin1();
    return PageHead("eBay listings") + Header(site.Site()) + "<p><a href=\"http://listings." + s +
           "/\">All Categories</a></p>\r\n<table width=\"100%\"><tr><td>No items found. Try a <a "
           "href=\"http://search." +
           s + "/\">search</a> instead, or browse <a href=\"http://listings." + s +
           "/\">all categories</a>.</td></tr></table>\r\n" + Footer(site.Site());
}

QByteArray SitePages::ListingPage(const SiteCatalogue& site, const SiteMainCategory& main,
                                  const SiteSubCategory& sub, int page, int perPage) const {
    const int pageCount = (sub.recordCount + perPage - 1) / perPage;
    if (page < 1 || page > pageCount)
        return EmptyListingPage(site);
    const QByteArray s = site.Site().toLatin1();
    const QByteArray name = Escape(sub.name);
    const bool uk = site.Site().endsWith(QLatin1String(".uk"));
    QByteArray html =
        PageHead(name + " items on eBay") + Header(site.Site()) + "<p><a href=\"http://listings." + s +
        "/\">All Categories</a> &gt; <a href=\"" + main.url.toLatin1() + "\">" + Escape(main.name) +
        "</a> &gt; <b>" + name + "</b></p>\r\n<table width=\"100%\"><tr><td><b>" +
        QByteArray::number(sub.recordCount) + "</b> items found in <b>" + name +
        "</b></td>\r\n<td align=\"right\"><b>Page " + QByteArray::number(page) + "</b> of " +
        QByteArray::number(pageCount) +
        "</td></tr></table>\r\n<table width=\"100%\" border=\"0\" "
        "cellpadding=\"2\">\r\n<tr><th>Picture</th><th>Item Title</th><th>Price</th><th>Bids</th><th>"
        "Time Left</th></tr>\r\n";
    const int first = (page - 1) * perPage;
    const int last = std::min(first + perPage, sub.recordCount);
    for (int record = first; record < last; ++record) {
        const qint64 id = ItemId(site, sub, record);
        Rng rng(m_seed ^ quint64(id));
        const QByteArray title = TitleHtml(site, sub, record);
        QString plain = QString::fromLatin1(title);
        plain.remove(QRegularExpression(QStringLiteral("<[^>]*>|&[a-z]+;")));
        const QString slug =
            SiteCatalogue::Slug(plain.section(QLatin1Char(' '), 0, 4, QString::SectionSkipEmpty));
        const QByteArray itemUrl = "http://cgi." + s + "/" +
                                   (slug.isEmpty() ? QByteArray("item") : slug.toLatin1()) + "_W0QQitemZ" +
                                   QByteArray::number(id) + "QQcmdZViewItem";
        const QByteArray seller = kSellers[rng.Below(int(std::size(kSellers)))];
        html += "<tr><td><a href=\"" + itemUrl + "\"><img src=\"http://thumbs.ebaystatic.com/pict/" +
                QByteArray::number(id) +
                ".jpg\" width=\"80\" height=\"60\" border=\"0\" alt=\"\"></a></td>\r\n<td><a href=\"" +
                itemUrl + "\">" + title + "</a><br><font size=\"-1\">Seller: <a href=\"http://myworld." + s +
                "/" + seller + "\">" + seller + "</a> (<a href=\"http://feedback." + s +
                "/ws/eBayISAPI.dll?ViewFeedback&amp;userid=" + seller + "\">" +
                QByteArray::number(rng.Below(5000)) + "</a>) <a href=\"http://cgi1." + s +
                "/ws/eBayISAPI.dll?MakeTrack&amp;item=" + QByteArray::number(id) +
                "\">Watch this item</a></font></td>\r\n<td>" + (uk ? "&pound;" : "$") +
                QByteArray::number(1 + rng.Below(300)) + "." + QByteArray::number(10 + rng.Below(90)) +
                "</td><td>" + QByteArray::number(rng.Below(30)) + "</td><td>" +
                QByteArray::number(rng.Below(10)) + "d " + QByteArray::number(rng.Below(24)) + "h " +
                QByteArray::number(rng.Below(60)) + "m</td></tr>\r\n";
    }
    html += "</table>\r\n<p>";
    QString pageBase = sub.url + QStringLiteral("QQsorecordsperpageZ") + QString::number(perPage);
    const auto pageUrl = [&](int n) {
        QString u = pageBase;
        u.insert(u.indexOf(QLatin1String("QQsacat")), QStringLiteral("QQlopgZ%1").arg(n));
        return u.toLatin1();
    };
    if (page > 1)
        html += "<a href=\"" + (page == 2 ? pageBase.toLatin1() : pageUrl(page - 1)) +
                "\">&lt; Previous page</a> ";
    if (page < pageCount)
        html += "<a href=\"" + pageUrl(page + 1) + "\">Next page &gt;</a>";
    html += "</p>\r\n";
    return html + Footer(site.Site());
}

QByteArray SitePages::ItemPage(const SiteCatalogue& site, const QString& target) const {
    return PageHead("eBay item") + Header(site.Site()) + "<p>Item number " +
           QByteArray::number(UrlNumber(target, QStringLiteral("QQitemZ"))) + "</p>\r\n" +
           Footer(site.Site());
}

SiteAnswer SitePages::Answer(const QString& host, const QString& target) const {
    const QString lowerHost = host.toLower();
    if (lowerHost == QLatin1String("www.ebay.com"))
        return {200, ProbePage()};
    QString subdomain;
    const SiteCatalogue* site = CatalogueForHost(lowerHost, &subdomain);
    if (!site)
        return {404, ErrorPage(404)};
    if (subdomain == QLatin1String("cgi"))
        return {200, ItemPage(*site, target)};
    if (subdomain != QLatin1String("listings"))
        return {200, EmptyListingPage(*site)};
    if (target == QLatin1String("/") || target.isEmpty())
        return {200, IndexPage(*site)};
    const qint64 id = UrlNumber(target, QStringLiteral("QQsacatZ"));
    const qint64 perPageKey = UrlNumber(target, QStringLiteral("QQsorecordsperpageZ"));
    if (const SiteMainCategory* main = site->FindMain(id); main && perPageKey < 0)
        return {200, MainPage(*site, *main)};
    if (const SiteSubCategory* sub = site->FindSub(id)) {
        const qint64 page = UrlNumber(target, QStringLiteral("QQlopgZ"));
        const int perPage = perPageKey == 200 ? 200 : 50;
        return {200, ListingPage(*site, *site->FindMain(id - id % 1000), *sub,
                                 page < 0 ? 1 : int(std::min<qint64>(page, 1000000)), perPage)};
    }
    return {200, EmptyListingPage(*site)};
}
