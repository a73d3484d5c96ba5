// A 40-page sub-category harvest against the sample site on loopback, beside curl fetching the
// same 40 URLs one after another through the same proxy on one kept-alive connection: the network
// alone. Run for a latency of 0 and of 50 ms per response; then the processing cost per page
// (parse, walk, tally) over the fetched pages, read back from files.
#include "BrowserPage.h"
#include "CatalogueTree.h"
#include "CategoryTree.h"
#include "FilePageSource.h"
#include "HarvestObserver.h"
#include "HostHooks.h"
#include "HttpPageSource.h"
#include "PrefetchPageSource.h"
#include "SiteSim.h"
#include "modMain.h"
#include "modParser.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QNetworkProxy>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <QUrl>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr int BenchPages = 40;
constexpr int RecordsPerPage = 50;
constexpr int Rounds = 3;
const QString BenchSite = QStringLiteral("ebay.com");

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

QStringList Catalogue() {
    QProcess process;
    process.start(QStringLiteral(MARQUILL_SITESIM), {QStringLiteral("--print-catalogue"), BenchSite});
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return {};
    return QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

int PageCountOf(const QString& url) {
    BrowserPage page;
    page.Navigate(url);
    while (page.ReadyState() != 4)
        Hooks().WaitForEvents();
    const HtmlElement* root = page.Document()->documentElement();
    const int count = ReadPageCount(root ? root->outerHTML() : QString());
    page.Quit();
    return count;
}

struct Choice {
    QString path;
    QString url;
    int pages = 0;
};

// A sub-category of exactly 40 pages is harvested to its end with no limit. Failing one, the
// first longer one is cut at the auction limit that page 40's last record reaches.
std::optional<Choice> ChooseSubCategory() {
    std::optional<Choice> longer;
    for (const QString& line : Catalogue()) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        if (fields.size() != 2 || fields[0].count(u'~') != 2)
            continue;
        const int pages = PageCountOf(fields[1]);
        if (pages == BenchPages)
            return Choice{fields[0], fields[1], pages};
        if (pages > BenchPages && !longer)
            longer = Choice{fields[0], fields[1], pages};
    }
    return longer;
}

// The yields the run makes between links, counted and timed, since each is a turn of the event
// loop with a poll of every socket and pipe the process holds. One yield in 8 is timed and the
// time scaled up: two clock reads around every yield cost the harvest's CPU figure about 3%.
constexpr qint64 YieldSampling = 8;
qint64 YieldCount = 0;
qint64 YieldNs = 0;

// The sample site started and stopped from a thread of its own. Its pipes and the watch on its
// process are then that thread's descriptors, so each yield of the harvest polls only what it would
// poll on a user's machine, where the server is no child of the program; with the site's three
// descriptors in the harvest's own loop a yield cost about a third more.
class SiteOnItsOwnThread final {
public:
    explicit SiteOnItsOwnThread(const QStringList& arguments = {}) {
        m_context.moveToThread(&m_thread);
        m_thread.start();
        QMetaObject::invokeMethod(
            &m_context, [&] { m_site = std::make_unique<SiteSim>(arguments); }, Qt::BlockingQueuedConnection);
    }
    ~SiteOnItsOwnThread() {
        QMetaObject::invokeMethod(&m_context, [&] { m_site.reset(); }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }
    SiteOnItsOwnThread(const SiteOnItsOwnThread&) = delete;
    SiteOnItsOwnThread& operator=(const SiteOnItsOwnThread&) = delete;

    const SiteSim& operator*() const { return *m_site; }
    const SiteSim* operator->() const { return m_site.get(); }

private:
    QThread m_thread;
    QObject m_context;
    std::unique_ptr<SiteSim> m_site;
};

struct Pass {
    qint64 yields = 0;
    double yieldSeconds = 0;
    double harvestWall = 0;
    double harvestCpu = 0;
    double curlWall = 0;
    int auctions = 0;
    bool sameUrls = false;
    int curlConnections = 0;
};

std::optional<Pass> RunPass(const SiteSim& site, const Choice& choice, QStringList* harvestUrls) {
    HttpPageSource::SetProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));

    auto tree = std::make_shared<CategoryTree>();
    tree->SetPathSeparator(QStringLiteral("~"));
    const QStringList names = choice.path.split(QLatin1Char('~'));
    CategoryNode* root = tree->Add(nullptr, QStringLiteral("Root"), names[0]);
    CategoryNode* main = tree->Add(root, QStringLiteral("main"), names[1]);
    const CategoryNode* sub = tree->Add(main, choice.url, names[2]);

    HarvestState.MaxAuctions = choice.pages == BenchPages ? NoAuctionLimit : BenchPages * RecordsPerPage;
    HarvestState.AuctionsScanned = 0;
    HarvestState.StopRequested = FlagFalse;
    HarvestState.SelectedPath = choice.path;

    Pass pass;
    YieldCount = 0;
    YieldNs = 0;
    const qsizetype logStart = site.requestLog().size();
    const double cpuStart = CpuSeconds();
    QElapsedTimer wall;
    wall.start();
    RunHarvest(ScopeSubCategory, sub->Key(), tree, sub);
    pass.harvestWall = double(wall.nsecsElapsed()) / 1e9;
    pass.harvestCpu = CpuSeconds() - cpuStart;
    pass.auctions = HarvestState.AuctionsScanned;
    pass.yields = YieldCount;
    pass.yieldSeconds = double(YieldNs) / 1e9;
    const QStringList harvested = site.requestLog().mid(logStart);
    if (harvested.size() != BenchPages) {
        std::fprintf(stderr, "the harvest fetched %lld pages, not %d\n",
                     static_cast<long long>(harvested.size()), BenchPages);
        return std::nullopt;
    }

    // One curl process with every URL: one connection, kept alive, each response thrown away.
    QStringList arguments{QStringLiteral("-sf"), QStringLiteral("-x"), site.proxyUrl().toString(),
                          QStringLiteral("-w"), QStringLiteral("%{num_connects}\\n")};
    for (const QString& url : harvested)
        arguments << QStringLiteral("-o") << QStringLiteral("/dev/null") << url;
    QProcess curl;
    wall.restart();
    curl.start(QStringLiteral("curl"), arguments);
    if (!curl.waitForFinished(120000) || curl.exitCode() != 0) {
        std::fprintf(stderr, "curl failed (exit code %d): %s\n", curl.exitCode(),
                     qPrintable(curl.errorString()));
        return std::nullopt;
    }
    pass.curlWall = double(wall.nsecsElapsed()) / 1e9;
    for (const QByteArray& line : curl.readAllStandardOutput().split('\n'))
        pass.curlConnections += line.toInt();
    pass.sameUrls = site.requestLog().mid(logStart + harvested.size()) == harvested;
    if (harvestUrls)
        *harvestUrls = harvested;
    return pass;
}

struct Processing {
    double parseMs = 0;
    double walkMs = 0;
    double tallyMs = 0;
    double pageKb = 0;
    double titles = 0;
};

// Parse, walk and tally over the stored pages, as the listing scan does them, page by page with one
// table for the 40 pages; the best of a few rounds, so other users of the machine count least.
std::optional<Processing> MeasureProcessing(const SiteSim& site, const QStringList& urls) {
    QTemporaryDir dir;
    if (!dir.isValid())
        return std::nullopt;
    QStringList arguments{QStringLiteral("-sf"), QStringLiteral("-x"), site.proxyUrl().toString()};
    for (int i = 0; i < urls.size(); ++i)
        arguments << QStringLiteral("-o") << dir.filePath(QStringLiteral("page%1.html").arg(i)) << urls[i];
    QProcess curl;
    curl.start(QStringLiteral("curl"), arguments);
    if (!curl.waitForFinished(120000) || curl.exitCode() != 0)
        return std::nullopt;

    FilePageSource source;
    qint64 bytes = 0;
    for (int i = 0; i < urls.size(); ++i) {
        const QString path = dir.filePath(QStringLiteral("page%1.html").arg(i));
        bytes += QFileInfo(path).size();
        // The charset the sample site names in its header.
        source.AddPage(QUrl(urls[i]), path, QStringLiteral("ISO-8859-1"));
    }
    const QString prefix = ItemPagePrefix(BenchSite);
    std::optional<Processing> best;
    for (int round = 0; round < 5; ++round) {
        ResetKeywordTable();
        qint64 parseNs = 0, walkNs = 0, tallyNs = 0, titleCount = 0;
        QElapsedTimer timer;
        for (const QString& url : urls) {
            BrowserPage page(&source);
            page.Navigate(url);
            while (page.ReadyState() != 4)
                Hooks().WaitForEvents();
            timer.start();
            HtmlDocument* document = page.Document();
            parseNs += timer.nsecsElapsed();
            QStringList titles;
            timer.start();
            for (const HtmlElement* anchor : document->links()) {
                // As the listing scan walks: the starts decide, only a title is written out.
                if (anchor->DefaultValueStartsWith(prefix) && !anchor->InnerHtmlStartsWith(u"<IMG"))
                    titles << anchor->innerHTML();
            }
            walkNs += timer.nsecsElapsed();
            timer.start();
            for (const QString& title : std::as_const(titles))
                TallyTitle(title);
            titleCount += titles.size();
            tallyNs += timer.nsecsElapsed();
            page.Quit();
        }
        const double n = double(urls.size());
        Processing p{double(parseNs) / n / 1e6, double(walkNs) / n / 1e6, double(tallyNs) / n / 1e6,
                     double(bytes) / n / 1024.0, double(titleCount) / n};
        if (!best || p.parseMs + p.walkMs + p.tallyMs < best->parseMs + best->walkMs + best->tallyMs)
            best = p;
    }
    return best;
}

// A list of the common filler words a seller would exclude, beside the program, so the tally pays
// for its exclusion test as it does for a user.
bool WriteExclusions(const QTemporaryDir& dir) {
    const QByteArray words = "the\nand\nfor\nwith\nfrom\nthis\nthat\nnew\nnr\nl@@k\nwow\nfree\nshipping\n"
                             "lot\nof\nin\nto\na\nan\nor\nis\nno\nreserve\nbid\nnow\nbuy\nit\nlook\n";
    QFile file(dir.filePath(QStringLiteral("exclude.dat")));
    if (!file.open(QIODevice::WriteOnly) || file.write(words) != words.size())
        return false;
    SetProgramFolder(dir.path());
    return true;
}

// ---- Loads ahead: marquill-cli search --parallel N ----

// Hands the run's hints to the loads ahead, as the command-line tool does.
class AheadHints final : public HarvestObserver {
public:
    explicit AheadHints(PrefetchPageSource* source) : m_source(source) {}
    void PagesAhead(const QStringList& urls) override {
        if (m_source)
            m_source->SetUpcoming(urls);
    }
    void PageScanned(const ScannedPage&) override {}

private:
    PrefetchPageSource* m_source;
};

struct AheadPass {
    double wall = 0;
    QStringList rows;
};

// One search of the node with up to n loads in flight, with no auction limit.
AheadPass SearchWithLoadsAhead(const std::shared_ptr<CategoryTree>& tree, const CategoryNode* node, int n) {
    std::unique_ptr<PrefetchPageSource> ahead = n > 1 ? PrefetchPageSource::OverHttp(n) : nullptr;
    AheadHints hints(ahead.get());
    SetDefaultPageSource(ahead.get());
    SetHarvestObserver(&hints);
    HarvestState.MaxAuctions = NoAuctionLimit;
    HarvestState.AuctionsScanned = 0;
    HarvestState.KeywordsFound = 0;
    HarvestState.StopRequested = FlagFalse;
    HarvestState.SelectedPath = node->FullPath();
    QElapsedTimer wall;
    wall.start();
    RunHarvest(ScopeOfPath(node->FullPath()), node->Key(), tree, node);
    AheadPass pass{double(wall.nsecsElapsed()) / 1e9, {}};
    SetHarvestObserver(nullptr);
    SetDefaultPageSource(nullptr);
    for (qsizetype column = 1; column <= HarvestState.KeywordTable.LastEntry(); ++column)
        pass.rows << HarvestState.KeywordTable.Word(column) + u',' + HarvestState.KeywordTable.Count(column);
    return pass;
}

// The 40-page sub-category and the main category with the most sub-categories, at 50 and 200 ms a
// response, with N = 1, 4 and 8 loads in flight. Targets at 200 ms: N = 4 at least 3x faster than
// N = 1, N = 8 at least 5x; the words always those of N = 1.
bool MeasureLoadsAhead(const Choice& choice) {
    const QStringList catalogue = Catalogue();
    const std::shared_ptr<CategoryTree> tree = TreeFromCatalogue(catalogue);
    const CategoryNode* widest = nullptr;
    for (const CategoryNode* main = tree->Root()->Child(); main; main = main->Next())
        if (!widest || main->Children() > widest->Children())
            widest = main;
    const CategoryNode* sub = tree->FindByPath(choice.path);
    if (!widest || !sub || choice.pages != BenchPages) {
        std::fprintf(stderr, "loads ahead: no main category, or no sub-category of %d pages\n", BenchPages);
        return false;
    }
    bool met = true;
    for (const int latency : {50, 200}) {
        SiteSim site({QStringLiteral("--latency"), QString::number(latency)});
        HttpPageSource::SetProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));
        for (const CategoryNode* node : {sub, widest}) {
            std::printf("loads ahead, latency %3d ms, %s (%d pages):", latency,
                        node == sub ? "sub-category" : "main category",
                        node == sub ? BenchPages : node->Children());
            const AheadPass one = SearchWithLoadsAhead(tree, node, 1);
            std::printf(" N=1 %.2f s", one.wall);
            for (const int n : {4, 8}) {
                const AheadPass pass = SearchWithLoadsAhead(tree, node, n);
                const double speedup = one.wall / pass.wall;
                const double target = n == 4 ? 3.0 : 5.0;
                const bool same = pass.rows == one.rows;
                std::printf("; N=%d %.2f s, %.1fx%s%s", n, pass.wall, speedup,
                            latency == 200 ? (n == 4 ? " (target >= 3x)" : " (target >= 5x)") : "",
                            same ? "" : " WORDS DIFFER");
                met = met && same && (latency != 200 || speedup >= target);
            }
            std::printf("\n");
        }
    }
    return met;
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ResetHooks();
    Hooks().SiteLabel = [] { return BenchSite; };
    Hooks().Yield = [plainYield = Hooks().Yield] {
        if (++YieldCount % YieldSampling != 0) {
            plainYield();
            return;
        }
        QElapsedTimer timer;
        timer.start();
        plainYield();
        YieldNs += YieldSampling * timer.nsecsElapsed();
    };
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QTemporaryDir programFolder;
    if (!programFolder.isValid() || !WriteExclusions(programFolder)) {
        std::fprintf(stderr, "the exclusion list could not be written\n");
        return 1;
    }
    std::setvbuf(stdout, nullptr, _IONBF, 0);

    std::optional<Choice> choice;
    {
        SiteSim probe;
        if (!probe.isRunning()) {
            std::fprintf(stderr, "the sample site did not start\n");
            return 1;
        }
        HttpPageSource::SetProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), probe.port()));
        choice = ChooseSubCategory();
    }
    if (!choice) {
        std::fprintf(stderr, "the sample site has no sub-category of %d pages or more\n", BenchPages);
        return 1;
    }
    std::printf("sub-category \"%s\": %d pages, %d harvested (%s), %d rounds, medians\n",
                qPrintable(choice->path), choice->pages, BenchPages,
                choice->pages == BenchPages ? "no auction limit" : "limit 2000 auctions", Rounds);

    // One harvest at no latency and nothing else, for an instruction profile of it:
    //   valgrind --tool=callgrind --toggle-collect='RunHarvest*' build/bin/harvest_bench --once
    if (argc > 1 && QByteArray(argv[1]) == "--once") {
        const SiteOnItsOwnThread site;
        const std::optional<Pass> pass = site->isRunning() ? RunPass(*site, *choice, nullptr) : std::nullopt;
        if (!pass)
            return 1;
        std::printf("one harvest: %d auctions, CPU %.3f s\n", pass->auctions, pass->harvestCpu);
        return 0;
    }

    QStringList urls;
    std::optional<Processing> processing, largeProcessing;
    bool allMet = true;
    for (const int latency : {0, 50}) {
        const SiteOnItsOwnThread thread({QStringLiteral("--latency"), QString::number(latency)});
        const SiteSim& site = *thread;
        if (!site.isRunning()) {
            std::fprintf(stderr, "the sample site did not start\n");
            return 1;
        }
        std::vector<double> harvestWall, harvestCpu, curlWall, yieldSeconds;
        int curlConnections = 0;
        for (int round = 0; round < Rounds; ++round) {
            const std::optional<Pass> pass = RunPass(site, *choice, &urls);
            if (!pass)
                return 1;
            if (!pass->sameUrls) {
                std::fprintf(stderr, "curl did not fetch the harvest's URLs\n");
                return 1;
            }
            curlConnections = std::max(curlConnections, pass->curlConnections);
            harvestWall.push_back(pass->harvestWall);
            yieldSeconds.push_back(pass->yieldSeconds);
            harvestCpu.push_back(pass->harvestCpu);
            curlWall.push_back(pass->curlWall);
            if (round == 0)
                std::printf("latency %2d ms: %d auctions tallied per run, %lld yields\n", latency,
                            pass->auctions, static_cast<long long>(pass->yields));
        }
        const double hw = Median(harvestWall), hc = Median(harvestCpu), cw = Median(curlWall);
        const double ratio = hw / cw, cpuShare = hc / hw;
        std::printf("latency %2d ms: harvest wall %.3f s, curl wall %.3f s, ratio %.2f%s; harvest CPU %.3f s "
                    "(%.1f%% of wall%s); %.1f pages/s (curl %.1f pages/s, at most %d connection(s) a run)\n",
                    latency, hw, cw, ratio, latency == 50 ? " (target <= 1.25)" : "", hc, 100.0 * cpuShare,
                    latency == 50 ? ", target < 15%" : "", BenchPages / hw, BenchPages / cw, curlConnections);
        std::printf("latency %2d ms: time in the yields between links %.3f s (%.0f%% of the harvest's CPU)\n",
                    latency, Median(yieldSeconds), 100.0 * Median(yieldSeconds) / hc);
        if (latency == 50)
            allMet = allMet && ratio <= 1.25 && cpuShare < 0.15;
        if (latency == 0) {
            // The page walk's own targets: the harvest near curl's time, and its CPU a page.
            const double cpuPerPageMs = 1000.0 * hc / BenchPages;
            std::printf(
                "latency  0 ms: harvest / curl %.2f (target <= 1.6); harvest CPU %.2f ms a page of %d "
                "records (target <= 1.3)\n",
                ratio, cpuPerPageMs, RecordsPerPage);
            allMet = allMet && ratio <= 1.6 && cpuPerPageMs <= 1.3;
        }
        if (latency == 0) {
            processing = MeasureProcessing(site, urls);
            // The same records in pages of 200, the size the target speaks of.
            QStringList largeUrls;
            for (int i = 0; i < BenchPages / 4; ++i)
                largeUrls << QString(urls[i]).replace(QStringLiteral("QQsorecordsperpageZ50"),
                                                      QStringLiteral("QQsorecordsperpageZ200"));
            largeProcessing = MeasureProcessing(site, largeUrls);
        }
    }
    if (!processing || !largeProcessing) {
        std::fprintf(stderr, "the pages could not be stored for the processing figure\n");
        return 1;
    }
    for (const Processing& p : {*processing, *largeProcessing}) {
        const double total = p.parseMs + p.walkMs + p.tallyMs;
        const double per100Kb = total * 100.0 / p.pageKb;
        std::printf("processing per page (best of 5): %.2f ms (parse %.2f, walk %.2f, tally %.2f of %.0f "
                    "titles) for %.1f KB; "
                    "%.2f ms per 100 KB (target < 10)\n",
                    total, p.parseMs, p.walkMs, p.tallyMs, p.titles, p.pageKb, per100Kb);
        allMet = allMet && per100Kb < 10.0;
    }
    allMet = MeasureLoadsAhead(*choice) && allMet;
    std::printf("targets %s\n", allMet ? "met" : "MISSED");
    return 0;
}
