#include "SearchCommand.h"

#include "CategoryCatalogue.h"
#include "CategoryTree.h"
#include "CliOptions.h"
#include "HostHooks.h"
#include "Inet.h"
#include "OutputFile.h"
#include "OutputFormat.h"
#include "PrefetchPageSource.h"
#include "ResearchOutput.h"
#include "ResultRows.h"
#include "RunHealth.h"
#include "Terminal.h"
#include "VbNumeric.h"
#include "modMain.h"
#include "modParser.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QHash>
#include <QJsonDocument>
#include <QLocale>
#include <limits>

namespace {

constexpr int MaxParallel = 32;

struct SearchRequest {
    QString site;
    std::int32_t maxAuctions = 2000;
    OutputFormat format = OutputFormat::Csv;
    int parallel = 1;
};

// --auctions: a number from 1 up, exactly that many, or "none".
bool ReadAuctions(const QString& text, std::int32_t& limit) {
    if (text == u"none") {
        limit = NoAuctionLimit;
        return true;
    }
    bool ok = false;
    const qlonglong value = text.toLongLong(&ok);
    if (!ok || value < 1 || value > std::numeric_limits<std::int32_t>::max())
        return false;
    limit = std::int32_t(value);
    return true;
}

std::optional<int> ReadRequest(CommandOptions& options, SearchRequest& request) {
    request.site = options.ApplyCommon();
    if (request.site.isEmpty())
        return ExitBadArguments;
    const auto refuse = [](const char* message) {
        Err() << "marquill-cli search: " << message << '\n';
        return ExitBadArguments;
    };
    if (options.IsSet(QStringLiteral("auctions")) &&
        !ReadAuctions(options.Value(QStringLiteral("auctions")), request.maxAuctions))
        return refuse("--auctions must be a number from 1 to 2147483647, or none");
    const std::optional<OutputFormat> format = OutputFormatNamed(options.Value(QStringLiteral("format")));
    if (!format)
        return refuse("--format must be csv, tsv or json");
    request.format = *format;
    if (options.IsSet(QStringLiteral("locale")) && !ApplyLocale(options.Value(QStringLiteral("locale"))))
        return refuse("--locale must name a locale, such as en_US or en_GB");
    bool ok = false;
    request.parallel = options.Value(QStringLiteral("parallel")).toInt(&ok);
    if (!ok || request.parallel < 1 || request.parallel > MaxParallel)
        return refuse("--parallel must be a number from 1 to 32");
    return std::nullopt;
}

void DeclareOptions(CommandOptions& options) {
    options.AddSite();
    options.Add({QStringLiteral("node"),
                 QStringLiteral("The node to search: its FullPath, levels joined by ~ (required), e.g. "
                                "\"Select Category~Coins & Paper Money\"."),
                 QStringLiteral("PATH")},
                true);
    options.Add({QStringLiteral("auctions"),
                 QStringLiteral("Auction limit: a number from 1, or none (default 2000)."),
                 QStringLiteral("N")});
    options.AddData();
    options.AddProxy();
    options.Add({QStringLiteral("format"),
                 QStringLiteral("csv (word,count lines, RFC 4180), tsv (word<TAB>count, \\t \\n \\r \\\\ "
                                "escaped) or json (one object with the words and the run's health)."),
                 QStringLiteral("FORMAT"), QStringLiteral("csv")});
    options.Add({QStringLiteral("output"),
                 QStringLiteral("Writes the words to FILE, whole or not at all, instead of standard output."),
                 QStringLiteral("FILE")});
    options.Add({QStringLiteral("report"), QStringLiteral("Writes the run's health report to FILE as JSON."),
                 QStringLiteral("FILE")});
    options.Add({QStringLiteral("locale"),
                 QStringLiteral("Locale of the numeric rules, e.g. en_GB (default: the user's; US English "
                                "when that is C or POSIX)."),
                 QStringLiteral("NAME")});
    options.Add({QStringLiteral("parallel"),
                 QStringLiteral("Up to N page loads at once, 1 to 32; the walk and its words stay those of a "
                                "run one page at a time (default 1)."),
                 QStringLiteral("N"), QStringLiteral("1")});
    ResearchOutput::Declare(options, true);
    options.Add({QStringLiteral("quiet"), QStringLiteral("No progress line and no summary; warnings and "
                                                         "errors only.")});
}

} // namespace

int RunSearchCommand(const QStringList& arguments) {
    CommandOptions options(
        QStringLiteral("search"),
        QStringLiteral("Runs a keyword search and prints the words with their counts, most "
                       "frequent first. Progress, the summary and the run's health go to "
                       "standard error."));
    DeclareOptions(options);
    if (const std::optional<int> status = options.Parse(arguments))
        return *status;
    SearchRequest request;
    if (const std::optional<int> status = ReadRequest(options, request))
        return *status;
    const bool quiet = options.IsSet(QStringLiteral("quiet"));
    OutputFile output(options.Value(QStringLiteral("output")));
    std::optional<OutputFile> report;
    if (options.IsSet(QStringLiteral("report")))
        report.emplace(options.Value(QStringLiteral("report")));
    if (!output.Open() || (report && !report->Open()))
        return ExitCannotWrite;
    ResearchOutput research;
    if (const std::optional<int> status = research.Read(options, QStringLiteral("search")))
        return *status;

    WarnOfUnfinishedRefresh();
    LoadCategories();
    const std::shared_ptr<const CategoryTree> tree = CurrentCategoryTree();
    if (!tree || !tree->Root())
        return ExitCannotOpen;
    const QString path = options.Value(QStringLiteral("node"));
    const CategoryNode* node = tree->FindByPath(path);
    if (!node) {
        Err() << "marquill-cli search: no node \"" << path << "\" in the tree of " << request.site << '\n';
        return ExitBadArguments;
    }
    if (ProbeAnswerIsEmpty(OpenURL(ProbeUrl))) {
        Err() << "You appear not to be online..\nPlease connect and try again\n";
        return ExitOffline;
    }

    std::unique_ptr<PrefetchPageSource> prefetch;
    if (request.parallel > 1) {
        prefetch = PrefetchPageSource::OverHttp(request.parallel);
        SetDefaultPageSource(prefetch.get());
    }
    RunHealth health([&prefetch](const QStringList& urls) {
        if (prefetch)
            prefetch->SetUpcoming(urls);
    });
    TitleSnapshot header{request.site,
                         node->FullPath(),
                         request.maxAuctions,
                         QDateTime::currentDateTimeUtc(),
                         QCoreApplication::applicationVersion(),
                         NumericLocale().name(),
                         {}};
    QHash<QString, QString> nodeOfUrl;
    for (const CategoryNode* each : tree->NodesInOrder())
        nodeOfUrl.insert(PrepareListingUrl(each->Key()), each->FullPath());
    SetHarvestObserver(research.Begin(
        header, [&nodeOfUrl](const QString& url) { return nodeOfUrl.value(url); }, &health));
    SetProgressShown(!quiet);
    InstallInterrupt();

    HarvestState.KeywordsFound = 0;
    HarvestState.StopRequested = FlagFalse;
    HarvestState.SelectedPath = node->FullPath();
    HarvestState.AuctionsScanned = 0;
    HarvestState.MaxAuctions = request.maxAuctions;
    const SearchScope scope = ScopeOfPath(HarvestState.SelectedPath);
    health.Start(scope);
    RunHarvest(scope, node->Key(), tree, node);
    health.Finish(prefetch ? prefetch->Unasked() : 0);
    SetHarvestObserver(nullptr);
    research.End();
    SetDefaultPageSource(nullptr);
    prefetch.reset();
    EndProgress();

    if (!quiet) {
        const SummaryCaptions captions = CaptionsForPath(HarvestState.SelectedPath);
        Err() << "Site: " << request.site << "\nMain: " << captions.main << "\nSub: " << captions.sub
              << "\nKeywords found: " << NumericLocale().toString(HarvestState.KeywordsFound) << '\n'
              << health.Summary() << '\n';
    }
    for (const QString& warning : {health.EmptyPagesWarning(), health.OffsetCapWarning()})
        if (!warning.isEmpty())
            Err() << warning << '\n';
    Err() << Qt::flush;

    const QJsonObject healthJson = health.ToJson();
    const QJsonObject about{
        {QStringLiteral("site"), request.site},
        {QStringLiteral("node"), HarvestState.SelectedPath},
        {QStringLiteral("auctions_limit"),
         request.maxAuctions == NoAuctionLimit ? QJsonValue() : QJsonValue(request.maxAuctions)},
        {QStringLiteral("health"), healthJson},
    };
    bool written = output.Write(FormatWords(request.format, research.Rows(), about, research.ListName()));
    written = research.WriteFiles(request.site, HarvestState.SelectedPath, header.time,
                                  HarvestState.AuctionsScanned) &&
              written;
    if (report)
        written = report->Write(QJsonDocument(healthJson).toJson(QJsonDocument::Indented)) && written;
    if (!written)
        return ExitCannotWrite;
    if (!health.ServiceError().isEmpty())
        return ExitServiceFailed;
    return Interrupted() ? ExitInterrupted : ExitOk;
}
