#include "CatalogueCommands.h"

#include "ApiCategories.h"
#include "ApiClient.h"
#include "CategoryBackup.h"
#include "CategoryCatalogue.h"
#include "CategoryTree.h"
#include "CliOptions.h"
#include "DataPaths.h"
#include "HostHooks.h"
#include "OutputFile.h"
#include "Terminal.h"
#include "modRetreiver.h"
#include "modXML.h"

#include <QDir>

int RunTreeCommand(const QStringList& arguments) {
    CommandOptions options(
        QStringLiteral("tree"),
        QStringLiteral("Prints the category tree of a site: FullPath, tab, URL, one node a "
                       "line, root first."));
    options.AddSite();
    options.AddData();
    if (const std::optional<int> status = options.Parse(arguments))
        return *status;
    if (options.ApplyCommon().isEmpty())
        return ExitBadArguments;
    WarnOfUnfinishedRefresh();
    LoadCategories();
    const auto tree = CurrentCategoryTree();
    if (!tree || !tree->Root())
        return ExitCannotOpen;
    QTextStream out(stdout);
    for (const CategoryNode* node : tree->NodesInOrder())
        out << node->FullPath() << '\t' << node->Key() << '\n';
    return ExitOk;
}

int RunRefreshCommand(const QStringList& arguments) {
    CommandOptions options(
        QStringLiteral("refresh"),
        QStringLiteral("Crawls the site's category pages into the category file aeurl.xml, "
                       "in place of the site's former categories."));
    options.AddSite();
    options.AddData();
    options.AddProxy();
    options.Add({QStringLiteral("report"),
                 QStringLiteral("Also writes the refresh's report, JSON, to FILE: counts, outcome, "
                                "failed pages."),
                 QStringLiteral("FILE")});
    options.Add({QStringLiteral("quiet"), QStringLiteral("No progress line; warnings and errors only.")});
    options.Add({QStringLiteral("source"),
                 QStringLiteral("api (the site's Taxonomy API, with the application keys) or pages (the "
                                "category pages). Default: api when keys are given, else pages."),
                 QStringLiteral("SOURCE")});
    if (const std::optional<int> status = options.Parse(arguments))
        return *status;
    const QString site = options.ApplyCommon();
    if (site.isEmpty())
        return ExitBadArguments;
    if (options.IsSet(QStringLiteral("source"))) {
        const QString source = options.Value(QStringLiteral("source"));
        if (source != u"api" && source != u"pages") {
            Err() << "marquill-cli refresh: --source must be api or pages\n";
            return ExitBadArguments;
        }
        SetRefreshSource(source == u"api" ? CategorySource::Api : CategorySource::Pages);
    }
    std::optional<OutputFile> report;
    if (options.IsSet(QStringLiteral("report"))) {
        report.emplace(options.Value(QStringLiteral("report")));
        if (!report->Open())
            return ExitCannotWrite;
    }
    const bool quiet = options.IsSet(QStringLiteral("quiet"));
    // The refresh saves into the file that the tree is read from.
    CategoryStore.CategoryFilePath = CategoryFilePath();
    WarnOfUnfinishedRefresh();
    SetProgressShown(!quiet);
    InstallInterrupt();
    const RefreshResult result = RefreshCategories();
    EndProgress();
    if (!quiet)
        Err() << "Total Found: " << result.MainCount << " (" << result.SubCount << ")\n";
    for (const FailedPage& page : result.FailedPages)
        Err() << "failed: " << FailedPageText(page) << '\n';
    if (result.Outcome == RefreshOutcome::Stopped || result.SaveFailed)
        Err() << "The categories of " << site
              << " are partial. To put back the file from before this refresh: "
              << "marquill-cli restore --data " << CategoryFileFolder() << '\n';
    Err() << Qt::flush;
    if (report && !report->Write(RefreshReportJson(result, site)))
        return ExitCannotWrite;
    if (Interrupted())
        return ExitInterrupted;
    // Nothing found keeps the former entries, a narrower answer than a failure; a refused save or a
    // bound leaves the file short of the site, like a page that did not load.
    if (result.Outcome == RefreshOutcome::CannotOpen)
        return ExitCannotOpen;
    if (result.SaveFailed || result.Outcome == RefreshOutcome::Limited)
        return ExitFinishedWithFailures;
    // The site's API refused or failed: its words are on standard error, and the status says so.
    if (result.Outcome == RefreshOutcome::NothingFound)
        return ApiClient::Process().Failures() > 0 ? ExitServiceFailed : ExitNothingFound;
    return result.FailedPages.empty() ? ExitOk : ExitFinishedWithFailures;
}

int RunRestoreCommand(const QStringList& arguments) {
    CommandOptions options(QStringLiteral("restore"),
                           QStringLiteral("Puts back the category file aeurl.xml as it was before the "
                                          "last refresh, from aeurl.xml.bak."));
    options.AddData();
    if (const std::optional<int> status = options.Parse(arguments))
        return *status;
    options.ApplyDataFolder();
    QString error;
    if (!RestoreCategoryFile(CategoryFilePath(), error)) {
        Err() << error << '\n';
        return ExitCannotOpen;
    }
    Err() << "Restored " << QDir::toNativeSeparators(CategoryFilePath()) << " from "
          << QDir::toNativeSeparators(CategoryBackupPath(CategoryFilePath())) << '\n';
    return ExitOk;
}
