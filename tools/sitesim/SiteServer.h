#pragma once

#include "SitePages.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTcpServer>

class QTcpSocket;

// How the server misbehaves for the URLs that hold a given text.
struct SiteFault {
    enum class Mode { Stall, Reset, ServerError, Garbage, Huge, Drip };
    Mode mode;
    QString substring;
};

// HTTP/1.1 on loopback, both as an origin server and as the proxy the program is pointed at.
// One thread: requests of a connection are answered strictly in order, one at a time.
class SiteServer final : public QObject {
    Q_OBJECT
public:
    enum class ProbeAnswer { Ok, Empty, ServerError };

    SiteServer(const SitePages& pages, QObject* parent = nullptr);

    bool Listen(quint16 port);
    quint16 Port() const { return m_server.serverPort(); }
    QString ErrorText() const { return m_server.errorString(); }

    void SetLatency(int milliseconds) { m_latency = milliseconds; }
    // How long a dripping answer waits between two bytes of its body.
    void SetDripInterval(int milliseconds) { m_dripInterval = milliseconds; }
    void SetProbeAnswer(ProbeAnswer answer) { m_probe = answer; }
    void AddFault(const SiteFault& fault) { m_faults.append(fault); }
    bool SetLog(const QString& path);

private:
    struct Connection {
        QPointer<QTcpSocket> socket;
        QByteArray input;
        bool busy = false;
        bool finished = false; // no more requests are read: closing, reset or stalled
    };
    struct Request {
        QByteArray method;
        QString url; // absolute, as logged
        QString host;
        QString target;
        bool keepAlive = true;
    };

    void OnNewConnection();
    void ProcessNext(Connection* connection);
    // Takes one complete request off the input; false when none is complete yet.
    static bool TakeRequest(QByteArray& input, Request* request, bool* malformed);
    void Respond(Connection* connection, const Request& request);
    static QByteArray Head(int status, qsizetype length, bool keepAlive);

    const SitePages& m_pages;
    QTcpServer m_server;
    QFile m_log;
    int m_latency = 0;
    int m_dripInterval = 1000;
    ProbeAnswer m_probe = ProbeAnswer::Ok;
    QList<SiteFault> m_faults;
};
