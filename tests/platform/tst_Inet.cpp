#include "Inet.h"
#include "LocalHttpServer.h"

#include <QCoreApplication>
#include <QTest>
#include <QTimer>

class tst_Inet : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void probeAnswers_data() {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("offline");
        QTest::newRow("a page") << LocalHttpServer::Response(200, "<html>up</html>") << "<html>up</html>"
                                << false;
        QTest::newRow("empty") << LocalHttpServer::Response(200, "") << "" << true;
        QTest::newRow("spaces only") << LocalHttpServer::Response(200, "   ") << "   " << true;
        QTest::newRow("tab and newline") << LocalHttpServer::Response(200, " \t\r\n ") << " \t\r\n " << false;
        QTest::newRow("500 with a page")
            << LocalHttpServer::Response(500, "<html>oops</html>") << "<html>oops</html>" << false;
        QTest::newRow("404 without a page") << LocalHttpServer::Response(404, "") << "" << true;
        // One byte every 20 ms would take 20 s; the probe's bound ends it long before.
        QTest::newRow("drip past the bound") << QByteArray("drip") << "" << true;
        QTest::newRow("refused connection") << QByteArray() << "" << true;
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
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nx");
            auto* drip = new QTimer(socket);
            QObject::connect(drip, &QTimer::timeout, socket, [socket] { socket->write("x"); });
            drip->start(20);
        });
        QVERIFY(server.IsListening());
        QString url = server.Url(QStringLiteral("/"));
        if (reply.isEmpty()) {
            LocalHttpServer closed([](const LocalHttpRequest&, QTcpSocket*) {});
            url = closed.Url(QStringLiteral("/"));
        }
        const QString got = OpenURL(url, 300);
        QCOMPARE(got, answer);
        QCOMPARE(ProbeAnswerIsEmpty(got), offline);
        if (!reply.isEmpty())
            QCOMPARE(server.Requests().value(0).method, QByteArray("GET"));
    }
};

QTEST_MAIN(tst_Inet)
#include "tst_Inet.moc"
