#pragma once

#include "PageSource.h"

#include <QNetworkProxy>

class QNetworkAccessManager;

// Loads pages over HTTP(S) through one network manager for the whole process, so connections are
// kept alive and reused. Everything runs on the event loop; no threads.
class HttpPageSource final : public PageSource {
public:
    static constexpr int DefaultSilenceTimeoutMs = 60000;
    static constexpr int DefaultTotalTimeoutMs = 120000;
    static constexpr qint64 DefaultMaxBodyBytes = 16 * 1024 * 1024;
    static constexpr int MaxRedirects = 10;

    HttpPageSource() = default;
    // Loads through the given manager, with connections of its own, instead of the process's.
    // The manager must outlive the source.
    explicit HttpPageSource(QNetworkAccessManager* manager) : m_manager(manager) {}

    std::unique_ptr<PageLoad> Start(const QUrl& url) override;

    // A load that receives nothing for this long ends as failed, which the browser shows as a
    // page without elements.
    void SetSilenceTimeoutMs(int ms) { m_silenceTimeoutMs = ms; }
    int SilenceTimeoutMs() const { return m_silenceTimeoutMs; }
    // A load still going on this long after it began ends the same way, however steadily its bytes
    // trickle in: a server dripping one byte a second never falls silent.
    void SetTotalTimeoutMs(int ms) { m_totalTimeoutMs = ms; }
    int TotalTimeoutMs() const { return m_totalTimeoutMs; }
    // A body is cut off at this many bytes and the cut body is the page.
    void SetMaxBodyBytes(qint64 bytes) { m_maxBodyBytes = bytes; }
    qint64 MaxBodyBytes() const { return m_maxBodyBytes; }

    // The proxy of every load in the process. The default (QNetworkProxy::DefaultProxy) follows the
    // system's proxy settings.
    static void SetProxy(const QNetworkProxy& proxy);
    static QNetworkProxy Proxy();
    // The process's network manager, made on first use as a child of the application object.
    static QNetworkAccessManager& Manager();

private:
    QNetworkAccessManager* m_manager = nullptr;
    int m_silenceTimeoutMs = DefaultSilenceTimeoutMs;
    int m_totalTimeoutMs = DefaultTotalTimeoutMs;
    qint64 m_maxBodyBytes = DefaultMaxBodyBytes;
};
