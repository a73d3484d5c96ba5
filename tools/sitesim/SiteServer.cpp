#include "SiteServer.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <QTimer>
#include <sys/socket.h>

namespace {

constexpr qsizetype kMaxHeadSize = 64 * 1024;
constexpr qsizetype kHugeSize = 20 * 1024 * 1024;
constexpr qsizetype kGarbageSize = 256 * 1024;

const char* ReasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    default:
        return "Internal Server Error";
    }
}

// Closing with a zero linger sends a reset, which is what a dropped connection looks like.
void ResetSocket(QTcpSocket* socket) {
    const qintptr fd = socket->socketDescriptor();
    if (fd >= 0) {
        linger hard{1, 0};
        ::setsockopt(int(fd), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    }
    socket->abort();
}

} // namespace

SiteServer::SiteServer(const SitePages& pages, QObject* parent) : QObject(parent), m_pages(pages) {
    connect(&m_server, &QTcpServer::newConnection, this, &SiteServer::OnNewConnection);
}

bool SiteServer::Listen(quint16 port) {
    return m_server.listen(QHostAddress::LocalHost, port);
}

bool SiteServer::SetLog(const QString& path) {
    m_log.setFileName(path);
    return m_log.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text);
}

void SiteServer::OnNewConnection() {
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        auto* connection = new Connection;
        connection->socket = socket;
        connect(socket, &QObject::destroyed, [connection] { delete connection; });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, socket, [this, connection] {
            if (connection->finished) {
                connection->socket->readAll(); // a stalled or closing connection hears nothing more
                return;
            }
            connection->input += connection->socket->readAll();
            ProcessNext(connection);
        });
    }
}

bool SiteServer::TakeRequest(QByteArray& input, Request* request, bool* malformed) {
    *malformed = false;
    qsizetype end = input.indexOf("\r\n\r\n");
    qsizetype skip = 4;
    if (end < 0) {
        end = input.indexOf("\n\n");
        skip = 2;
    }
    if (end < 0) {
        *malformed = input.size() > kMaxHeadSize;
        return false;
    }
    const QList<QByteArray> lines = input.left(end).split('\n');

    const QList<QByteArray> parts = lines.value(0).trimmed().split(' ');
    if (parts.size() != 3 || !parts[2].startsWith("HTTP/1.")) {
        *malformed = true;
        return true;
    }
    request->method = parts[0];
    const QString target = QString::fromLatin1(parts[1]);
    const bool http10 = parts[2] == "HTTP/1.0";
    QByteArray connectionHeader;
    qsizetype bodyLength = 0;
    QString hostHeader;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "host")
            hostHeader = QString::fromLatin1(value);
        else if (name == "connection" || (name == "proxy-connection" && connectionHeader.isEmpty()))
            connectionHeader = value.toLower();
        else if (name == "content-length")
            bodyLength = value.toLongLong();
    }
    // A GET carries no body, but one announced is skipped whole so the next request is read right.
    if (bodyLength < 0 || bodyLength > kMaxHeadSize) {
        *malformed = true;
        return true;
    }
    if (input.size() < end + skip + bodyLength)
        return false;
    input.remove(0, end + skip + bodyLength);
    request->keepAlive = http10 ? connectionHeader == "keep-alive" : connectionHeader != "close";

    if (target.startsWith(QLatin1String("http://"), Qt::CaseInsensitive)) {
        request->url = target;
        const qsizetype slash = target.indexOf(QLatin1Char('/'), 7);
        request->host = target.mid(7, slash < 0 ? -1 : slash - 7);
        request->target = slash < 0 ? QStringLiteral("/") : target.mid(slash);
    } else if (target.startsWith(QLatin1Char('/')) && !hostHeader.isEmpty()) {
        request->host = hostHeader;
        request->target = target;
        request->url = QStringLiteral("http://") + hostHeader + target;
    } else {
        *malformed = true;
        return true;
    }
    const qsizetype colon = request->host.indexOf(QLatin1Char(':'));
    if (colon >= 0) {
        const QString port = request->host.mid(colon + 1);
        request->host.truncate(colon);
        // The log shows the URL as the site would name it; port 80 is the one it never writes.
        if (port == QLatin1String("80"))
            request->url.remove(7 + colon, port.size() + 1);
    }
    return true;
}

void SiteServer::ProcessNext(Connection* connection) {
    while (!connection->busy && !connection->finished) {
        Request request;
        bool malformed = false;
        if (!TakeRequest(connection->input, &request, &malformed) && !malformed)
            return;
        QTcpSocket* socket = connection->socket;
        if (malformed) {
            const QByteArray body = SitePages::ErrorPage(400);
            socket->write(Head(400, body.size(), false) + body);
            socket->disconnectFromHost();
            connection->finished = true;
            return;
        }
        if (m_log.isOpen()) {
            m_log.write(request.url.toUtf8() + '\n');
            m_log.flush();
        }
        if (m_latency <= 0) {
            Respond(connection, request);
            continue;
        }
        connection->busy = true;
        QTimer::singleShot(m_latency, socket, [this, connection, request] {
            connection->busy = false;
            Respond(connection, request);
            ProcessNext(connection);
        });
    }
}

QByteArray SiteServer::Head(int status, qsizetype length, bool keepAlive) {
    return "HTTP/1.1 " + QByteArray::number(status) + ' ' + ReasonPhrase(status) +
           "\r\nContent-Type: text/html; charset=ISO-8859-1\r\nContent-Length: " +
           QByteArray::number(length) + "\r\nConnection: " + (keepAlive ? "keep-alive" : "close") +
           "\r\n\r\n";
}

void SiteServer::Respond(Connection* connection, const Request& request) {
    QTcpSocket* socket = connection->socket;
    if (!socket)
        return;
    const SiteFault* fault = nullptr;
    for (const SiteFault& f : m_faults)
        if (request.url.contains(f.substring)) {
            fault = &f;
            break;
        }

    SiteAnswer answer;
    if (request.method != "GET" && request.method != "HEAD") {
        answer = {405, SitePages::ErrorPage(405)};
    } else if (fault && fault->mode == SiteFault::Mode::ServerError) {
        answer = {500, SitePages::ErrorPage(500)};
    } else if (fault && fault->mode == SiteFault::Mode::Garbage) {
        answer = {200, SitePages::GarbageBytes(request.url, kGarbageSize)};
    } else if (fault && fault->mode == SiteFault::Mode::Huge) {
        answer = {200, SitePages::HugePage(kHugeSize)};
    } else {
        answer = m_pages.Answer(request.host, request.target);
        if (request.host.compare(QLatin1String("www.ebay.com"), Qt::CaseInsensitive) == 0) {
            if (m_probe == ProbeAnswer::Empty)
                answer = {200, QByteArray()};
            else if (m_probe == ProbeAnswer::ServerError)
                answer = {500, SitePages::ErrorPage(500)};
        }
    }

    QByteArray head = Head(answer.status, answer.body.size(), request.keepAlive);
    if (fault && fault->mode == SiteFault::Mode::Garbage)
        head.replace("text/html; charset=ISO-8859-1", "text/html");
    const bool withBody = request.method != "HEAD";

    if (fault && fault->mode == SiteFault::Mode::Stall) {
        socket->write(head);
        connection->finished = true;
        return;
    }
    if (fault && fault->mode == SiteFault::Mode::Drip) {
        // The head at once, then the body a byte at a time: never silent for long, never done.
        socket->write(head);
        connection->finished = true;
        auto* timer = new QTimer(socket);
        connect(timer, &QTimer::timeout, socket,
                [socket, timer, body = withBody ? answer.body : QByteArray(), sent = qsizetype(0)]() mutable {
                    if (sent < body.size())
                        socket->write(body.constData() + sent++, 1);
                    if (sent >= body.size()) {
                        timer->stop();
                        socket->disconnectFromHost();
                    }
                });
        timer->start(m_dripInterval);
        return;
    }
    if (fault && fault->mode == SiteFault::Mode::Reset) {
        socket->write(head + answer.body.left(answer.body.size() / 2));
        connection->finished = true;
        socket->flush();
        if (socket->bytesToWrite() == 0) {
            ResetSocket(socket);
        } else {
            connect(socket, &QTcpSocket::bytesWritten, socket, [socket] {
                if (socket->bytesToWrite() == 0)
                    ResetSocket(socket);
            });
        }
        return;
    }
    socket->write(withBody ? head + answer.body : head);
    if (!request.keepAlive) {
        connection->finished = true;
        socket->disconnectFromHost();
    }
}
