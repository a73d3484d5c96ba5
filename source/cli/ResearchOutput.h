#pragma once

#include "BarChart.h"
#include "OutputFile.h"
#include "ResultRows.h"
#include "ShareTally.h"
#include "TitleSnapshot.h"

#include <QJsonObject>
#include <functional>
#include <memory>
#include <optional>

class CommandOptions;
class HarvestObserver;

// What the research options add to a list: the titles kept (--save-titles, a search's only),
// the titles column, the phrases instead of the words, and a chart of the top of the list.
class ResearchOutput final {
public:
    static void Declare(CommandOptions& options, bool search);
    // Reads the options and opens the files to write, so that a wrong path is told before a long
    // run. The status to end with, after a message, when something is wrong.
    std::optional<int> Read(const CommandOptions& options, const QString& command);

    // Before the tally. For a search, the snapshot's header and the run's own watcher: the
    // returned watcher is the one to install, in front of it.
    HarvestObserver* Begin(const TitleSnapshot& header, std::function<QString(const QString&)> nodeOfUrl,
                           HarvestObserver* run);
    void Begin();
    // After the tally: closes the last title and lets go of the tally.
    void End();

    // The list to print: words or phrases, with the titles column when asked.
    std::vector<ResultRow> Rows() const;
    QString ListName() const;
    // Writes the snapshot and draws the chart, titled with the run's site, node, date and
    // auctions. False after saying why.
    bool WriteFiles(const QString& site, const QString& node, const QDateTime& time, qint64 auctions);

private:
    QString m_command;
    bool m_titlesColumn = false;
    bool m_phrases = false;
    QString m_chart;
    std::unique_ptr<OutputFile> m_snapshotFile;
    TitleSnapshot m_snapshot;
    std::unique_ptr<SnapshotRecorder> m_recorder;
    std::unique_ptr<ShareTally> m_shares;
    TallyObserverFan m_fan;
};

// The chart's lines for a list: the site and the node, then what is shown, the auctions and the date.
QString ChartTitle(const QString& site, const QString& node);
QString ChartSubtitle(const QString& what, qint64 auctions, const QDateTime& time);
// Draws the chart when there is a path, after the QGuiApplication that its text needs was made.
// False after saying why.
bool WriteChart(const QString& command, const QString& path, const QString& title, const QString& subtitle,
                const std::vector<ChartBar>& bars);

// --chart in a command line: main() then makes a QGuiApplication instead of a QCoreApplication.
bool WantsChart(int argc, char** argv);
