#pragma once

#include "HarvestObserver.h"
#include "modMain.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <functional>

// How a search went, page by page, for whoever reads its results: what was asked of the site and
// what came back, so that a short list can be told from a broken run. Collected by watching the
// run, never by changing it.
class RunHealth final : public HarvestObserver {
public:
    enum class Ending { End, Limit, Stop, ServiceError };

    // pagesAhead, when given, is told the run's hints about the pages to come.
    explicit RunHealth(std::function<void(const QStringList&)> pagesAhead = {});

    void PagesAhead(const QStringList& urls) override;
    void PageScanned(const ScannedPage& page) override;

    void Start(SearchScope scope);
    // The run has returned; the tally's figures are read from HarvestState. unasked: pages loaded
    // ahead that the walk never asked for.
    void Finish(int unasked = 0);

    QJsonObject ToJson() const;
    // One line for standard error.
    QString Summary() const;
    // When more than half of the listing pages after the first held no auction link: a warning
    // naming the likely causes and the first such page; else empty.
    QString EmptyPagesWarning() const;
    // The site API's failure that ended the run, in its words; empty when none did.
    const QString& ServiceError() const { return m_serviceError; }
    // A line for standard error when the API's offset cap left auctions unread; else empty.
    QString OffsetCapWarning() const;

private:
    std::function<void(const QStringList&)> m_pagesAhead;
    SearchScope m_scope = 0;
    Ending m_ending = Ending::End;
    QElapsedTimer m_timer;
    double m_seconds = 0;
    int m_requested = 0;
    int m_answered = 0;
    QMap<int, int> m_httpErrors;
    int m_timeouts = 0;
    int m_networkFailures = 0;
    int m_withoutAuctions = 0;
    // Listing pages after the first that were walked to their end, and those of them without an
    // auction link; a page that a stop or the limit cut short tells nothing either way.
    int m_laterWalked = 0;
    int m_laterEmpty = 0;
    QString m_firstLaterEmpty;
    QList<ScannedPage> m_failed;
    std::int32_t m_auctions = 0;
    std::int32_t m_words = 0;
    int m_unasked = 0;
    QString m_serviceError;
    bool m_offsetCap = false;
};
