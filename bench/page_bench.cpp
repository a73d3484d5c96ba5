// Cost of reading pages through the element facade: generated listing pages read as the listing scan
// reads them (parse, then each link's target and, for auction titles, innerHTML), beside libxml2's
// own tree of the same bytes and, where Debian's libgumbo-dev is installed, an HTML5 tree builder;
// the worst tag soup shapes at the body cap; and an index page under nested divs as the category
// crawl meets it. Prints each figure; ratios are taken within one run.
//   page_bench                      the figures
//   page_bench --anchors URL PAGE...  each page's links as the facade reads them, as JSON in the
//                                   form tests/pages/yardstick.py prints (bench/soup_corpus.py)
#include "harvest/HtmlDom.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <cstdio>
#include <functional>
#include <libxml/HTMLparser.h>
#ifdef MARQUILL_HAVE_GUMBO
#include <gumbo.h>
#endif

namespace {

const QUrl PageUrl(QStringLiteral("http://listings.example.test/golf/list.htm"));
const QString ItemPrefix = QStringLiteral("http://cgi.example.test/");

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

// Milliseconds a call takes, the best of `rounds`, so other users of the machine count least.
double BestMs(int rounds, const std::function<void()>& work) {
    double best = 1e300;
    for (int i = 0; i < rounds; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        best = std::min(best, double(timer.nsecsElapsed()) / 1e6);
    }
    return best;
}

qsizetype Checksum = 0;

void ReadAsTheScanDoes(const QByteArray& page) {
    const auto document = ParseHtmlDocument(page, QString(), PageUrl);
    for (HtmlElement* link : document->links())
        if (link->DefaultValueStartsWith(ItemPrefix) && !link->InnerHtmlStartsWith(u"<IMG"))
            Checksum += link->innerHTML().size();
}

void LibxmlTree(const QByteArray& page) {
    htmlDocPtr doc =
        htmlReadMemory(page.constData(), int(page.size()), nullptr, "windows-1252",
                       HTML_PARSE_RECOVER | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING | HTML_PARSE_NONET);
    Checksum += doc != nullptr;
    xmlFreeDoc(doc);
}

#ifdef MARQUILL_HAVE_GUMBO
void GumboTree(const QByteArray& page) {
    GumboOutput* output =
        gumbo_parse_with_options(&kGumboDefaultOptions, page.constData(), size_t(page.size()));
    Checksum += output->root != nullptr;
    gumbo_destroy_output(&kGumboDefaultOptions, output);
}
#endif

} // namespace

int PrintAnchors(int argc, char** argv) {
    QJsonObject pages;
    const QUrl base(QString::fromUtf8(argv[2]));
    for (int i = 3; i < argc; ++i) {
        QFile file(QString::fromUtf8(argv[i]));
        if (!file.open(QIODevice::ReadOnly))
            return 1;
        QJsonArray anchors;
        const auto document = ParseHtmlDocument(file.readAll(), QString(), base);
        for (HtmlElement* link : document->links())
            anchors.append(QJsonArray{link->DefaultValue(), link->innerHTML()});
        pages.insert(QString::fromUtf8(argv[i]), anchors);
    }
    std::printf("%s\n", QJsonDocument(pages).toJson(QJsonDocument::Compact).constData());
    return 0;
}

int main(int argc, char** argv) {
    if (argc > 2 && QByteArray(argv[1]) == "--anchors")
        return PrintAnchors(argc, argv);
    std::printf("listing pages (best of the rounds; MB/s of the page's bytes):\n");
    for (const qsizetype size : {qsizetype(36 * 1024), qsizetype(100 * 1024), qsizetype(1024 * 1024)}) {
        const QByteArray page = ListingPage(size);
        const int rounds = size > 200 * 1024 ? 10 : 50;
        const double facade = BestMs(rounds, [&page] { ReadAsTheScanDoes(page); });
        const double parseOnly = BestMs(
            rounds, [&page] { Checksum += ParseHtmlDocument(page, QString(), PageUrl)->links().size(); });
        const double libxml = BestMs(rounds, [&page] { LibxmlTree(page); });
        const auto rate = [&page](double ms) { return double(page.size()) / (ms / 1e3) / 1e6; };
        std::printf("  %7lld bytes: facade %.3f ms (parse %.3f ms, %.1f MB/s; links read %.3f ms); "
                    "libxml2's own tree %.3f ms (%.1f MB/s, facade parse / libxml2 %.2f)",
                    static_cast<long long>(page.size()), facade, parseOnly, rate(parseOnly),
                    facade - parseOnly, libxml, rate(libxml), parseOnly / libxml);
#ifdef MARQUILL_HAVE_GUMBO
        const double gumbo = BestMs(rounds, [&page] { GumboTree(page); });
        std::printf("; gumbo %.3f ms (%.1f MB/s, gumbo / facade parse %.2f)", gumbo, rate(gumbo),
                    gumbo / parseOnly);
#endif
        std::printf("\n");
    }
#ifndef MARQUILL_HAVE_GUMBO
    std::printf("  (gumbo: not installed; apt-get install libgumbo-dev and reconfigure for its figures)\n");
#endif

    // The worst shapes found for the parser, at the body size cap: elements left open, then end tags
    // that make libxml2 look through every element open, or elements that pile up past the cap.
    std::printf("tag soup at the 16 MiB body cap (one parse each):\n");
    const qsizetype cap = 16 * 1024 * 1024;
    const auto fill = [cap](QByteArray head, const QByteArray& open, int times, const QByteArray& repeat) {
        for (int i = 0; i < times; ++i)
            head += open;
        while (head.size() < cap)
            head += repeat;
        return head;
    };
    struct Shape {
        const char* name;
        QByteArray page;
    };
    const Shape shapes[] = {
        {"spans left open, then </p> after </p>", fill("<html><body>", "<span>", 509, "</p>")},
        {"divs over a p, then <p>x</p> after <p>x</p>",
         fill("<html><body><p><span>", "<div>", 509, "<p>x</p>")},
        {"spans left open, then <i>x</b> after <i>x</b>", fill("<html><body>", "<span>", 509, "<i>x</b>")},
        {"a <font> never closed before every link",
         fill("<html><body>", "", 0, "<font><a href=\"http://cgi.example.test/x\">T</a>")},
    };
    for (const Shape& shape : shapes) {
        QElapsedTimer timer;
        timer.start();
        const auto document = ParseHtmlDocument(shape.page, QString(), PageUrl);
        std::printf("  %-48s %6.0f ms, %zu elements, %zu links\n", shape.name,
                    double(timer.nsecsElapsed()) / 1e6, document->all().size(), document->links().size());
    }

    // An index page of 15 MiB under 190 nested divs: the parse, a walk of every element as the crawl
    // makes it (tag name and default value), and the text of each link, which is all a crawl needs.
    QByteArray index = "<html><body>";
    for (int i = 0; i < 190; ++i)
        index += "<div>";
    for (int i = 0; index.size() < 15 * 1024 * 1024; ++i)
        index += "<table><tr><td><a href=\"http://listings.example.test/M" + QByteArray::number(i) +
                 "\">See all Main " + QByteArray::number(i) + " categories...</a></td></tr></table>\n";
    QElapsedTimer timer;
    timer.start();
    const auto document = ParseHtmlDocument(index, QString(), PageUrl);
    const double parseMs = double(timer.nsecsElapsed()) / 1e6;
    timer.restart();
    for (HtmlElement* element : document->all())
        Checksum += element->tagName().size() + element->DefaultValue().size();
    const double walkMs = double(timer.nsecsElapsed()) / 1e6;
    timer.restart();
    for (HtmlElement* link : document->links())
        Checksum += link->innerText().size();
    const double linkTextMs = double(timer.nsecsElapsed()) / 1e6;
    std::printf(
        "index page %lld bytes under 190 divs: parse %.0f ms, walk of %zu elements %.0f ms, innerText "
        "of %zu links %.0f ms\n",
        static_cast<long long>(index.size()), parseMs, document->all().size(), walkMs,
        document->links().size(), linkTextMs);
    std::printf("[checksum %lld]\n", static_cast<long long>(Checksum));
    return 0;
}
