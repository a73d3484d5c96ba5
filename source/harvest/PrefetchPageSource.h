#pragma once

#include "PageSource.h"

#include <QStringList>
#include <deque>
#include <memory>
#include <vector>

class QNetworkAccessManager;

// Loads the pages a run will ask for before it asks, so that up to N loads are in flight while
// the walk itself still takes one page after another in its order. The run names the pages
// ahead (HarvestObserver::PagesAhead); a page asked for that was loaded ahead is handed over,
// finished or still loading, and any other is loaded at once. At most N pages are held at a
// time, the one being handed over included, so memory stays bounded by N pages.
class PrefetchPageSource final : public PageSource {
public:
    // Loads spread over the given sources in turn; each should have connections of its own.
    PrefetchPageSource(int inFlight, std::vector<std::unique_ptr<PageSource>> sources);
    // N HTTP sources, each with a network manager of its own: a manager opens at most six
    // connections to one host, and through a proxy every site is that one host.
    static std::unique_ptr<PrefetchPageSource> OverHttp(int inFlight);
    ~PrefetchPageSource() override;
    PrefetchPageSource(const PrefetchPageSource&) = delete;
    PrefetchPageSource& operator=(const PrefetchPageSource&) = delete;

    // The URLs the walk will ask for next, in order; replaces the last list and abandons the loads
    // ahead of it.
    void SetUpcoming(const QStringList& urls);
    std::unique_ptr<PageLoad> Start(const QUrl& url) override;

    // Pages loaded ahead that the walk has not asked for (yet): at the end of a run, the pages
    // that a sequential run would not have loaded.
    int Unasked() const { return m_unasked; }

private:
    struct Ahead {
        QUrl url;
        std::unique_ptr<PageLoad> load;
    };
    std::unique_ptr<PageLoad> StartNext(const QUrl& url);
    void TopUp();

    int m_inFlight;
    std::vector<std::unique_ptr<PageSource>> m_sources;
    std::vector<std::unique_ptr<QNetworkAccessManager>> m_managers;
    std::size_t m_nextSource = 0;
    std::deque<QUrl> m_upcoming;
    std::deque<Ahead> m_ahead;
    int m_unasked = 0;
};
