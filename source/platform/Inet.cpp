#include "Inet.h"

#include "HostHooks.h"
#include "HttpPageSource.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

QString OpenURL(const QString& url, int transferTimeoutMs) {
    const QUrl target(url);
    if (target.scheme() != u"http" && target.scheme() != u"https")
        return QString();
    QNetworkRequest request(target);
    request.setTransferTimeout(transferTimeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = HttpPageSource::Manager().get(request);
    while (!reply->isFinished())
        Hooks().WaitForEvents();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    QString body;
    if (reply->error() == QNetworkReply::NoError && status >= 200 && status < 300)
        body = QString::fromUtf8(reply->readAll());
    reply->deleteLater();
    return body;
}
