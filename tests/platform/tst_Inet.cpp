#include "Inet.h"
#include "LocalHttpServer.h"

#include <QTest>
#include <QTimer>

class tst_Inet : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void probeAnswers_data() {
        QTest::addColumn<QByteArray>("reply"); // "drip", or nothing for a refused connection
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("offline");
        QTest::newRow("page") << LocalHttpServer::Response(200, "<p>up</p>") << "<p>up</p>" << false;
        QTest::newRow("empty") << LocalHttpServer::Response(200, "") << "" << true;
        QTest::newRow("spaces") << LocalHttpServer::Response(200, "   ") << "   " << true;
        QTest::newRow("tab, newline") << LocalHttpServer::Response(200, " \t\r\n") << " \t\r\n" << false;
        QTest::newRow("500 page") << LocalHttpServer::Response(500, "<p>oops</p>") << "<p>oops</p>" << false;
        // A byte every 20 ms would take 20 s; the bound ends it long before.
        QTest::newRow("drip") << QByteArray("drip") << "" << true;
        QTest::newRow("refused") << QByteArray() << "" << true;
    }

    void probeAnswers() {
        QFETCH(QByteArray, reply);
        QFETCH(QString, answer);
        QFETCH(bool, offline);
        LocalHttpServer server([&reply](const LocalHttpRequest&, QTcpSocket* socket) {
            if (reply != "drip") {
                socket->write(reply);
                return;
            }
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\nx");
            auto* timer = new QTimer(socket);
            QObject::connect(timer, &QTimer::timeout, socket, [socket] { socket->write("x"); });
            timer->start(20);
        });
        const quint16 port = reply.isEmpty() ? LocalHttpServer({}).Port() : server.Port();
        const QString got = OpenURL(QStringLiteral("http://127.0.0.1:%1/").arg(port), 300);
        QCOMPARE(got, answer);
        QCOMPARE(ProbeAnswerIsEmpty(got), offline);
    }
};

QTEST_MAIN(tst_Inet)
#include "tst_Inet.moc"
