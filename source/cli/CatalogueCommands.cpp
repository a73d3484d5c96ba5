#include "CatalogueCommands.h"

#include "ApiCategories.h"
#include "ApiClient.h"
#include "CategoryCatalogue.h"
#include "CategoryTree.h"
#include "CliOptions.h"
#include "HostHooks.h"
#include "Terminal.h"
#include "modRetreiver.h"
#include "modXML.h"

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
    options.Add({QStringLiteral("quiet"), QStringLiteral("No progress line; warnings and errors only.")});
    options.Add({QStringLiteral("source"),
                 QStringLiteral("api (the site's Taxonomy API, with the application keys) or pages (the "
                                "category pages). Default: api when keys are given, else pages."),
                 QStringLiteral("SOURCE")});
    if (const std::optional<int> status = options.Parse(arguments))
        return *status;
    if (options.ApplyCommon().isEmpty())
        return ExitBadArguments;
    if (options.IsSet(QStringLiteral("source"))) {
        const QString source = options.Value(QStringLiteral("source"));
        if (source != u"api" && source != u"pages") {
            Err() << "marquill-cli refresh: --source must be api or pages\n";
            return ExitBadArguments;
        }
        SetRefreshSource(source == u"api" ? CategorySource::Api : CategorySource::Pages);
    }
    const bool quiet = options.IsSet(QStringLiteral("quiet"));
    // The refresh saves into the file that the tree is read from.
    CategoryStore.CategoryFilePath = ProgramFolder() + u'/' + CategoryFileName;
    SetProgressShown(!quiet);
    InstallInterrupt();
    const RefreshResult result = RefreshCategories();
    EndProgress();
    if (!quiet)
        Err() << "Total Found: " << result.MainCount << " (" << result.SubCount << ")\n" << Qt::flush;
    if (Interrupted())
        return ExitInterrupted;
    switch (result.Outcome) {
    case RefreshOutcome::CannotOpen:
        return ExitCannotOpen;
    case RefreshOutcome::NothingFound:
        return ApiClient::Process().Failures() > 0 ? ExitServiceFailed : ExitNothingFound;
    case RefreshOutcome::Completed:
    case RefreshOutcome::Stopped:
        break;
    }
    return ExitOk;
}
