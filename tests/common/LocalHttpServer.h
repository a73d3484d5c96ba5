#pragma once

// A tiny HTTP/1.1 server on 127.0.0.1 and a free port, for tests that need a real network peer.
// It splits each connection's bytes into requests (a body only by Content-Length), records them,
// and hands each to the test's handler, which writes the answer, part of one, or nothing at all.

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>
#include <functional>
#include <utility>

struct LocalHttpRequest {
    QByteArray method;
    // As sent: "/path?query" in origin form, "http://host/path" when the client treats us as a proxy.
    QByteArray target;
    QList<std::pair<QByteArray, QByteArray>> headers;
    QByteArray body;
    // 1 for the server's first connection, 2 for the second...
    int connection = 0;

    QByteArray Header(const QByteArray& name) const {
        for (const auto& [key, value] : headers)
            if (key.compare(name, Qt::CaseInsensitive) == 0)
                return value;
        return {};
    }
    // The path of the target, whichever form it came in.
    QByteArray Path() const {
        if (target.startsWith('/'))
            return target;
        return QUrl::fromEncoded(target).path(QUrl::FullyEncoded).toLatin1();
    }
};

class LocalHttpServer {
public:
    using Handler = std::function<void(const LocalHttpRequest&, QTcpSocket*)>;

    explicit LocalHttpServer(Handler handler) : m_handler(std::move(handler)) {
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] { Accept(); });
        m_listening = m_server.listen(QHostAddress::LocalHost, 0);
    }
    ~LocalHttpServer() {
        m_server.close();
        for (QTcpSocket* socket : m_buffers.keys())
            socket->abort();
    }
    LocalHttpServer(const LocalHttpServer&) = delete;
    LocalHttpServer& operator=(const LocalHttpServer&) = delete;

    bool IsListening() const { return m_listening; }
    quint16 Port() const { return m_server.serverPort(); }
    QString Origin() const { return QStringLiteral("http://127.0.0.1:%1").arg(Port()); }
    QString Url(const QString& path) const { return Origin() + path; }
    int ConnectionCount() const { return m_connections; }
    const QList<LocalHttpRequest>& Requests() const { return m_requests; }

    // A complete answer with Content-Length, which keeps the connection open for the next request.
    static QByteArray Response(int status, const QByteArray& body,
                               const QByteArray& contentType = "text/html",
                               const QByteArray& extraHeaders = {}) {
        QByteArray out = "HTTP/1.1 " + QByteArray::number(status) + ' ' + Reason(status) + "\r\n";
        out += "Content-Type: " + contentType + "\r\n";
        out += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
        out += extraHeaders;
        out += "\r\n";
        out += body;
        return out;
    }
    static QByteArray Redirect(const QByteArray& location) {
        return Response(302, QByteArray(), "text/html", "Location: " + location + "\r\n");
    }

private:
    static QByteArray Reason(int status) {
        switch (status) {
        case 200:
            return "OK";
        case 302:
            return "Found";
        case 404:
            return "Not Found";
        case 500:
            return "Internal Server Error";
        default:
            return "Status";
        }
    }

    void Accept() {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            const int connection = ++m_connections;
            m_buffers.insert(socket, QByteArray());
            QObject::connect(socket, &QTcpSocket::readyRead, socket,
                             [this, socket, connection] { Read(socket, connection); });
            QObject::connect(socket, &QTcpSocket::disconnected, socket, [this, socket] {
                m_buffers.remove(socket);
                socket->deleteLater();
            });
        }
    }

    void Read(QTcpSocket* socket, int connection) {
        if (!m_buffers.contains(socket))
            return;
        QByteArray buffer = m_buffers.value(socket) + socket->readAll();
        qsizetype end;
        while ((end = buffer.indexOf("\r\n\r\n")) >= 0) {
            const QList<QByteArray> lines = buffer.left(end).split('\n');
            LocalHttpRequest request;
            request.connection = connection;
            const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
            request.method = first.value(0);
            request.target = first.value(1);
            for (qsizetype i = 1; i < lines.size(); ++i) {
                const qsizetype colon = lines[i].indexOf(':');
                if (colon > 0)
                    request.headers.append(
                        {lines[i].left(colon).trimmed(), lines[i].mid(colon + 1).trimmed()});
            }
            const qsizetype bodySize = request.Header("Content-Length").toLongLong();
            if (buffer.size() < end + 4 + bodySize)
                break;
            request.body = buffer.mid(end + 4, bodySize);
            buffer.remove(0, end + 4 + bodySize);
            m_requests.append(request);
            m_handler(request, socket);
            if (!m_buffers.contains(socket) || socket->state() != QAbstractSocket::ConnectedState)
                return;
        }
        m_buffers.insert(socket, buffer);
    }

    Handler m_handler;
    QTcpServer m_server;
    QHash<QTcpSocket*, QByteArray> m_buffers;
    QList<LocalHttpRequest> m_requests;
    int m_connections = 0;
    bool m_listening = false;
};
