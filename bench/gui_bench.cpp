// The main window's figures: time from process start to the window shown with a large category
// file, and the longest gap between two event-loop turns during a search on the sample site.
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "shell/frmMain.h"

#if __has_include("harvest/HttpPageSource.h")
#include "harvest/HttpPageSource.h"
#define MARQUILL_HAVE_HTTP 1
#endif

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkProxy>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>
#include <QWindow>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// Both sites, 40 main categories of 60 sub-categories each: about 5,000 nodes in all.
QByteArray LargeCategoryFile() {
    QByteArray xml = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<Categories>\n";
    for (const char* site : {"ebay.co.uk", "ebay.com"}) {
        for (int m = 1; m <= 40; ++m) {
            const QByteArray main = "Main category " + QByteArray::number(m);
            xml += QByteArray("  <") + site + "><MainItem><![CDATA[" + main +
                   "]]></MainItem><MainURL><![CDATA[http://listings." + site + "/Main" +
                   QByteArray::number(m) + "_W0QQfromZR4QQsacatZ" + QByteArray::number(m * 1000) +
                   "]]></MainURL>\n";
            for (int s = 1; s <= 60; ++s) {
                const QByteArray id = QByteArray::number(m * 1000 + s);
                xml += "    <SubItem><![CDATA[Sub-category " + id + "]]><SubURL><![CDATA[http://listings." +
                       site + "/Sub" + id + "_W0QQsacatZ" + id +
                       "QQsorecordsperpageZ50]]></SubURL></SubItem>\n";
            }
            xml += QByteArray("  </") + site + ">\n";
        }
    }
    xml += "</Categories>\n";
    return xml;
}

// Child process: show the window (or an empty one for the baseline) and say so.
int ShowAndReport(const QString& folder, bool empty, int argc, char** argv) {
    QApplication app(argc, argv);
    SetProgramFolder(folder);
    std::unique_ptr<QWidget> window;
    if (empty)
        window = std::make_unique<QWidget>();
    else
        window = std::make_unique<frmMain>();
    window->show();
    while (!window->windowHandle() || !window->windowHandle()->isExposed())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QCoreApplication::processEvents();
    std::printf("shown\n");
    std::fflush(stdout);
    return 0;
}

double MedianSecondsToShown(const QString& folder, bool empty, int runs) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        child.setProcessEnvironment(env);
        QElapsedTimer clock;
        clock.start();
        child.start(QCoreApplication::applicationFilePath(),
                    {empty ? QStringLiteral("--empty-window") : QStringLiteral("--window"), folder});
        child.waitForFinished(60000);
        const double seconds = double(clock.nsecsElapsed()) / 1e9;
        if (!child.readAllStandardOutput().contains("shown")) {
            std::fprintf(stderr, "the window did not show\n");
            return -1;
        }
        times.push_back(seconds);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// A loopback stand-in for the site, reached as an HTTP proxy: 40 listing pages of 50 auctions.
class ListingServer final : public QObject {
public:
    static constexpr int Pages = 40;
    static constexpr int AuctionsPerPage = 50;

    bool Listen() {
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { Answer(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        return m_server.listen(QHostAddress::LocalHost, 0);
    }
    quint16 Port() const { return m_server.serverPort(); }

private:
    void Answer(QTcpSocket* socket) {
        QByteArray& pending = m_pending[socket];
        pending += socket->readAll();
        const qsizetype end = pending.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        const QByteArray requestLine = pending.left(pending.indexOf("\r\n"));
        pending.remove(0, end + 4);
        QByteArray body = "<html><body>ok</body></html>";
        const QRegularExpression pageMarker(QStringLiteral("QQlopgZ(\\d+)"));
        if (requestLine.contains("listings.")) {
            const auto match = pageMarker.match(QString::fromLatin1(requestLine));
            const int page = match.hasMatch() ? match.captured(1).toInt() : 1;
            body = ListingPage(page);
        }
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
                      QByteArray::number(body.size()) + "\r\n\r\n" + body);
    }

    static QByteArray ListingPage(int page) {
        static const char* const words[] = {"Vintage", "Antique", "Lamp",   "Brass", "Silver", "Doll",
                                            "Clock",   "Oak",     "Table",  "Chair", "Mirror", "Glass",
                                            "Bowl",    "Teddy",   "Mohair", "Print", "Rare",   "Boxed"};
        QByteArray html = "<html><body><table><tr><td><b>Page " + QByteArray::number(page) + "</b> of " +
                          QByteArray::number(Pages) + "</td></tr></table>\n";
        for (int i = 0; i < AuctionsPerPage; ++i) {
            const int item = page * 1000 + i;
            const QByteArray href = "http://cgi.ebay.com/ws/" + QByteArray::number(item);
            html += "<a href=\"" + href + "\"><img src=\"p.jpg\"></a><a href=\"" + href + "\">";
            for (int w = 0; w < 6; ++w)
                html += QByteArray(words[(item * 7 + w * 5) % 18]) + ' ';
            html += "no" + QByteArray::number(item % 300) + "</a>\n";
        }
        return html + "</body></html>\n";
    }

    QTcpServer m_server;
    QHash<QTcpSocket*, QByteArray> m_pending;
};

// A search of 40 pages through the window, with a 1 ms timer that notes each turn of the loop.
// The sample site beside this program, when it has been built: its second main category's second
// sub-category is one of its long listings. Returns the sub-category's FullPath and the site's
// port, or an empty path when there is no sample site.
QString StartSampleSite(QProcess& site, quint16& port, QByteArray& categoryFile) {
    const QString program = QCoreApplication::applicationDirPath() + QStringLiteral("/marquill-sitesim");
    if (!QFile::exists(program))
        return QString();
    QProcess print;
    print.start(program, {QStringLiteral("--print-catalogue"), QStringLiteral("ebay.com")});
    if (!print.waitForFinished(30000))
        return QString();
    const QStringList lines =
        QString::fromUtf8(print.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QString xml = QStringLiteral("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<Categories>\n");
    QString chosen;
    int mains = 0;
    int subs = 0;
    for (const QString& line : lines) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        const QStringList path = fields.value(0).split(QLatin1Char('~'));
        if (path.size() == 2) {
            if (mains++ > 0)
                xml += QStringLiteral("</ebay.com>\n");
            subs = 0;
            xml += QStringLiteral(
                       "<ebay.com><MainItem><![CDATA[%1]]></MainItem><MainURL><![CDATA[%2]]></MainURL>\n")
                       .arg(path[1], fields.value(1));
        } else if (path.size() == 3 && mains > 0) {
            if (mains == 2 && ++subs == 2)
                chosen = fields.value(0);
            xml += QStringLiteral("<SubItem><![CDATA[%1]]><SubURL><![CDATA[%2]]></SubURL></SubItem>\n")
                       .arg(path[2], fields.value(1));
        }
    }
    if (mains > 0)
        xml += QStringLiteral("</ebay.com>\n");
    xml += QStringLiteral("</Categories>\n");
    categoryFile = xml.toLatin1();

    site.start(program, {QStringLiteral("--port"), QStringLiteral("0")});
    QByteArray line;
    while (!line.endsWith('\n') && site.waitForReadyRead(30000))
        line += site.readAllStandardOutput();
    const QByteArray prefix = "listening on 127.0.0.1:";
    if (!line.startsWith(prefix))
        return QString();
    port = quint16(line.mid(prefix.size()).trimmed().toUInt());
    return chosen;
}

void MeasureSearchGaps(int argc, char** argv) {
    QApplication app(argc, argv);
    QTemporaryDir folder;
    QFile(folder.filePath(QStringLiteral("exclude.dat"))).open(QIODevice::WriteOnly);
    SetProgramFolder(folder.path());

    QProcess sampleSite;
    quint16 port = 0;
    QByteArray categoryFile;
    QString nodePath = StartSampleSite(sampleSite, port, categoryFile);
    ListingServer server;
    const char* source = "the sample site";
    if (nodePath.isEmpty()) {
        // Without the sample site, a loopback server of our own serves the forty pages.
        if (!server.Listen())
            return;
        port = server.Port();
        source = "a loopback listing server (no sample site built)";
        nodePath = QStringLiteral("Select Category~Bench~Forty pages");
        categoryFile =
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<Categories><ebay.com>"
            "<MainItem><![CDATA[Bench]]></MainItem><MainURL><![CDATA[http://listings.ebay.com/"
            "Bench_W0QQfromZR4QQsacatZ1]]></MainURL><SubItem><![CDATA[Forty pages]]><SubURL><![CDATA["
            "http://listings.ebay.com/Forty_W0QQsacatZ2QQsorecordsperpageZ50]]></SubURL></SubItem>"
            "</ebay.com></Categories>\n";
    }
    QFile file(folder.filePath(QStringLiteral("aeurl.xml")));
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(categoryFile);
    file.close();

    const QNetworkProxy proxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), port);
    QNetworkProxy::setApplicationProxy(proxy);
#ifdef MARQUILL_HAVE_HTTP
    HttpPageSource::SetProxy(proxy);
#endif
    MessageBox::SetAnswersSupplied(true);
    frmMain::SetShowSummary([](QWidget*) {});

    frmMain window;
    window.show();
    auto* tree = window.findChild<QTreeWidget*>(QStringLiteral("treCategories"));
    const CategoryNode* node = CurrentCategoryTree()->FindByPath(nodePath);
    if (!node) {
        std::fprintf(stderr, "the bench category is missing\n");
        return;
    }
    tree->setCurrentItem(window.ItemOfNode(node));
    std::printf("search source: %s, node %s, limit 2,000 (40 pages of 50)\n", source,
                qUtf8Printable(nodePath));

    QElapsedTimer clock;
    qint64 last = 0;
    qint64 longest = 0;
    qint64 turns = 0;
    QTimer beat;
    beat.setInterval(1);
    QObject::connect(&beat, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        longest = std::max(longest, now - last);
        last = now;
        ++turns;
    });
    clock.start();
    beat.start();
    window.findChild<QAbstractButton*>(QStringLiteral("cmdGetKeywords"))->click();
    beat.stop();
    const double total = double(clock.nsecsElapsed()) / 1e9;
    if (sampleSite.state() != QProcess::NotRunning) {
        sampleSite.terminate();
        sampleSite.waitForFinished(10000);
    }
    longest = std::max(longest, clock.nsecsElapsed() - last);

    std::printf("search: %d auctions scanned, %d keywords, %.3f s\n", int(HarvestState.AuctionsScanned),
                int(HarvestState.KeywordsFound), total);
    std::printf("longest gap between two event-loop turns: %.1f ms (%lld timer turns)\n",
                double(longest) / 1e6, static_cast<long long>(turns));
    std::printf("target: no gap over 50 ms: %s\n", longest < 50'000'000 ? "met" : "NOT met");
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && qstrcmp(argv[1], "--search") == 0) {
        MeasureSearchGaps(argc, argv);
        return 0;
    }
    if (argc == 3 && (qstrcmp(argv[1], "--window") == 0 || qstrcmp(argv[1], "--empty-window") == 0))
        return ShowAndReport(QString::fromLocal8Bit(argv[2]), qstrcmp(argv[1], "--empty-window") == 0, argc,
                             argv);

    QCoreApplication app(argc, argv);
    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("aeurl.xml")));
    if (!folder.isValid() || !file.open(QIODevice::WriteOnly))
        return 1;
    const QByteArray xml = LargeCategoryFile();
    file.write(xml);
    file.close();
    QFile::copy(QStringLiteral(MARQUILL_DATA_DIR "/anwork.gif"),
                folder.filePath(QStringLiteral("anwork.gif")));

    const int runs = 5;
    const double empty = MedianSecondsToShown(folder.path(), true, runs);
    const double window = MedianSecondsToShown(folder.path(), false, runs);
    std::printf("category file: %lld bytes, 2 sites x 40 main x 60 sub\n",
                static_cast<long long>(xml.size()));
    std::printf("process start to an empty window shown: %.3f s (median of %d)\n", empty, runs);
    std::printf("process start to frmMain shown:          %.3f s (median of %d), %.2f x the empty window\n",
                window, runs, empty > 0 ? window / empty : 0.0);
    std::printf("target: under 0.5 s to the window: %s\n", window >= 0 && window < 0.5 ? "met" : "NOT met");
    std::fflush(stdout);

    // The search runs in a process of its own, with a window and the event loop to itself.
    QProcess search;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    search.setProcessEnvironment(env);
    search.setProcessChannelMode(QProcess::ForwardedChannels);
    search.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--search")});
    search.waitForFinished(300000);
    return 0;
}
