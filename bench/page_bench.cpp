// Cost of reading one listing page: parse, collect the elements, and read every link's target,
// innerHTML and innerText, as the listing scan does. Prints the page size and the time per page.
#include "harvest/HtmlDom.h"

#include <QElapsedTimer>
#include <QUrl>
#include <cstdio>

namespace {

QByteArray ListingPage(qsizetype targetBytes) {
    QByteArray page = "<html><head><title>Golf Clubs items - Sporting Goods</title>"
                      "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=windows-1252\"></head>"
                      "<body><table width=\"100%\"><tr><td><a href=\"/help\">Help</a> | "
                      "<a href=\"/sell\">Sell</a></td></tr></table>\n"
                      "<table><tr><td><b>Page 1</b> of 12</td></tr></table>\n<table width=\"100%\">\n";
    for (int record = 1; page.size() < targetBytes; ++record) {
        const QByteArray item = QByteArray::number(4000000000LL + record);
        page += "<tr bgcolor=\"#EFEFEF\"><td width=\"12%\"><a "
                "href=\"http://cgi.example.test/ws/Item?ViewItem&amp;"
                "item=" +
                item + "\"><img src=\"http://pics.example.test/" + item +
                ".jpg\" border=\"0\" width=\"64\" height=\"48\" alt=\"\"></a></td>\n"
                "<td width=\"52%\"><font size=\"3\"><a "
                "href=\"http://cgi.example.test/ws/Item?ViewItem&amp;item=" +
                item + "\">Callaway X-" + QByteArray::number(record % 20) +
                " Irons 3-PW &amp; <b>Graphite</b> Shafts&nbsp;NEW</a></font></td>\n"
                "<td align=\"right\" width=\"10%\"><b>$" +
                QByteArray::number(record * 7 % 500) + ".99</b></td><td align=\"center\" width=\"8%\">" +
                QByteArray::number(record % 30) +
                "</td><td align=\"right\" width=\"18%\">2d 04h 11m</td></tr>\n";
    }
    page += "</table></body></html>\n";
    return page;
}

} // namespace

int main() {
    const QUrl url(QStringLiteral("http://listings.example.test/golf/list.htm"));
    for (const qsizetype size : {qsizetype(100 * 1024), qsizetype(1024 * 1024)}) {
        const QByteArray page = ListingPage(size);
        const int rounds = size > 200 * 1024 ? 20 : 200;
        qsizetype checksum = 0;
        QElapsedTimer parseTimer;
        qint64 parseNs = 0;
        QElapsedTimer total;
        total.start();
        for (int i = 0; i < rounds; ++i) {
            parseTimer.start();
            const auto document = ParseHtmlDocument(page, QString(), url);
            parseNs += parseTimer.nsecsElapsed();
            for (HtmlElement* link : document->links())
                checksum += link->DefaultValue().size() + link->innerHTML().size() + link->innerText().size();
            checksum += qsizetype(document->all().size());
        }
        const double perPage = double(total.nsecsElapsed()) / rounds / 1e6;
        const double parseOnly = double(parseNs) / rounds / 1e6;
        std::printf("page %lld bytes: %.3f ms per page (parse and collect %.3f ms, links read %.3f ms), "
                    "%.1f MB/s [checksum %lld]\n",
                    static_cast<long long>(page.size()), perPage, parseOnly, perPage - parseOnly,
                    double(page.size()) / (perPage / 1e3) / 1e6, static_cast<long long>(checksum));
    }
    // The worst shape found for the parser: elements left open with stray end tags between them,
    // at the body size cap. Each stray end tag makes the parser look through every open element.
    QByteArray soup = "<html><body>";
    for (int i = 0; i < HtmlMaxTreeDepth - 3; ++i)
        soup += "<span>";
    while (soup.size() < 16 * 1024 * 1024)
        soup += "</p>";
    QElapsedTimer soupTimer;
    soupTimer.start();
    const auto document = ParseHtmlDocument(soup, QString(), url);
    std::printf("tag soup %lld bytes: %.0f ms, %zu elements kept\n", static_cast<long long>(soup.size()),
                double(soupTimer.nsecsElapsed()) / 1e6, document->all().size());
    return 0;
}
