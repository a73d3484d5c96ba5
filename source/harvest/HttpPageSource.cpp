#include "HttpPageSource.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QRegularExpression>
#include <QTimer>

namespace {

QNetworkProxy& ProxySetting() {
    static QNetworkProxy proxy(QNetworkProxy::DefaultProxy);
    return proxy;
}

QString CharsetOf(const QByteArray& contentType) {
    static const QRegularExpression pattern(QStringLiteral(R"(charset\s*=\s*["']?([^"';\s]+))"),
                                            QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(contentType));
    return match.hasMatch() ? match.captured(1) : QString();
}

// A load that ended before it began: a refused scheme.
class RefusedLoad final : public PageLoad {
public:
    explicit RefusedLoad(const QUrl& url) {
        m_response.finalUrl = url;
        m_response.failure = PageFailure::Refused;
    }
    bool IsFinished() const override { return true; }
    PageResponse TakeResponse() override { return std::move(m_response); }

private:
    PageResponse m_response;
};

class HttpLoad final : public PageLoad {
public:
    HttpLoad(QNetworkReply* reply, qint64 maxBodyBytes, int totalTimeoutMs)
        : m_reply(reply), m_maxBodyBytes(maxBodyBytes) {
        m_response.finalUrl = reply->url();
        QObject::connect(reply, &QIODevice::readyRead, &m_guard, [this] { ReadAvailable(); });
        QObject::connect(reply, &QNetworkReply::finished, &m_guard, [this] { Finish(); });
        m_deadline.setSingleShot(true);
        m_deadline.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_deadline, &QTimer::timeout, &m_guard, [this] { Expire(); });
        m_deadline.start(totalTimeoutMs);
    }
    ~HttpLoad() override { Release(); }
    HttpLoad(const HttpLoad&) = delete;
    HttpLoad& operator=(const HttpLoad&) = delete;

    bool IsFinished() const override { return m_finished; }
    PageResponse TakeResponse() override { return std::move(m_response); }

private:
    void ReadAvailable() {
        if (!m_reply || m_cut || !m_reply->isOpen())
            return;
        const qint64 room = std::max<qint64>(m_maxBodyBytes - m_response.body.size(), 0);
        if (m_reply->bytesAvailable() > room) {
            // Over the cap: what came is the page, the rest is never read.
            m_response.body.append(m_reply->read(room));
            m_cut = true;
            Finish();
            return;
        }
        // Only what has come is read, so the body grows with the page and no buffer of the cap's
        // size is ever made.
        if (m_response.body.isEmpty())
            m_response.body = m_reply->readAll();
        else
            m_response.body.append(m_reply->readAll());
    }

    void Expire() {
        if (m_finished || !m_reply)
            return;
        m_expired = true;
        m_reply->abort();
        Finish();
    }

    void Finish() {
        if (m_finished || !m_reply)
            return;
        if (!m_cut)
            ReadAvailable();
        if (m_finished)
            return;
        m_finished = true;
        m_response.finalUrl = m_reply->url();
        m_response.httpCharset = CharsetOf(m_reply->rawHeader("Content-Type"));
        // An HTTP error answer with its body is still a page, as a browser shows it; a broken
        // connection, a time-out or a redirect loop is not.
        const QNetworkReply::NetworkError error = m_reply->error();
        const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        const bool httpAnswer = status.isValid();
        m_response.httpStatus = status.toInt();
        m_response.ok =
            m_cut || error == QNetworkReply::NoError ||
            (httpAnswer &&
             ((error >= QNetworkReply::ContentAccessDenied && error <= QNetworkReply::UnknownContentError) ||
              (error >= QNetworkReply::InternalServerError && error <= QNetworkReply::UnknownServerError)));
        if (m_response.httpStatus >= 400)
            m_response.failure = PageFailure::HttpError;
        else if (!m_response.ok)
            m_response.failure =
                (error == QNetworkReply::TimeoutError || error == QNetworkReply::OperationCanceledError)
                    ? PageFailure::TimedOut
                    : PageFailure::Network;
        if (m_expired) {
            m_response.ok = false;
            m_response.failure = PageFailure::TimedOut;
        }
        // Whatever the network layer does with redirects, a body that came from elsewhere than the
        // web is never a page.
        const QString scheme = m_response.finalUrl.scheme().toLower();
        if (scheme != u"http" && scheme != u"https") {
            m_response.ok = false;
            m_response.body.clear();
            m_response.failure = PageFailure::Refused;
        }
        Release();
    }

    void Release() {
        if (!m_reply)
            return;
        m_deadline.stop();
        QNetworkReply* reply = m_reply;
        m_reply = nullptr;
        QObject::disconnect(reply, nullptr, &m_guard, nullptr);
        if (reply->isRunning())
            reply->abort();
        reply->deleteLater();
    }

    QObject m_guard;
    QTimer m_deadline;
    QPointer<QNetworkReply> m_reply;
    qint64 m_maxBodyBytes;
    PageResponse m_response;
    bool m_finished = false;
    bool m_cut = false;
    bool m_expired = false;
};

} // namespace

QNetworkAccessManager& HttpPageSource::Manager() {
    static QPointer<QNetworkAccessManager> manager;
    if (!manager) {
        QNetworkProxyFactory::setUseSystemConfiguration(true);
        manager = new QNetworkAccessManager(QCoreApplication::instance());
        manager->setProxy(ProxySetting());
        manager->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
    }
    return *manager;
}

void HttpPageSource::SetProxy(const QNetworkProxy& proxy) {
    ProxySetting() = proxy;
    Manager().setProxy(proxy);
}

QNetworkProxy HttpPageSource::Proxy() {
    return ProxySetting();
}

std::unique_ptr<PageLoad> HttpPageSource::Start(const QUrl& url) {
    // Only the web: a page must never make the program read a local file or another scheme.
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != u"http" && scheme != u"https") || url.host().isEmpty())
        return std::make_unique<RefusedLoad>(url);
    QNetworkRequest request(url);
    request.setMaximumRedirectsAllowed(MaxRedirects);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(m_silenceTimeoutMs);
    return std::make_unique<HttpLoad>((m_manager ? *m_manager : Manager()).get(request), m_maxBodyBytes,
                                      m_totalTimeoutMs);
}
