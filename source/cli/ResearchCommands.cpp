#include "ResearchCommands.h"

#include "BarChart.h"
#include "CategoryCatalogue.h"
#include "CategoryTree.h"
#include "CliOptions.h"
#include "DataPaths.h"
#include "HostHooks.h"
#include "Inet.h"
#include "ListDiff.h"
#include "OutputFile.h"
#include "OutputFormat.h"
#include "Recount.h"
#include "ResearchOutput.h"
#include "RunHealth.h"
#include "Terminal.h"
#include "VbNumeric.h"
#include "modMain.h"
#include "modParser.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <limits>

namespace {

void AddExclusionOptions(CommandOptions& options) {
    options.AddData();
    options.Add(
        {QStringLiteral("exclude"),
         QStringLiteral("The exclusion list to count with (default: exclude.dat of the data folder)."),
         QStringLiteral("FILE")});
    options.Add({QStringLiteral("locale"),
                 QStringLiteral("Locale of the numeric rules (default: the one the titles were kept under)."),
                 QStringLiteral("NAME")});
}

void AddListOptions(CommandOptions& options, const QString& formats) {
    options.Add({QStringLiteral("format"), formats, QStringLiteral("FORMAT"), QStringLiteral("csv")});
    options.Add({QStringLiteral("output"),
                 QStringLiteral("Writes the list to FILE, whole or not at all, instead of standard output."),
                 QStringLiteral("FILE")});
    options.Add({QStringLiteral("quiet"), QStringLiteral("No summary; warnings and errors only.")});
}

// The exclusion file to count with; empty after saying why a chosen one cannot be read. Without
// --exclude the list is the one a search reads, and a missing one excludes nothing, as there.
QString ExclusionPath(CommandOptions& options, const QString& command) {
    options.ApplyDataFolder();
    if (!options.IsSet(QStringLiteral("exclude")))
        return ExclusionFilePath();
    const QString path = options.Value(QStringLiteral("exclude"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        Err() << "marquill-cli " << command << ": cannot read " << QDir::toNativeSeparators(path) << ": "
              << file.errorString() << '\n';
        return QString();
    }
    return path;
}

std::optional<QByteArray> ReadInput(const QString& path, const QString& command) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        Err() << "marquill-cli " << command << ": cannot read " << QDir::toNativeSeparators(path) << ": "
              << file.errorString() << '\n';
        return std::nullopt;
    }
    return file.readAll();
}

void Refuse(const QString& command, const QString& path, const QString& why) {
    Err() << "marquill-cli " << command << ": " << QDir::toNativeSeparators(path) << ": " << why << '\n';
}

// A snapshot's locale, unless --locale chose one. False after saying why.
bool ApplySnapshotLocale(const CommandOptions& options, const TitleSnapshot& snapshot,
                         const QString& command) {
    const QString name =
        options.IsSet(QStringLiteral("locale")) ? options.Value(QStringLiteral("locale")) : snapshot.locale;
    if (name.isEmpty() || ApplyLocale(name))
        return true;
    Err() << "marquill-cli " << command << ": --locale must name a locale, such as en_US or en_GB\n";
    return false;
}

bool IsSnapshot(const QByteArray& bytes) {
    QString error;
    const qsizetype end = bytes.indexOf('\n');
    return ReadSnapshot(end < 0 ? bytes : bytes.left(end), error).has_value();
}

std::optional<OutputFormat> ReadFormat(const CommandOptions& options, const QString& command) {
    const std::optional<OutputFormat> format = OutputFormatNamed(options.Value(QStringLiteral("format")));
    if (!format)
        Err() << "marquill-cli " << command << ": --format must be csv, tsv or json\n";
    return format;
}

QString Signed(qint64 value) {
    return value > 0 ? u'+' + QString::number(value) : QString::number(value);
}

} // namespace

int RunRecountCommand(const QStringList& arguments) {
    const QString command = QStringLiteral("recount");
    CommandOptions options(command,
                           QStringLiteral("Counts the titles kept by search --save-titles again, by the "
                                          "search's rules and without loading a page, and prints the "
                                          "words as the search prints them."));
    options.AddPositional(QStringLiteral("FILE"), QStringLiteral("The titles kept by search --save-titles."));
    AddExclusionOptions(options);
    AddListOptions(options, QStringLiteral("csv, tsv or json, as search writes them."));
    ResearchOutput::Declare(options, false);
    if (const std::optional<int> status = options.Parse(arguments))
        return *status;
    const QString path = options.Positionals().constFirst();
    const std::optional<OutputFormat> format = ReadFormat(options, command);
    if (!format)
        return ExitBadArguments;
    ResearchOutput research;
    if (const std::optional<int> status = research.Read(options, command))
        return *status;
    const QString exclusions = ExclusionPath(options, command);
    if (exclusions.isEmpty())
        return ExitCannotOpen;
    const std::optional<QByteArray> bytes = ReadInput(path, command);
    if (!bytes)
        return ExitCannotOpen;
    QString error;
    const std::optional<TitleSnapshot> snapshot = ReadSnapshot(*bytes, error);
    if (!snapshot) {
        Refuse(command, path, error);
        return ExitCannotOpen;
    }
    if (!ApplySnapshotLocale(options, *snapshot, command))
        return ExitBadArguments;
    OutputFile output(options.Value(QStringLiteral("output")));
    if (!output.Open())
        return ExitCannotWrite;

    InstallHostHooks(snapshot->site);
    research.Begin();
    RecountTitles(snapshot->titles, exclusions);
    research.End();
    if (!options.IsSet(QStringLiteral("quiet")))
        Err() << "Recounted " << HarvestState.AuctionsScanned << " titles of " << snapshot->site << ", "
              << snapshot->node
              << "\nKeywords found: " << NumericLocale().toString(HarvestState.KeywordsFound) << '\n'
              << Qt::flush;
    const QJsonObject about{
        {QStringLiteral("site"), snapshot->site},
        {QStringLiteral("node"), snapshot->node},
        {QStringLiteral("auctions_limit"),
         snapshot->limit == NoAuctionLimit ? QJsonValue() : QJsonValue(snapshot->limit)},
        {QStringLiteral("auctions_counted"), HarvestState.AuctionsScanned},
        {QStringLiteral("time"), snapshot->time.toString(Qt::ISODate)},
    };
    bool written = output.Write(FormatWords(*format, research.Rows(), about, research.ListName()));
    written =
        research.WriteFiles(snapshot->site, snapshot->node, snapshot->time, HarvestState.AuctionsScanned) &&
        written;
    return written ? ExitOk : ExitCannotWrite;
}

namespace {

// One side of a diff: a list as read, or kept titles counted again.
struct DiffSide {
    std::vector<ResultRow> rows;
    std::optional<TitleSnapshot> snapshot;
    QString name;
};

std::optional<DiffSide> ReadSide(const CommandOptions& options, const QString& path,
                                 const QString& exclusions) {
    const QString command = QStringLiteral("diff");
    const std::optional<QByteArray> bytes = ReadInput(path, command);
    if (!bytes)
        return std::nullopt;
    DiffSide side;
    side.name = QFileInfo(path).fileName();
    QString error;
    if (IsSnapshot(*bytes)) {
        side.snapshot = ReadSnapshot(*bytes, error);
        if (!side.snapshot || !ApplySnapshotLocale(options, *side.snapshot, command)) {
            if (!side.snapshot)
                Refuse(command, path, error);
            return std::nullopt;
        }
        RecountTitles(side.snapshot->titles, exclusions);
        side.rows = ResultRowsInListOrder();
        return side;
    }
    std::optional<std::vector<ResultRow>> rows = ReadResultList(*bytes, error);
    if (!rows) {
        Refuse(command, path, error + QStringLiteral(" (a list of words or kept titles is expected)"));
        return std::nullopt;
    }
    side.rows = std::move(*rows);
    return side;
}

QString SideText(const DiffSide& side) {
    if (!side.snapshot)
        return side.name;
    return side.snapshot->time.toLocalTime().toString(QStringLiteral("d MMM yyyy")) +
           QStringLiteral(" (%1 auctions)").arg(side.snapshot->titles.size());
}

QByteArray FormatDiff(OutputFormat format, const std::vector<DiffRow>& rows, const QJsonObject& about) {
    const auto rank = [](qsizetype value) { return value > 0 ? QString::number(value) : QString(); };
    if (format == OutputFormat::Json) {
        QJsonArray changes;
        for (const DiffRow& row : rows)
            changes.append(QJsonObject{
                {QStringLiteral("word"), row.word},
                {QStringLiteral("change"), WordChangeName(row.change)},
                {QStringLiteral("rank_a"), row.rankA > 0 ? QJsonValue(row.rankA) : QJsonValue()},
                {QStringLiteral("count_a"), row.countA},
                {QStringLiteral("rank_b"), row.rankB > 0 ? QJsonValue(row.rankB) : QJsonValue()},
                {QStringLiteral("count_b"), row.countB},
                {QStringLiteral("difference"), row.countB - row.countA},
            });
        QJsonObject object = about;
        object.insert(QStringLiteral("changes"), changes);
        return QJsonDocument(object).toJson(QJsonDocument::Indented);
    }
    const QChar separator = format == OutputFormat::Csv ? u',' : u'\t';
    QString text;
    for (const DiffRow& row : rows) {
        text += (format == OutputFormat::Csv ? CsvField(row.word) : TsvField(row.word));
        for (const QString& field :
             {WordChangeName(row.change), rank(row.rankA), QString::number(row.countA), rank(row.rankB),
              QString::number(row.countB), Signed(row.countB - row.countA)})
            text += separator + field;
        text += u'\n';
    }
    return text.toUtf8();
}

} // namespace

int RunDiffCommand(const QStringList& arguments) {
    const QString command = QStringLiteral("diff");
    CommandOptions options(
        command, QStringLiteral(
                     "Compares two word lists (search's csv or json, or the window's results file) or two "
                     "sets of titles kept by search --save-titles, counted again with today's exclusion "
                     "list. One line per word: word, change, rank and count in A, rank and count in B, "
                     "difference. Words that rose come first (the largest rise first), then those that fell "
                     "(the largest fall first), the new ones (in B's order), the gone ones (in A's order), "
                     "and those that stayed (in B's order)."));
    options.AddPositional(QStringLiteral("A"), QStringLiteral("The earlier list or kept titles."));
    options.AddPositional(QStringLiteral("B"), QStringLiteral("The later list or kept titles."));
    AddExclusionOptions(options);
    AddListOptions(options, QStringLiteral("csv, tsv (no header line) or json."));
    options.Add({QStringLiteral("chart"),
                 QStringLiteral("Draws the 30 largest changes as a bar chart to FILE.svg or FILE.png."),
                 QStringLiteral("FILE")});
    if (const std::optional<int> status = options.Parse(arguments))
        return *status;
    const std::optional<OutputFormat> format = ReadFormat(options, command);
    if (!format)
        return ExitBadArguments;
    ResearchOutput chartCheck;
    if (const std::optional<int> status = chartCheck.Read(options, command))
        return *status;
    const QString exclusions = ExclusionPath(options, command);
    if (exclusions.isEmpty())
        return ExitCannotOpen;
    OutputFile output(options.Value(QStringLiteral("output")));
    if (!output.Open())
        return ExitCannotWrite;
    InstallHostHooks(USSiteLabel);
    const QStringList paths = options.Positionals();
    const std::optional<DiffSide> a = ReadSide(options, paths[0], exclusions);
    const std::optional<DiffSide> b = a ? ReadSide(options, paths[1], exclusions) : std::nullopt;
    if (!a || !b)
        return ExitCannotOpen;

    const std::vector<DiffRow> rows = DiffLists(a->rows, b->rows);
    if (!options.IsSet(QStringLiteral("quiet"))) {
        int kinds[5] = {};
        for (const DiffRow& row : rows)
            ++kinds[int(row.change)];
        Err() << "Rose " << kinds[0] << ", fell " << kinds[1] << ", new " << kinds[2] << ", gone " << kinds[3]
              << ", same " << kinds[4] << '\n'
              << Qt::flush;
    }
    const QJsonObject about{{QStringLiteral("a"), paths[0]}, {QStringLiteral("b"), paths[1]}};
    bool written = output.Write(FormatDiff(*format, rows, about));

    const QString chart = options.Value(QStringLiteral("chart"));
    if (!chart.isEmpty()) {
        std::vector<const DiffRow*> changed;
        for (const DiffRow& row : rows)
            if (row.change != WordChange::Same)
                changed.push_back(&row);
        std::stable_sort(changed.begin(), changed.end(), [](const DiffRow* x, const DiffRow* y) {
            return std::abs(x->countB - x->countA) > std::abs(y->countB - y->countA);
        });
        std::vector<ChartBar> bars;
        for (size_t i = 0; i < changed.size() && i < 30; ++i)
            bars.push_back({changed[i]->word, double(changed[i]->countB - changed[i]->countA),
                            Signed(changed[i]->countB - changed[i]->countA)});
        const QString title = b->snapshot ? ChartTitle(b->snapshot->site, b->snapshot->node)
                                          : QStringLiteral("%1 → %2").arg(a->name, b->name);
        const QString subtitle = QStringLiteral("The %1 largest changes, %2 → %3")
                                     .arg(bars.size())
                                     .arg(SideText(*a), SideText(*b));
        written = WriteChart(command, chart, title, subtitle, bars) && written;
    }
    return written ? ExitOk : ExitCannotWrite;
}

namespace {

struct SiteRun {
    QString site;
    std::shared_ptr<const CategoryTree> tree;
    const CategoryNode* node = nullptr;
    std::vector<ResultRow> rows;
    QJsonObject health;
    std::int32_t auctions = 0;
};

void RunOnSite(SiteRun& run, std::int32_t maxAuctions, bool quiet) {
    InstallHostHooks(run.site);
    // Each site is counted as a search of its own process counts it.
    ClearTallyRecords();
    HarvestState.SelectedPath = run.node->FullPath();
    HarvestState.MaxAuctions = maxAuctions;
    RunHealth health;
    SetHarvestObserver(&health);
    const SearchScope scope = ScopeOfPath(HarvestState.SelectedPath);
    health.Start(scope);
    RunHarvest(scope, run.node->Key(), run.tree, run.node);
    health.Finish();
    SetHarvestObserver(nullptr);
    EndProgress();
    run.rows = ResultRowsInListOrder();
    run.health = health.ToJson();
    run.auctions = HarvestState.AuctionsScanned;
    if (!quiet)
        Err() << run.site << ": " << health.Summary() << '\n' << Qt::flush;
    const QString warning = health.EmptyPagesWarning();
    if (!warning.isEmpty())
        Err() << warning << '\n' << Qt::flush;
}

QByteArray FormatComparison(OutputFormat format, const std::vector<SiteRow>& rows, const QJsonObject& about) {
    const auto share = [](double value) { return QString::number(value, 'f', 3); };
    if (format == OutputFormat::Json) {
        QJsonArray words;
        for (const SiteRow& row : rows)
            words.append(QJsonObject{{QStringLiteral("word"), row.word},
                                     {QStringLiteral("us_count"), row.countA},
                                     {QStringLiteral("us_share"), share(row.shareA).toDouble()},
                                     {QStringLiteral("uk_count"), row.countB},
                                     {QStringLiteral("uk_share"), share(row.shareB).toDouble()}});
        QJsonObject object = about;
        object.insert(QStringLiteral("words"), words);
        return QJsonDocument(object).toJson(QJsonDocument::Indented);
    }
    const QChar separator = format == OutputFormat::Csv ? u',' : u'\t';
    QString text;
    for (const SiteRow& row : rows) {
        text += format == OutputFormat::Csv ? CsvField(row.word) : TsvField(row.word);
        for (const QString& field :
             {QString::number(row.countA), share(row.shareA), QString::number(row.countB), share(row.shareB)})
            text += separator + field;
        text += u'\n';
    }
    return text.toUtf8();
}

} // namespace

int RunCompareCommand(const QStringList& arguments) {
    const QString command = QStringLiteral("compare");
    CommandOptions options(
        command,
        QStringLiteral("Searches the same category on both sites and prints one line per word: word, "
                       "count on the US site, its share of that site's total count in percent, then the "
                       "same for the UK site; the words of the largest shares together first."));
    options.Add(
        {QStringLiteral("node"),
         QStringLiteral("The node to search on both sites: its FullPath, levels joined by ~ (required)."),
         QStringLiteral("PATH")},
        true);
    options.Add({QStringLiteral("auctions"),
                 QStringLiteral("Auction limit on each site: a number from 1 (default 2000)."),
                 QStringLiteral("N"), QStringLiteral("2000")});
    options.AddData();
    options.AddProxy();
    options.Add({QStringLiteral("locale"), QStringLiteral("Locale of the numeric rules, as for search."),
                 QStringLiteral("NAME")});
    AddListOptions(options, QStringLiteral("csv, tsv (no header line) or json."));
    if (const std::optional<int> status = options.Parse(arguments))
        return *status;
    const std::optional<OutputFormat> format = ReadFormat(options, command);
    if (!format)
        return ExitBadArguments;
    bool ok = false;
    const qlonglong limit = options.Value(QStringLiteral("auctions")).toLongLong(&ok);
    if (!ok || limit < 1 || limit > std::numeric_limits<std::int32_t>::max()) {
        Err() << "marquill-cli compare: --auctions must be a number from 1 to 2147483647\n";
        return ExitBadArguments;
    }
    if (options.IsSet(QStringLiteral("locale")) && !ApplyLocale(options.Value(QStringLiteral("locale")))) {
        Err() << "marquill-cli compare: --locale must name a locale, such as en_US or en_GB\n";
        return ExitBadArguments;
    }
    if (options.ApplyCommon(USSiteLabel).isEmpty())
        return ExitBadArguments;
    OutputFile output(options.Value(QStringLiteral("output")));
    if (!output.Open())
        return ExitCannotWrite;

    const QString path = options.Value(QStringLiteral("node"));
    SiteRun runs[2] = {{USSiteLabel, {}, nullptr, {}, {}, 0}, {UKSiteLabel, {}, nullptr, {}, {}, 0}};
    for (SiteRun& run : runs) {
        InstallHostHooks(run.site);
        LoadCategories();
        run.tree = CurrentCategoryTree();
        if (!run.tree || !run.tree->Root())
            return ExitCannotOpen;
        run.node = run.tree->FindByPath(path);
        if (!run.node) {
            Err() << "marquill-cli compare: no node \"" << path << "\" in the tree of " << run.site
                  << "; both sites' catalogues must hold it\n";
            return ExitBadArguments;
        }
    }
    if (ProbeAnswerIsEmpty(OpenURL(ProbeUrl))) {
        Err() << "You appear not to be online..\nPlease connect and try again\n";
        return ExitOffline;
    }
    const bool quiet = options.IsSet(QStringLiteral("quiet"));
    SetProgressShown(!quiet);
    InstallInterrupt();
    HarvestState.StopRequested = FlagFalse;
    for (SiteRun& run : runs)
        RunOnSite(run, std::int32_t(limit), quiet);

    QJsonObject sites;
    for (const SiteRun& run : runs)
        sites.insert(run.site, QJsonObject{{QStringLiteral("auctions_counted"), run.auctions},
                                           {QStringLiteral("health"), run.health}});
    const QJsonObject about{{QStringLiteral("node"), path},
                            {QStringLiteral("auctions_limit"), qint64(limit)},
                            {QStringLiteral("sites"), sites}};
    if (!output.Write(FormatComparison(*format, CompareSites(runs[0].rows, runs[1].rows), about)))
        return ExitCannotWrite;
    return Interrupted() ? ExitInterrupted : ExitOk;
}
