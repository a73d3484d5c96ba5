#include "ApiClient.h"

#include "ApiKeys.h"
#include "HostHooks.h"
#include "HttpPageSource.h"
#include "modMain.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QTimer>
#include <QUrl>

namespace {

const QString TokenPath = QStringLiteral("/identity/v1/oauth2/token");
const QByteArray TokenForm =
    "grant_type=client_credentials&scope=https%3A%2F%2Fapi.ebay.com%2Foauth%2Fapi_scope";

bool StopConfirmed() {
    return HarvestState.StopRequested == FlagTrue;
}

int RequestsPerSecond() {
    bool ok = false;
    const int rate = qEnvironmentVariableIntValue("MARQUILL_EBAY_RATE", &ok);
    return ok && rate >= 1 ? std::min(rate, 1000) : ApiClient::DefaultRequestsPerSecond;
}

// Retry-After in seconds or as an HTTP date; without one, 1, 2, 4, 8 s. Never past the bound.
qint64 RetryDelayMs(const QByteArray& retryAfter, int attempt) {
    qint64 seconds = qint64(1) << attempt;
    bool ok = false;
    const qint64 given = retryAfter.trimmed().toLongLong(&ok);
    if (ok && given >= 0) {
        seconds = given;
    } else if (!retryAfter.isEmpty()) {
        const QDateTime at =
            QDateTime::fromString(QString::fromLatin1(retryAfter).trimmed(), Qt::RFC2822Date);
        if (at.isValid())
            seconds = std::max<qint64>(0, QDateTime::currentDateTimeUtc().secsTo(at));
    }
    return std::min<qint64>(seconds, ApiClient::MaxRetryAfterSeconds) * 1000;
}

// The service's own words: the messages of an errors array, or OAuth's error description.
QString ServiceWords(const QByteArray& body) {
    const QJsonObject object = QJsonDocument::fromJson(body).object();
    QStringList words;
    for (const QJsonValue error : object.value(QStringLiteral("errors")).toArray()) {
        const QString message = error[QStringLiteral("message")].toString();
        if (!message.isEmpty() && !words.contains(message))
            words << message;
    }
    if (words.isEmpty() && object.contains(QStringLiteral("error"))) {
        const QString description = object.value(QStringLiteral("error_description")).toString();
        const QString code = object.value(QStringLiteral("error")).toString();
        words << (description.isEmpty() ? code : description + QStringLiteral(" (") + code + u')');
    }
    return words.join(QStringLiteral("; "));
}

} // namespace

QString MarketplaceOf(const QString& siteLabel) {
    return siteLabel == UKSiteLabel ? QStringLiteral("EBAY_GB") : QStringLiteral("EBAY_US");
}

ApiClient::ApiClient(QNetworkAccessManager* manager) : m_manager(manager) {}

ApiClient& ApiClient::Process() {
    static ApiClient client;
    return client;
}

QString ApiClient::ServiceBase() {
    QString base = qEnvironmentVariable("MARQUILL_EBAY_API").trimmed();
    while (base.endsWith(u'/'))
        base.chop(1);
    return base.isEmpty() ? CanonicalBase : base;
}

QString ApiClient::RequestUrl(const QString& url) {
    if (url.startsWith(CanonicalBase + u'/'))
        return ServiceBase() + url.mid(CanonicalBase.size());
    return url;
}

bool ApiClient::Pause(qint64 ms) {
    if (ms <= 0)
        return !StopConfirmed();
    bool due = false;
    QTimer timer;
    timer.setSingleShot(true);
    // A coarse timer may fire 5% early, and a retry before Retry-After is one the service refuses.
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, [&due] { due = true; });
    timer.start(int(ms));
    while (!due) {
        Hooks().WaitForEvents();
        if (StopConfirmed())
            return false;
    }
    return true;
}

bool ApiClient::Pace() {
    return !m_lastRequest.isValid() || Pause(1000 / RequestsPerSecond() - m_lastRequest.elapsed());
}

ApiClient::Exchange ApiClient::Send(const QNetworkRequest& request, const QByteArray& form) {
    Exchange exchange;
    if (!Pace()) {
        exchange.failure = PageFailure::Aborted;
        return exchange;
    }
    m_lastRequest.start();
    QNetworkAccessManager& manager = m_manager ? *m_manager : HttpPageSource::Manager();
    QPointer<QNetworkReply> reply = form.isNull() ? manager.get(request) : manager.post(request, form);
    bool tooLarge = false;
    while (!reply->isFinished()) {
        Hooks().WaitForEvents();
        if (StopConfirmed()) {
            reply->abort();
            reply->deleteLater();
            exchange.failure = PageFailure::Aborted;
            return exchange;
        }
        if (reply->bytesAvailable() > MaxBodyBytes) {
            tooLarge = true;
            reply->abort();
        }
    }
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    exchange.status = status.isValid() ? status.toInt() : 0;
    exchange.body = reply->readAll();
    exchange.retryAfter = reply->rawHeader("Retry-After");
    if (tooLarge) {
        exchange.failure = PageFailure::Network;
        exchange.networkError = QStringLiteral("the answer was larger than %1 MB").arg(MaxBodyBytes >> 20);
    } else if (exchange.status >= 300) {
        exchange.failure = PageFailure::HttpError;
    } else if (reply->error() != QNetworkReply::NoError || exchange.status == 0) {
        exchange.failure = reply->error() == QNetworkReply::TimeoutError ||
                                   reply->error() == QNetworkReply::OperationCanceledError
                               ? PageFailure::TimedOut
                               : PageFailure::Network;
        exchange.networkError = reply->errorString();
    }
    reply->deleteLater();
    return exchange;
}

ApiClient::Exchange ApiClient::SendWithRetries(const QNetworkRequest& request, const QByteArray& form) {
    for (int attempt = 0;; ++attempt) {
        Exchange exchange = Send(request, form);
        const bool busy = exchange.status == 429 || exchange.status == 503;
        if (!busy || attempt >= MaxRetries)
            return exchange;
        if (!Pause(RetryDelayMs(exchange.retryAfter, attempt))) {
            exchange.failure = PageFailure::Aborted;
            return exchange;
        }
    }
}

ApiReply ApiClient::Failed(const Exchange& exchange, const QString& what) {
    ApiReply reply;
    reply.httpStatus = exchange.status;
    reply.failure = exchange.failure;
    if (exchange.failure == PageFailure::Aborted)
        return reply;
    ++m_failures;
    if (exchange.status == 0) {
        reply.message = QStringLiteral("The site's API at %1 did not answer %2: %3")
                            .arg(ServiceBase(), what, exchange.networkError);
        return reply;
    }
    const QString words = ServiceWords(exchange.body);
    reply.message = QStringLiteral("The site's API refused %1 (HTTP %2): %3")
                        .arg(what)
                        .arg(exchange.status)
                        .arg(words.isEmpty() ? QStringLiteral("it gave no message of its own.") : words);
    return reply;
}

bool ApiClient::RenewToken(ApiReply& failure) {
    m_token.clear();
    const ApiKeys keys = ReadApiKeys();
    if (!keys.Usable()) {
        ++m_failures;
        failure.failure = PageFailure::Refused;
        failure.message = keys.problem;
        return false;
    }
    QNetworkRequest request(QUrl(ServiceBase() + TokenPath));
    request.setRawHeader("Authorization",
                         "Basic " + (keys.clientId + u':' + keys.clientSecret).toUtf8().toBase64());
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QByteArrayLiteral("application/x-www-form-urlencoded"));
    request.setRawHeader("Accept", "application/json");
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setTransferTimeout(TimeoutMs);
    const Exchange exchange = SendWithRetries(request, TokenForm);
    const QJsonObject answer = QJsonDocument::fromJson(exchange.body).object();
    const QString token = answer.value(QStringLiteral("access_token")).toString();
    if (exchange.failure != PageFailure::None || token.isEmpty()) {
        Exchange refused = exchange;
        if (refused.failure == PageFailure::None)
            refused.failure = PageFailure::HttpError;
        failure = Failed(refused, QStringLiteral("the application keys"));
        return false;
    }
    m_token = token.toUtf8();
    // Renewed a minute before the end, or halfway through a shorter life.
    const qint64 lifeMs =
        std::max<qint64>(0, answer.value(QStringLiteral("expires_in")).toInteger(7200)) * 1000;
    m_tokenRenewal.setRemainingTime(lifeMs - std::min<qint64>(60000, lifeMs / 2));
    return true;
}

ApiReply ApiClient::Get(const QString& url, const QString& marketplace) {
    bool renewed = false;
    for (;;) {
        ApiReply failure;
        // Paced before the token is looked at, so that the wait cannot outlast it.
        if (!Pace()) {
            failure.failure = PageFailure::Aborted;
            return failure;
        }
        if ((m_token.isEmpty() || m_tokenRenewal.hasExpired()) && !RenewToken(failure))
            return failure;
        QNetworkRequest request{QUrl(RequestUrl(url))};
        request.setRawHeader("Authorization", "Bearer " + m_token);
        request.setRawHeader("X-EBAY-C-MARKETPLACE-ID", marketplace.toLatin1());
        request.setRawHeader("Accept", "application/json");
        // A redirect would carry the token to another host.
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        request.setTransferTimeout(TimeoutMs);
        const Exchange exchange = SendWithRetries(request);
        // A token the service no longer takes (revoked, or its clock runs ahead of ours) is
        // renewed once.
        if (exchange.status == 401 && !renewed) {
            renewed = true;
            m_token.clear();
            continue;
        }
        if (exchange.failure != PageFailure::None)
            return Failed(exchange, QStringLiteral("the request for %1").arg(QUrl(url).path()));
        ApiReply reply;
        reply.httpStatus = exchange.status;
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(exchange.body, &error);
        if (!document.isObject()) {
            ++m_failures;
            reply.failure = PageFailure::HttpError;
            reply.message = QStringLiteral("The site's API answered %1 with something other than JSON: %2")
                                .arg(QUrl(url).path(), error.errorString());
            return reply;
        }
        reply.json = document.object();
        return reply;
    }
}
