// Refreshes of one site against the sample site over loopback HTTP with no latency, at 600, 2,400
// and 10,000 sub-categories: the time per find (main and sub-categories), the share spent saving
// the category file after each find, and whether the per-find time stays flat as the file grows.
//   refresh_bench [ROUNDS]   each size refreshed ROUNDS times (default 3), the median kept
#include "SiteSim.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "catalogue/modRetreiver.h"
#include "catalogue/modXML.h"
#include "harvest/FilePageSource.h"
#include "harvest/HttpPageSource.h"
#include "platform/HostHooks.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QNetworkProxy>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

struct Size {
    int mains;
    int subs;
};

struct Figures {
    double perFindMs = 0;
    double saveShare = 0;
    double perSaveMs = 0;
    qint64 fileBytes = 0;
    bool matches = false;
};

Figures RefreshOnce(const QStringList& catalogue) {
    Figures figures;
    QTemporaryDir dir;
    if (!dir.isValid())
        return figures;
    SetProgramFolder(dir.path());
    CategoryStore.CategoryFilePath = dir.filePath(CategoryFileName);

    const std::int32_t savesBefore = CategoryFileSaveCount();
    const std::int64_t saveNsBefore = CategoryFileSaveNanoseconds();
    QElapsedTimer timer;
    timer.start();
    const RefreshResult result = RefreshCategories();
    const double totalMs = double(timer.nsecsElapsed()) / 1e6;
    const double saveMs = double(CategoryFileSaveNanoseconds() - saveNsBefore) / 1e6;
    const std::int32_t saves = CategoryFileSaveCount() - savesBefore;

    const int finds = result.MainCount + result.SubCount;
    figures.perFindMs = finds > 0 ? totalMs / finds : 0;
    figures.saveShare = totalMs > 0 ? saveMs / totalMs : 0;
    figures.perSaveMs = saves > 0 ? saveMs / saves : 0;
    figures.fileBytes = QFileInfo(CategoryStore.CategoryFilePath).size();
    QStringList tree;
    for (const CategoryNode* node : CurrentCategoryTree()->NodesInOrder())
        tree << node->FullPath() + QLatin1Char('\t') + node->Key();
    figures.matches = tree == catalogue;
    return figures;
}

// The crawl of an index page whose text lies under 190 nested divs, with a few See-all links in it:
// asking every element for its text would build the 15 MiB once for each level.
double HostileIndexSeconds() {
    QTemporaryDir dir;
    const QString page = dir.filePath(QStringLiteral("index.htm"));
    QFile file(page);
    if (!file.open(QIODevice::WriteOnly))
        return -1;
    file.write("<html><body>" + QByteArray("<div>").repeated(190));
    const QByteArray line = QByteArray("plain words of an index page ").repeated(34) + "<br>\n";
    for (int i = 0; i < 15 * 1024 * 1024 / line.size(); ++i)
        file.write(i % 20000 == 0 ? "<a href=\"/M" + QByteArray::number(i) + "\">See all M categories</a>" : line);
    file.write(QByteArray("</div>").repeated(190) + "</body></html>");
    file.close();
    FilePageSource pages;
    pages.AddPage(QUrl(ListingsBaseUrl(USSiteLabel)), page);
    SetDefaultPageSource(&pages);
    SetProgramFolder(dir.path());
    CategoryStore.CategoryFilePath = dir.filePath(CategoryFileName);
    QElapsedTimer timer;
    timer.start();
    RefreshCategories();
    SetDefaultPageSource(nullptr);
    return double(timer.nsecsElapsed()) / 1e9;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 3;
    Hooks().SiteLabel = [] { return USSiteLabel; };
    Hooks().SetMainTotalCaption = [](const QString&) {};

    const std::vector<Size> sizes{{12, 50}, {40, 60}, {100, 100}};
    std::vector<double> perFind;
    bool allMatch = true;
    std::printf("refresh of one site, loopback HTTP, no latency, median of %d rounds\n", rounds);
    std::printf("%-10s %6s %10s %12s %12s %12s %6s\n", "mains x subs", "finds", "file", "per find",
                "per save", "saving share", "tree");
    for (const Size& size : sizes) {
        SiteSim site(QStringList{QStringLiteral("--mains"), QString::number(size.mains),
                                 QStringLiteral("--subs"), QString::number(size.subs)});
        if (!site.isRunning()) {
            std::fprintf(stderr, "cannot start the sample site\n");
            return 1;
        }
        HttpPageSource::SetProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));
        const QStringList catalogue = site.catalogue(USSiteLabel);
        std::vector<Figures> runs;
        for (int round = 0; round < rounds; ++round)
            runs.push_back(RefreshOnce(catalogue));
        std::sort(runs.begin(), runs.end(),
                  [](const Figures& a, const Figures& b) { return a.perFindMs < b.perFindMs; });
        const Figures& median = runs[runs.size() / 2];
        const bool matches =
            std::all_of(runs.begin(), runs.end(), [](const Figures& f) { return f.matches; });
        allMatch = allMatch && matches;
        perFind.push_back(median.perFindMs);
        std::printf("%4d x %-5d %6d %8.0f KB %9.3f ms %9.3f ms %12.2f %6s\n", size.mains, size.subs,
                    size.mains * (size.subs + 1), double(median.fileBytes) / 1024.0, median.perFindMs,
                    median.perSaveMs, median.saveShare, matches ? "equal" : "DIFFERS");
    }
    const double ratio = perFind.front() > 0 ? perFind.back() / perFind.front() : 0;
    std::printf("per find at 10,000 / per find at 600: %.2f (target <= 2.00: %s)\n", ratio,
                ratio <= 2.0 ? "met" : "NOT met");
    std::printf("refresh of a 15 MiB index page under 190 nested divs (parse included): %.2f s\n",
                HostileIndexSeconds());
    return allMatch ? 0 : 1;
}
