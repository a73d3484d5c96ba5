// Opening and filling a category file of both sites, 40 main categories each with 60
// sub-categories (about 5,000 nodes), and one AddSubCategory save on it.
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/modXML.h"
#include "platform/HostHooks.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int MainCategories = 40;
constexpr int SubCategories = 60;
constexpr int Rounds = 20;

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void BuildFile(const QString& path) {
    CategoryStore.CategoryFilePath = path;
    OpenCategoryFile(path, CategoryRootName);
    for (const QString& site : {USSiteLabel, UKSiteLabel}) {
        Hooks().SiteLabel = [site] { return site; };
        for (int m = 0; m < MainCategories; ++m) {
            const QString mainUrl =
                QStringLiteral("http://listings.%1/Main-%2_W0QQfromZR4QQsacatZ%2").arg(site).arg(m);
            AddMainCategory(QStringLiteral("Main category %1 & more").arg(m), mainUrl);
            for (int s = 0; s < SubCategories; ++s)
                AddSubCategory(QStringLiteral("Sub-category %1 of %2").arg(s).arg(m),
                               QStringLiteral("http://listings.%1/Sub_W0QQsacatZ%2x%3QQsorecordsperpageZ50")
                                   .arg(site)
                                   .arg(m)
                                   .arg(s));
        }
    }
    ReleaseCategoryFile();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    if (!dir.isValid())
        return 1;
    SetProgramFolder(dir.path());
    const QString path = dir.filePath(CategoryFileName);
    const QString built = dir.filePath(QStringLiteral("built.xml"));
    BuildFile(built);
    Hooks().SiteLabel = [] { return USSiteLabel; };

    std::vector<double> openFill;
    std::vector<double> save;
    qsizetype nodes = 0;
    for (int round = 0; round < Rounds; ++round) {
        // Every round starts from the same file of 80 main categories.
        QFile::remove(path);
        QFile::copy(built, path);
        QElapsedTimer timer;
        timer.start();
        LoadCategories();
        openFill.push_back(double(timer.nsecsElapsed()) / 1e6);
        nodes = qsizetype(CurrentCategoryTree()->NodesInOrder().size());

        Hooks().SiteLabel = [] { return UKSiteLabel; };
        AddMainCategory(QStringLiteral("Bench"), QStringLiteral("http://bench/%1").arg(round));
        timer.restart();
        AddSubCategory(QStringLiteral("Bench sub"),
                       QStringLiteral("http://bench/%1QQsorecordsperpageZ50").arg(round));
        save.push_back(double(timer.nsecsElapsed()) / 1e6);
        ReleaseCategoryFile();
        Hooks().SiteLabel = [] { return USSiteLabel; };
    }

    const double openFillMs = Median(openFill);
    const double saveMs = Median(save);
    std::printf("category file: %lld bytes, %d main and %d sub-categories per site, US tree %lld nodes\n",
                static_cast<long long>(QFileInfo(built).size()), MainCategories,
                MainCategories * SubCategories, static_cast<long long>(nodes));
    std::printf("open + fill (median of %d): %.2f ms (target < 50 ms, %.2f of it)\n", Rounds, openFillMs,
                openFillMs / 50.0);
    std::printf("one AddSubCategory save (median of %d): %.2f ms (target < 10 ms, %.2f of it)\n", Rounds,
                saveMs, saveMs / 10.0);
    return 0;
}
