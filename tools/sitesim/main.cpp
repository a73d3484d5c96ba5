// marquill-sitesim: the sample site. A small HTTP/1.1 server on 127.0.0.1 that plays the two
// auction sites the program reads, so tests, benchmarks and the demonstration need no internet.
// The program reaches it as its HTTP proxy, with every URL left as the real site's; requests in
// origin form (path plus Host header) get the same answers.
//
// URL scheme, for each site S of "ebay.com" and "ebay.co.uk":
//   http://www.ebay.com/                          the connectivity probe: a small page (see --probe)
//   http://listings.S/                            the category index: per main category a table cell
//                                                 holding "See all <Name> categories...", one
//                                                 "See all featured items" link, other links
//   http://listings.S/<Main>_W0QQsacatZ<mainId>   a main category: each sub-category linked inside
//                                                 <b>, with "Browse ..." links, other hosts and links
//                                                 outside <b> around them
//   http://listings.S/<Main>-<Sub>_W0QQsacatZ<subId>                        a sub-category as linked
//   ...QQsacatZ<subId>QQsorecordsperpageZ50       its first listing page: 50 records
//   ...QQlopgZ<n>QQsacatZ<subId>QQsorecordsperpageZ50   page n; Z200 gives 200 records a page
//   http://cgi.S/<words>_W0QQitemZ<itemId>QQcmdZViewItem   an auction's item page
// A listing page holds per record an image link and a title link to the item page, other links
// (seller, feedback, watch list, help, next page) and the marker "<b>Page n</b> of N</td>".
// An unknown category or a page beyond the last gives a page without auction links. Ids, names,
// page counts are fixed per site; the titles come from the seed.
//
// Options:
//   --port P               port on 127.0.0.1, 0 (default) picks a free one; prints
//                          "listening on 127.0.0.1:PORT" on one line
//   --seed N               seed of the auction titles (default 2005)
//   --latency MS           delay before each response
//   --log FILE             each requested absolute URL on a line, in order of arrival
//   --mains M --subs K     a generated catalogue of M main categories with K sub-categories each
//   --print-catalogue S    print site S's tree as a refresh builds it ("FullPath<TAB>URL") and exit
//   --fault MODE=TEXT      for every URL that holds TEXT (repeatable): stall (headers, then silence),
//                          reset (half the body, then a reset), 500 (an error page), garbage (random
//                          bytes as text/html), huge (a 20 MiB page), drip (the head, then the
//                          body one byte a second)
//   --drip-interval MS     the wait between two bytes of a dripping answer (default 1000)
//   --probe ok|empty|500   what the probe URL answers
// SIGTERM and SIGINT end it cleanly.

#include "SiteCatalogue.h"
#include "SitePages.h"
#include "SiteServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTextStream>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

int g_signalPipe[2] = {-1, -1};

void OnSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(g_signalPipe[1], &byte, 1);
}

int Fail(const QString& message) {
    QTextStream(stderr) << "marquill-sitesim: " << message << '\n';
    return 2;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("marquill-sitesim"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MARQUILL_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The sample site: both auction sites on a loopback port."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption portOption(QStringLiteral("port"), QStringLiteral("Port, 0 for a free one."),
                                        QStringLiteral("P"), QStringLiteral("0"));
    const QCommandLineOption seedOption(QStringLiteral("seed"), QStringLiteral("Seed of the titles."),
                                        QStringLiteral("N"), QStringLiteral("2005"));
    const QCommandLineOption latencyOption(QStringLiteral("latency"),
                                           QStringLiteral("Delay before each response."),
                                           QStringLiteral("MS"), QStringLiteral("0"));
    const QCommandLineOption logOption(
        QStringLiteral("log"), QStringLiteral("Write each requested URL to FILE."), QStringLiteral("FILE"));
    const QCommandLineOption mainsOption(QStringLiteral("mains"),
                                         QStringLiteral("Generated main categories."), QStringLiteral("M"));
    const QCommandLineOption subsOption(QStringLiteral("subs"), QStringLiteral("Sub-categories of each."),
                                        QStringLiteral("K"));
    const QCommandLineOption printOption(QStringLiteral("print-catalogue"),
                                         QStringLiteral("Print the tree of SITE and exit."),
                                         QStringLiteral("SITE"));
    const QCommandLineOption faultOption(
        QStringLiteral("fault"), QStringLiteral("stall|reset|500|garbage|huge|drip for URLs that hold TEXT."),
        QStringLiteral("MODE=TEXT"));
    const QCommandLineOption dripOption(QStringLiteral("drip-interval"),
                                        QStringLiteral("Wait between two bytes of a drip fault."),
                                        QStringLiteral("MS"), QStringLiteral("1000"));
    const QCommandLineOption probeOption(QStringLiteral("probe"),
                                         QStringLiteral("The probe's answer: ok, empty, 500."),
                                         QStringLiteral("ANSWER"), QStringLiteral("ok"));
    parser.addOptions({portOption, seedOption, latencyOption, logOption, mainsOption, subsOption, printOption,
                       faultOption, dripOption, probeOption});
    parser.process(app);

    bool ok = false;
    const uint port = parser.value(portOption).toUInt(&ok);
    if (!ok || port > 65535)
        return Fail(QStringLiteral("bad port: ") + parser.value(portOption));
    const quint64 seed = parser.value(seedOption).toULongLong(&ok);
    if (!ok)
        return Fail(QStringLiteral("bad seed: ") + parser.value(seedOption));
    const int latency = parser.value(latencyOption).toInt(&ok);
    if (!ok || latency < 0)
        return Fail(QStringLiteral("bad latency: ") + parser.value(latencyOption));
    const int dripInterval = parser.value(dripOption).toInt(&ok);
    if (!ok || dripInterval < 1)
        return Fail(QStringLiteral("bad drip interval: ") + parser.value(dripOption));
    if (parser.isSet(mainsOption) != parser.isSet(subsOption))
        return Fail(QStringLiteral("--mains and --subs go together"));
    int mains = 0;
    int subs = 0;
    if (parser.isSet(mainsOption)) {
        bool subsOk = false;
        mains = parser.value(mainsOption).toInt(&ok);
        subs = parser.value(subsOption).toInt(&subsOk);
        // Ids leave room for 999 sub-categories behind each main category.
        if (!ok || !subsOk || mains < 1 || mains > 999 || subs < 1 || subs > 999)
            return Fail(QStringLiteral("--mains and --subs take 1 to 999"));
    }

    const QStringList sites{QStringLiteral("ebay.com"), QStringLiteral("ebay.co.uk")};
    QList<SiteCatalogue> catalogues;
    for (const QString& site : sites)
        catalogues.append(mains > 0 ? SiteCatalogue::Generated(site, mains, subs)
                                    : SiteCatalogue::Builtin(site));

    if (parser.isSet(printOption)) {
        const qsizetype index = sites.indexOf(parser.value(printOption));
        if (index < 0)
            return Fail(QStringLiteral("unknown site: ") + parser.value(printOption));
        QTextStream out(stdout);
        out.setEncoding(QStringConverter::Utf8);
        for (const QString& line : catalogues[index].TreeLines())
            out << line << '\n';
        return 0;
    }

    SitePages pages(catalogues, seed);
    SiteServer server(pages);
    server.SetLatency(latency);
    server.SetDripInterval(dripInterval);

    const QString probe = parser.value(probeOption);
    if (probe == QLatin1String("empty"))
        server.SetProbeAnswer(SiteServer::ProbeAnswer::Empty);
    else if (probe == QLatin1String("500"))
        server.SetProbeAnswer(SiteServer::ProbeAnswer::ServerError);
    else if (probe != QLatin1String("ok"))
        return Fail(QStringLiteral("bad probe answer: ") + probe);

    for (const QString& faultText : parser.values(faultOption)) {
        const QString mode = faultText.section(QLatin1Char('='), 0, 0);
        const QString text = faultText.section(QLatin1Char('='), 1);
        SiteFault fault{SiteFault::Mode::Stall, text};
        if (mode == QLatin1String("stall"))
            fault.mode = SiteFault::Mode::Stall;
        else if (mode == QLatin1String("reset"))
            fault.mode = SiteFault::Mode::Reset;
        else if (mode == QLatin1String("500"))
            fault.mode = SiteFault::Mode::ServerError;
        else if (mode == QLatin1String("garbage"))
            fault.mode = SiteFault::Mode::Garbage;
        else if (mode == QLatin1String("huge"))
            fault.mode = SiteFault::Mode::Huge;
        else if (mode == QLatin1String("drip"))
            fault.mode = SiteFault::Mode::Drip;
        else
            return Fail(QStringLiteral("bad fault: ") + faultText);
        // An empty text would match every URL; that is allowed, but only when asked for with "=".
        if (!faultText.contains(QLatin1Char('=')))
            return Fail(QStringLiteral("bad fault: ") + faultText);
        server.AddFault(fault);
    }

    if (parser.isSet(logOption) && !server.SetLog(parser.value(logOption)))
        return Fail(QStringLiteral("cannot write the log ") + parser.value(logOption));
    if (!server.Listen(quint16(port)))
        return Fail(QStringLiteral("cannot listen: ") + server.ErrorText());

    if (::pipe(g_signalPipe) != 0)
        return Fail(QStringLiteral("cannot create the signal pipe"));
    QSocketNotifier notifier(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &app, [] {
        char byte = 0;
        [[maybe_unused]] const auto got = ::read(g_signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    std::signal(SIGTERM, OnSignal);
    std::signal(SIGINT, OnSignal);
    // A client that goes away mid-write must not end the server.
    std::signal(SIGPIPE, SIG_IGN);

    std::printf("listening on 127.0.0.1:%u\n", unsigned(server.Port()));
    std::fflush(stdout);
    const int status = app.exec();
    ::close(g_signalPipe[0]);
    ::close(g_signalPipe[1]);
    return status;
}
