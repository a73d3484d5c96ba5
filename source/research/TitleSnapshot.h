#pragma once

#include "HarvestObserver.h"
#include "TallyObserver.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

// One auction title as the run handed it to the tally, with where it came from.
struct SnapshotTitle {
    QString site;
    QString node;
    QString pageUrl;
    int page = 0;
    QString title;
};

// The titles of one search, kept so that the words can be counted again without a page load.
struct TitleSnapshot {
    QString site;
    QString node;
    std::int32_t limit = 0; // NoAuctionLimit for none
    QDateTime time;
    QString version;
    // The locale of the numeric rules the search ran under; a recount takes it by default.
    QString locale;
    std::vector<SnapshotTitle> titles;
};

// JSON Lines: a header object, then one object per title in the tally's order.
QByteArray SnapshotToJsonLines(const TitleSnapshot& snapshot);
// Nothing, with the reason and the line in error, for bytes that are no snapshot.
std::optional<TitleSnapshot> ReadSnapshot(const QByteArray& bytes, QString& error);

// The page number of a listing URL: the number after "QQlopgZ", else 1 for a first page.
int PageNumberOfUrl(const QString& url);
// A listing URL without its page key, as the category file holds the first page's.
QString FirstPageUrl(const QString& url);

// Records every title that reaches the tally, and fills in its page when the scan reports the
// page after its walk. The run's own watcher, if any, is told everything as before.
class SnapshotRecorder final : public TallyObserver, public HarvestObserver {
public:
    // nodeOfUrl names the category of a first page's URL; empty for one it does not know, which
    // then gets the searched node.
    SnapshotRecorder(TitleSnapshot& snapshot, std::function<QString(const QString&)> nodeOfUrl,
                     HarvestObserver* next);

    void TitleStarted(const QString& title) override;
    void PieceTallied(qsizetype) override {}
    void PagesAhead(const QStringList& urls) override;
    void PageScanned(const ScannedPage& page) override;

private:
    TitleSnapshot& m_snapshot;
    std::function<QString(const QString&)> m_nodeOfUrl;
    HarvestObserver* m_next;
    size_t m_firstPending = 0;
};
