#pragma once

#include "PageSource.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QString>

class QNetworkAccessManager;
class QNetworkRequest;

// One answer of the site's API, after the client's own retries.
struct ApiReply {
    int httpStatus = 0;
    PageFailure failure = PageFailure::None;
    QJsonObject json;
    // For a failure other than a stop: what went wrong, with the service's own words when it gave
    // any. Never holds a secret or a token.
    QString message;

    bool Ok() const { return failure == PageFailure::None; }
};

// The site's REST API as one client: the application token (kept in memory only, renewed before it
// runs out and when the service refuses it), at most a few requests a second, and a bounded wait
// on "429 Too Many Requests". Its waits turn the event loop through the host's hooks and give up
// at a confirmed stop, as a page load does.
class ApiClient final {
public:
    static constexpr int DefaultRequestsPerSecond = 5;
    static constexpr int MaxRetries = 4;
    static constexpr int MaxRetryAfterSeconds = 60;
    static constexpr qint64 MaxBodyBytes = 128 * 1024 * 1024;
    static constexpr int TimeoutMs = 60000;
    static inline const QString CanonicalBase = QStringLiteral("https://api.ebay.com");

    // Through the given manager, or the process's (which carries the proxy setting) when null.
    explicit ApiClient(QNetworkAccessManager* manager = nullptr);

    // The client of the process: its token lives as long as the process.
    static ApiClient& Process();

    // GET of an API address (the canonical base is replaced by ServiceBase()) for a marketplace.
    ApiReply Get(const QString& url, const QString& marketplace);

    // MARQUILL_EBAY_API without a trailing slash, or the canonical base.
    static QString ServiceBase();
    // The address to ask for an address under the canonical base.
    static QString RequestUrl(const QString& url);

    // Failures other than stops since the process started.
    int Failures() const { return m_failures; }
    // Drops the token; the next request asks for a new one with the keys read afresh.
    void ForgetToken() { m_token.clear(); }

private:
    struct Exchange {
        int status = 0;
        QByteArray body;
        QByteArray retryAfter;
        PageFailure failure = PageFailure::None;
        QString networkError;
    };

    Exchange Send(const QNetworkRequest& request, const QByteArray& form);
    Exchange SendWithRetries(const QNetworkRequest& request, const QByteArray& form = QByteArray());
    bool RenewToken(ApiReply& failure);
    ApiReply Failed(const Exchange& exchange, const QString& what);
    // Waits until the next request keeps to the rate; false when a stop was confirmed meanwhile.
    bool Pace();
    // Sleeps in the event loop; false when a stop was confirmed meanwhile.
    static bool Pause(qint64 ms);

    QNetworkAccessManager* m_manager;
    QByteArray m_token;
    QDeadlineTimer m_tokenRenewal;
    QElapsedTimer m_lastRequest;
    int m_failures = 0;
};

// The marketplace of a site label: EBAY_GB for the UK site, EBAY_US otherwise.
QString MarketplaceOf(const QString& siteLabel);
