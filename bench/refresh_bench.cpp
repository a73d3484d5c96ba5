// A refresh of one site with 40 main categories of 60 sub-categories each, against the sample site
// over loopback HTTP with no latency: the whole time, the time spent saving the category file after
// each find, and the pages read per second.
#include "SiteSim.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "catalogue/modRetreiver.h"
#include "catalogue/modXML.h"
#include "harvest/HttpPageSource.h"
#include "harvest/modMain.h"
#include "platform/HostHooks.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QNetworkProxy>
#include <QTemporaryDir>
#include <cstdio>
#include <pugixml.hpp>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QString mains = QStringLiteral("40");
    const QString subs = QStringLiteral("60");
    SiteSim site(QStringList{QStringLiteral("--mains"), mains, QStringLiteral("--subs"), subs});
    QTemporaryDir dir;
    if (!site.isRunning() || !dir.isValid()) {
        std::fprintf(stderr, "cannot start the sample site or make a folder\n");
        return 1;
    }
    HttpPageSource::SetProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));
    SetProgramFolder(dir.path());
    CategoryStore.CategoryFilePath = dir.filePath(CategoryFileName);
    Hooks().SiteLabel = [] { return USSiteLabel; };

    const std::int32_t savesBefore = CategoryFileSaveCount();
    const std::int64_t saveNsBefore = CategoryFileSaveNanoseconds();
    QElapsedTimer timer;
    timer.start();
    const RefreshResult result = RefreshCategories();
    const double totalSeconds = double(timer.nsecsElapsed()) / 1e9;
    const double saveSeconds = double(CategoryFileSaveNanoseconds() - saveNsBefore) / 1e9;
    const std::int32_t saves = CategoryFileSaveCount() - savesBefore;

    const qsizetype pages = site.requestLog().size();
    QStringList tree;
    for (const CategoryNode* node : CurrentCategoryTree()->NodesInOrder())
        tree << node->FullPath() + QLatin1Char('\t') + node->Key();
    const bool matches = tree == site.catalogue(USSiteLabel);

    std::printf("refresh of %s main categories x %s sub-categories, loopback HTTP, no latency\n",
                qUtf8Printable(mains), qUtf8Printable(subs));
    std::printf("found: %d main, %d sub; tree equals the site's catalogue: %s\n", result.MainCount,
                result.SubCount, matches ? "yes" : "NO");
    std::printf("category file at the end: %lld bytes\n",
                static_cast<long long>(QFileInfo(CategoryStore.CategoryFilePath).size()));
    std::printf("total time:          %8.3f s\n", totalSeconds);
    std::printf("saving (%d saves):  %8.3f s  (%.1f ms a save)\n", saves, saveSeconds,
                saves > 0 ? saveSeconds * 1000.0 / saves : 0.0);
    std::printf("everything else:     %8.3f s\n", totalSeconds - saveSeconds);
    std::printf("pages read:          %8lld  (%.1f pages/s)\n", static_cast<long long>(pages),
                totalSeconds > 0 ? double(pages) / totalSeconds : 0.0);
    std::printf("saving / total:      %8.2f  (target < 0.50: %s)\n", saveSeconds / totalSeconds,
                saveSeconds < totalSeconds / 2 ? "met" : "NOT met");

    // Where a save's time goes: turning the final document into bytes, against a whole save of it.
    constexpr int Rounds = 20;
    if (OpenCategoryFile(CategoryStore.CategoryFilePath, CategoryRootName)) {
        struct Sink final : pugi::xml_writer {
            void write(const void*, size_t size) override { bytes += size; }
            size_t bytes = 0;
        } sink;
        timer.restart();
        for (int i = 0; i < Rounds; ++i)
            CategoryStore.XmlDocument->save(sink, "", pugi::format_raw | pugi::format_no_declaration,
                                            pugi::encoding_latin1);
        const double serialiseMs = double(timer.nsecsElapsed()) / 1e6 / Rounds;
        timer.restart();
        for (int i = 0; i < Rounds; ++i)
            SaveCategoryFile();
        const double saveMs = double(timer.nsecsElapsed()) / 1e6 / Rounds;
        std::printf("final document: %.2f ms to serialise, %.2f ms a whole save (file written, synced, "
                    "renamed)\n",
                    serialiseMs, saveMs);
        ReleaseCategoryFile();
    }
    return matches ? 0 : 1;
}
