#include "PrefetchPageSource.h"

#include "HttpPageSource.h"

#include <QNetworkAccessManager>
#include <algorithm>

PrefetchPageSource::PrefetchPageSource(int inFlight, std::vector<std::unique_ptr<PageSource>> sources)
    : m_inFlight(std::max(inFlight, 1)), m_sources(std::move(sources)) {
    if (m_sources.empty())
        m_sources.push_back(std::make_unique<HttpPageSource>());
}

std::unique_ptr<PrefetchPageSource> PrefetchPageSource::OverHttp(int inFlight) {
    std::vector<std::unique_ptr<QNetworkAccessManager>> managers;
    std::vector<std::unique_ptr<PageSource>> sources;
    for (int i = 0; i < std::max(inFlight, 1); ++i) {
        auto manager = std::make_unique<QNetworkAccessManager>();
        manager->setProxy(HttpPageSource::Proxy());
        manager->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
        sources.push_back(std::make_unique<HttpPageSource>(manager.get()));
        managers.push_back(std::move(manager));
    }
    auto source = std::make_unique<PrefetchPageSource>(inFlight, std::move(sources));
    source->m_managers = std::move(managers);
    return source;
}

PrefetchPageSource::~PrefetchPageSource() {
    // The loads go before the sources and managers they run on.
    m_ahead.clear();
    m_sources.clear();
}

std::unique_ptr<PageLoad> PrefetchPageSource::StartNext(const QUrl& url) {
    PageSource& source = *m_sources[m_nextSource];
    m_nextSource = (m_nextSource + 1) % m_sources.size();
    return source.Start(url);
}

void PrefetchPageSource::TopUp() {
    // One place of the N is kept for the page the walk holds.
    while (!m_upcoming.empty() && int(m_ahead.size()) < m_inFlight - 1) {
        const QUrl url = m_upcoming.front();
        m_upcoming.pop_front();
        m_ahead.push_back({url, StartNext(url)});
        ++m_unasked;
    }
}

void PrefetchPageSource::SetUpcoming(const QStringList& urls) {
    // The run names its pages before it loads any of them, so nothing loaded ahead is lost here.
    m_ahead.clear();
    m_upcoming.clear();
    for (const QString& url : urls)
        m_upcoming.emplace_back(url.trimmed());
    TopUp();
}

std::unique_ptr<PageLoad> PrefetchPageSource::Start(const QUrl& url) {
    const auto ahead =
        std::find_if(m_ahead.begin(), m_ahead.end(), [&](const Ahead& a) { return a.url == url; });
    // A page the run did not name ahead, such as the first of a sub-category, is loaded at once.
    if (ahead == m_ahead.end())
        return StartNext(url);
    std::unique_ptr<PageLoad> load = std::move(ahead->load);
    --m_unasked;
    m_ahead.erase(m_ahead.begin(), ahead + 1);
    TopUp();
    return load;
}
