#include "ResearchOutput.h"

#include "BarChart.h"
#include "CliOptions.h"
#include "HarvestObserver.h"
#include "TallyObserver.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <cstring>

namespace {

constexpr size_t ChartBars = 30;

} // namespace

void ResearchOutput::Declare(CommandOptions& options, bool search) {
    if (search)
        options.Add({QStringLiteral("save-titles"),
                     QStringLiteral("Keeps every title the run counted in FILE (JSON Lines), for recount and "
                                    "diff; written at the end, also of a stopped run."),
                     QStringLiteral("FILE")});
    options.Add({QStringLiteral("titles-column"),
                 QStringLiteral("A third field: the number of distinct titles that hold the word.")});
    options.Add({QStringLiteral("phrases"),
                 QStringLiteral("Lists two-word phrases of adjacent counted words instead of words; a word "
                                "the rules drop breaks a phrase.")});
    options.Add({QStringLiteral("chart"),
                 QStringLiteral("Draws the top 30 of the list as a bar chart to FILE.svg or FILE.png."),
                 QStringLiteral("FILE")});
}

std::optional<int> ResearchOutput::Read(const CommandOptions& options, const QString& command) {
    m_command = command;
    m_titlesColumn = options.IsSet(QStringLiteral("titles-column"));
    m_phrases = options.IsSet(QStringLiteral("phrases"));
    m_chart = options.Value(QStringLiteral("chart"));
    const QString suffix = QFileInfo(m_chart).suffix().toLower();
    if (!m_chart.isEmpty() && suffix != u"svg" && suffix != u"png") {
        Err() << "marquill-cli " << command << ": --chart must name an .svg or a .png file\n";
        return ExitBadArguments;
    }
    if (options.IsSet(QStringLiteral("save-titles"))) {
        m_snapshotFile = std::make_unique<OutputFile>(options.Value(QStringLiteral("save-titles")));
        if (!m_snapshotFile->Open())
            return ExitCannotWrite;
    }
    return std::nullopt;
}

HarvestObserver* ResearchOutput::Begin(const TitleSnapshot& header,
                                       std::function<QString(const QString&)> nodeOfUrl,
                                       HarvestObserver* run) {
    Begin();
    if (!m_snapshotFile)
        return run;
    m_snapshot = header;
    m_recorder = std::make_unique<SnapshotRecorder>(m_snapshot, std::move(nodeOfUrl), run);
    m_fan.Add(m_recorder.get());
    return m_recorder.get();
}

void ResearchOutput::Begin() {
    if (m_titlesColumn || m_phrases) {
        m_shares = std::make_unique<ShareTally>();
        m_fan.Add(m_shares.get());
    }
    SetTallyObserver(&m_fan);
}

void ResearchOutput::End() {
    SetTallyObserver(nullptr);
    if (m_shares)
        m_shares->Finish();
}

std::vector<ResultRow> ResearchOutput::Rows() const {
    if (m_phrases)
        return PhraseRows(*m_shares);
    std::vector<ResultRow> rows = WordRows(m_shares.get());
    return rows;
}

QString ResearchOutput::ListName() const {
    return m_phrases ? QStringLiteral("phrases") : QStringLiteral("words");
}

bool ResearchOutput::WriteFiles(const QString& site, const QString& node, const QDateTime& time,
                                qint64 auctions) {
    bool written = !m_snapshotFile || m_snapshotFile->Write(SnapshotToJsonLines(m_snapshot));
    if (m_chart.isEmpty())
        return written;
    std::vector<ResultRow> rows = Rows();
    std::vector<ChartBar> bars;
    for (size_t i = 0; i < rows.size() && i < ChartBars; ++i)
        bars.push_back({rows[i].word, rows[i].count.toDouble(), rows[i].count});
    const QString what = QStringLiteral("Top %1 %2").arg(bars.size()).arg(ListName());
    return WriteChart(m_command, m_chart, ChartTitle(site, node), ChartSubtitle(what, auctions, time),
                      bars) &&
           written;
}

QString ChartTitle(const QString& site, const QString& node) {
    // The root's text is the same for every node and says nothing.
    const QString shown = node.section(u'~', 1).replace(u'~', QStringLiteral(" › "));
    return site + QStringLiteral(": ") + (shown.isEmpty() ? QStringLiteral("All Categories") : shown);
}

QString ChartSubtitle(const QString& what, qint64 auctions, const QDateTime& time) {
    return QStringLiteral("%1 of %2 auctions, %3")
        .arg(what, QString::number(auctions),
             time.toLocalTime().toString(QStringLiteral("d MMM yyyy, HH:mm")));
}

bool WriteChart(const QString& command, const QString& path, const QString& title, const QString& subtitle,
                const std::vector<ChartBar>& bars) {
    if (path.isEmpty())
        return true;
    QString error;
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()) ||
        !DrawBarChart(path, title, subtitle, bars, error)) {
        Err() << "marquill-cli " << command << ": cannot write " << QDir::toNativeSeparators(path) << ": "
              << (error.isEmpty() ? QStringLiteral("no painter") : error) << '\n';
        return false;
    }
    return true;
}

bool WantsChart(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--chart") == 0 || std::strncmp(argv[i], "--chart=", 8) == 0)
            return true;
    }
    return false;
}
