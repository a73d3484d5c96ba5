#include "Inet.h"

#include "HostHooks.h"
#include "HttpPageSource.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>
#include <algorithm>

namespace {

// Only whether the answer holds anything counts, so an endless one is cut here.
constexpr qint64 MaxProbeBytes = 1024 * 1024;

} // namespace

QString OpenURL(const QString& url, int timeoutMs) {
    const QUrl target(url);
    if (target.scheme() != u"http" && target.scheme() != u"https")
        return QString();
    QNetworkRequest request(target);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = HttpPageSource::Manager().get(request);
    QTimer bound;
    bound.setSingleShot(true);
    QObject::connect(&bound, &QTimer::timeout, reply, &QNetworkReply::abort);
    bound.start(timeoutMs);
    QByteArray body;
    bool cut = false;
    const QMetaObject::Connection reading = QObject::connect(reply, &QIODevice::readyRead, reply, [&] {
        body += reply->read(MaxProbeBytes - body.size());
        if (body.size() >= MaxProbeBytes) {
            cut = true;
            reply->abort();
        }
    });
    while (!reply->isFinished())
        Hooks().WaitForEvents();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    // Qt numbers the transport's and the proxy's errors below 200 (a time-out is an abort): the
    // site's answer did not come whole. Above them stand the HTTP error statuses, whose page came.
    const QNetworkReply::NetworkError error = reply->error();
    const bool answered =
        cut ||
        (status > 0 && (error == QNetworkReply::NoError || error >= QNetworkReply::ContentAccessDenied));
    if (!cut)
        body += reply->readAll();
    QObject::disconnect(reading);
    reply->deleteLater();
    return answered ? QString::fromUtf8(body) : QString();
}

bool ProbeAnswerIsEmpty(const QString& answer) {
    return std::all_of(answer.cbegin(), answer.cend(), [](QChar c) { return c == u' '; });
}
