#include "LocalHttpServer.h"
#include "SiteSim.h"
#include "harvest/BrowserPage.h"
#include "harvest/HttpPageSource.h"
#include "platform/HostHooks.h"

#include <QElapsedTimer>
#include <QFile>
#include <QNetworkProxy>
#include <QSet>
#include <QTemporaryDir>
#include <QTimer>
#include <QTest>
#include <QTimer>

namespace {

const QByteArray ListingBody = "<html><body><table><tr><td><a href=\"item1.htm\">First</a></td>"
                               "<td><a href=\"http://cgi.example.test/item2\">Second</a></td></tr>"
                               "</table></body></html>";

// The wait that the harvest itself uses: the loop sleeps until an event arrives, so a load whose
// end or time-out raised no event would hang here.
void WaitAsTheRunDoes(BrowserPage& page) {
    while (page.ReadyState() != 4)
        Hooks().WaitForEvents();
}

QStringList LinkTargets(BrowserPage& page) {
    QStringList targets;
    for (HtmlElement* link : page.Document()->links())
        targets << link->DefaultValue();
    return targets;
}

} // namespace

class tst_HttpPageSource : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        // Loopback tests go straight to the server whatever proxy the machine names.
        HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    }
    void cleanupTestCase() { HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::DefaultProxy)); }

    void pagesShareOneKeptAliveConnection() {
        LocalHttpServer server([](const LocalHttpRequest&, QTcpSocket* socket) {
            socket->write(LocalHttpServer::Response(200, ListingBody));
        });
        HttpPageSource source;
        BrowserPage page(&source);
        for (int i = 1; i <= 2; ++i) {
            page.Navigate(server.Url(QStringLiteral("/list/page%1.htm").arg(i)));
            WaitAsTheRunDoes(page);
            QCOMPARE(LinkTargets(page), QStringList({server.Url(QStringLiteral("/list/item1.htm")),
                                                     QStringLiteral("http://cgi.example.test/item2")}));
        }
        // A second page source shares the process's manager and so its connections.
        HttpPageSource other;
        BrowserPage second(&other);
        second.Navigate(server.Url(QStringLiteral("/list/page4.htm")));
        WaitAsTheRunDoes(second);
        QCOMPARE(second.Document()->links().size(), size_t(2));
        QCOMPARE(server.Requests().size(), 3);
        QCOMPARE(server.ConnectionCount(), 1);
    }

    void redirectAndHttpCharsetReachThePage() {
        // UTF-8 bytes of U+201C; the meta tag claims otherwise and loses to the header.
        const QByteArray body = "<html><head><meta charset=\"windows-1252\"></head><body><p>\xE2\x80\x9Cq</p>"
                                "<a href=\"item1.htm\">x</a></body></html>";
        LocalHttpServer server([&body](const LocalHttpRequest& request, QTcpSocket* socket) {
            if (request.Path() == "/start")
                socket->write(LocalHttpServer::Redirect("/moved/list.htm"));
            else
                socket->write(LocalHttpServer::Response(200, body, "text/html; charset=UTF-8"));
        });
        HttpPageSource source;
        BrowserPage page(&source);
        page.Navigate(server.Url(QStringLiteral("/start")));
        WaitAsTheRunDoes(page);
        // Links resolve against the URL the redirect ended at.
        QCOMPARE(LinkTargets(page), QStringList(server.Url(QStringLiteral("/moved/item1.htm"))));
        QCOMPARE(page.Document()->documentElement()->innerText(), QChar(0x201C) + QStringLiteral("q\r\nx"));
    }

    void redirectLoopEndsAfterTenRedirects() {
        LocalHttpServer server([](const LocalHttpRequest& request, QTcpSocket* socket) {
            const int n = request.Path().mid(6).toInt();
            socket->write(LocalHttpServer::Redirect("/loop/" + QByteArray::number(n + 1)));
        });
        HttpPageSource source;
        BrowserPage page(&source);
        page.Navigate(server.Url(QStringLiteral("/loop/0")));
        WaitAsTheRunDoes(page);
        QVERIFY(page.Document()->all().empty());
        // The first request and ten redirects followed; the eleventh is refused. The network layer
        // may repeat a request, so distinct targets are what count.
        QSet<QByteArray> targets;
        for (const LocalHttpRequest& request : server.Requests())
            targets.insert(request.Path());
        QCOMPARE(targets.size(), 1 + HttpPageSource::MaxRedirects);
        QVERIFY(targets.contains("/loop/10"));
        QVERIFY(!targets.contains("/loop/11"));
    }

    void drippingPageEndsAtTheOverallBound() {
        SiteSim site({QStringLiteral("--fault"), QStringLiteral("drip=QQsacat"),
                      QStringLiteral("--drip-interval"), QStringLiteral("10")});
        QVERIFY(site.isRunning());
        HttpPageSource::SetProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));
        HttpPageSource source;
        // A byte every 10 ms never lets the silence bound trip; only the overall one ends it.
        source.SetSilenceTimeoutMs(150);
        source.SetTotalTimeoutMs(400);
        BrowserPage page(&source);
        QElapsedTimer clock;
        clock.start();
        page.Navigate(QStringLiteral("http://listings.ebay.com/Coins_W0QQsacatZ11000"));
        QObject watchdog; // fails fast when nothing bounds the load
        QTimer::singleShot(10000, &watchdog, [&page] { page.Stop(); });
        WaitAsTheRunDoes(page);
        const qint64 elapsed = clock.elapsed();
        HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::NoProxy));
        QVERIFY2(elapsed >= 400, qPrintable(QString::number(elapsed)));
        QVERIFY(page.Document()->all().empty());
        QCOMPARE(page.Failure(), PageFailure::TimedOut);
    }

    void failedAnswers_data() {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<QStringList>("links");
        QTest::addColumn<int>("status");
        QTest::addColumn<PageFailure>("failure");
        QTest::addColumn<bool>("reset");
        // A browser shows the body of an error answer; the page is that body.
        QTest::newRow("server error") << LocalHttpServer::Response(500, "<a href=\"/home\">Home</a>")
                                      << QStringList("/home") << 500 << PageFailure::HttpError << false;
        QTest::newRow("reset mid-body")
            << QByteArray(
                   "HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n<html><body><a href=\"/item\">Item</a>")
            << QStringList() << 200 << PageFailure::Network << true;
        // Stalls end at the silence bound, shortened here.
        QTest::newRow("stall before the answer")
            << QByteArray() << QStringList() << 0 << PageFailure::TimedOut << false;
        QTest::newRow("stall after the headers")
            << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n") << QStringList() << 200
            << PageFailure::TimedOut << false;
        QTest::newRow("stall in the body")
            << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n<html><body><a href=\"x\">x</a>")
            << QStringList() << 200 << PageFailure::TimedOut << false;
    }
    void failedAnswers() {
        QFETCH(QByteArray, sent);
        QFETCH(QStringList, links);
        QFETCH(bool, reset);
        LocalHttpServer server([&](const LocalHttpRequest&, QTcpSocket* socket) {
            socket->write(sent);
            if (reset) {
                socket->flush();
                socket->abort();
            }
        });
        HttpPageSource source;
        source.SetSilenceTimeoutMs(200);
        BrowserPage page(&source);
        page.Navigate(server.Url(QStringLiteral("/p")));
        WaitAsTheRunDoes(page);
        for (QString& link : links)
            link = server.Url(link);
        QCOMPARE(LinkTargets(page), links);
        QCOMPARE(page.Document()->all().empty(), links.isEmpty());
        QTEST(page.HttpStatus(), "status");
        QTEST(page.Failure(), "failure");
    }

    void bodyOverTheCapIsCutThere() {
        QByteArray body = "<html><body><a href=\"/first\">first</a>";
        while (body.size() < 300000)
            body += "<p>filler filler filler filler filler filler filler filler</p>\n";
        body += "<a href=\"/last\">last</a></body></html>";
        // "/endless" never stops sending: the cut must not wait for the rest, which would end
        // only at the bound of the whole load.
        LocalHttpServer server([&body](const LocalHttpRequest& request, QTcpSocket* socket) {
            if (request.Path() != "/endless") {
                socket->write(LocalHttpServer::Response(200, body));
                return;
            }
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 100000000\r\n\r\n" + body);
            auto* more = new QTimer(socket);
            QObject::connect(more, &QTimer::timeout, socket, [socket] { socket->write(QByteArray(1000, ' ')); });
            more->start(10);
        });
        HttpPageSource source;
        source.SetMaxBodyBytes(100000);
        source.SetTotalTimeoutMs(3000);
        BrowserPage page(&source);
        for (const QString& path : {QStringLiteral("/huge"), QStringLiteral("/endless")}) {
            page.Navigate(server.Url(path));
            WaitAsTheRunDoes(page);
            QCOMPARE(LinkTargets(page), QStringList(server.Url(QStringLiteral("/first"))));
            QCOMPARE(page.Failure(), PageFailure::None);
        }

        // A body exactly at the cap is whole.
        source.SetMaxBodyBytes(body.size());
        page.Navigate(server.Url(QStringLiteral("/huge")));
        WaitAsTheRunDoes(page);
        QCOMPARE(page.Document()->links().size(), size_t(2));
    }

    void onlyWebSchemesAreLoaded_data() {
        QTest::addColumn<QString>("url");
        QTest::newRow("file") << QStringLiteral("file://%1");
        QTest::newRow("file without slashes") << QStringLiteral("file:%1");
        QTest::newRow("plain path") << QStringLiteral("%1");
        QTest::newRow("ftp") << QStringLiteral("ftp://127.0.0.1%1");
        QTest::newRow("data") << QStringLiteral("data:text/html,<a href=x>x</a>");
        QTest::newRow("empty") << QString();
        QTest::newRow("http without host") << QStringLiteral("http:%1");
        QTest::newRow("redirect to the file") << QStringLiteral("redirect");
    }
    void onlyWebSchemesAreLoaded() {
        QFETCH(QString, url);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("secret.htm"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("<html><body><a href=\"http://leak.example.test/\">secret</a></body></html>");
        file.close();
        LocalHttpServer server([&path](const LocalHttpRequest&, QTcpSocket* socket) {
            socket->write(LocalHttpServer::Redirect(QUrl::fromLocalFile(path).toEncoded()));
        });
        HttpPageSource source;
        BrowserPage page(&source);
        if (url == u"redirect") {
            page.Navigate(server.Url(QStringLiteral("/to-file")));
            WaitAsTheRunDoes(page);
            QVERIFY(page.Document()->links().empty());
            return;
        }
        page.Navigate(url.contains(u"%1") ? url.arg(path) : url);
        // Refused before any event: the page ends at once.
        QCOMPARE(page.ReadyState(), 4);
        QVERIFY(page.Document()->all().empty());
        QCOMPARE(page.Failure(), PageFailure::Refused);
    }

    void stopAbandonsTheLoadAndThePageNavigatesAgain() {
        LocalHttpServer server([](const LocalHttpRequest& request, QTcpSocket* socket) {
            if (request.Path() != "/stall")
                socket->write(LocalHttpServer::Response(200, ListingBody));
        });
        HttpPageSource source;
        BrowserPage page(&source);
        page.Navigate(server.Url(QStringLiteral("/stall")));
        QTRY_COMPARE_WITH_TIMEOUT(server.Requests().size(), 1, 20000);
        QCOMPARE(page.ReadyState(), 1);
        page.Stop();
        QCOMPARE(page.ReadyState(), 4);
        QVERIFY(page.Document()->all().empty());
        QCOMPARE(page.Failure(), PageFailure::Aborted);

        page.Navigate(server.Url(QStringLiteral("/list.htm")));
        WaitAsTheRunDoes(page);
        QCOMPARE(page.Document()->links().size(), size_t(2));
        QCOMPARE(page.Failure(), PageFailure::None);
    }
};

QTEST_GUILESS_MAIN(tst_HttpPageSource)
#include "tst_HttpPageSource.moc"
