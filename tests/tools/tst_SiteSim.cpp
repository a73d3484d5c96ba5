#include "SiteSim.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>
#include <memory>

namespace {

struct Response {
    int status = 0;
    QByteArray head;
    QByteArray body;
    qsizetype contentLength = -1;
    bool complete = false;
    QByteArray Header(const QByteArray& name) const {
        for (const QByteArray& line : head.split('\n')) {
            const qsizetype colon = line.indexOf(':');
            if (colon > 0 && line.left(colon).trimmed().toLower() == name)
                return line.mid(colon + 1).trimmed();
        }
        return {};
    }
};

// A plain HTTP/1.1 client on a raw socket, so the site is checked without the program's own code.
class Client {
public:
    explicit Client(quint16 port) { m_socket.connectToHost(QStringLiteral("127.0.0.1"), port); }
    bool Connected() {
        return m_socket.state() == QAbstractSocket::ConnectedState || m_socket.waitForConnected(10000);
    }
    QTcpSocket& Socket() { return m_socket; }

    void Send(const QByteArray& raw) {
        m_socket.write(raw);
        m_socket.flush();
    }
    void Get(const QString& url, const QByteArray& extra = {}) { Send(AbsoluteRequest(url, extra)); }

    static QByteArray AbsoluteRequest(const QString& url, const QByteArray& extra = {}) {
        return "GET " + url.toLatin1() + " HTTP/1.1\r\nHost: " + QUrl(url).host().toLatin1() + "\r\n" +
               extra + "\r\n";
    }
    static QByteArray OriginRequest(const QString& url) {
        const QUrl u(url);
        return "GET " + u.toString(QUrl::RemoveScheme | QUrl::RemoveAuthority).toLatin1() +
               " HTTP/1.1\r\nHost: " + u.host().toLatin1() + "\r\n\r\n";
    }

    // Reads the head of the next response; false if the connection ends first.
    bool ReadHead(Response* response) {
        while (!m_buffer.contains("\r\n\r\n")) {
            if (!WaitForData())
                return false;
        }
        const qsizetype end = m_buffer.indexOf("\r\n\r\n");
        response->head = m_buffer.left(end);
        m_buffer.remove(0, end + 4);
        response->status = response->head.mid(9, 3).toInt();
        const QByteArray length = response->Header("content-length");
        response->contentLength = length.isEmpty() ? -1 : length.toLongLong();
        return true;
    }
    // Reads the body of a response whose head was read; complete tells whether all of it came.
    void ReadBody(Response* response) {
        while (m_buffer.size() < response->contentLength && WaitForData()) {
        }
        const qsizetype take = std::min(m_buffer.size(), response->contentLength);
        response->body = m_buffer.left(take);
        m_buffer.remove(0, take);
        response->complete = response->body.size() == response->contentLength;
    }
    Response Read() {
        Response response;
        if (ReadHead(&response))
            ReadBody(&response);
        return response;
    }
    Response Fetch(const QString& url, const QByteArray& extra = {}) {
        Get(url, extra);
        return Read();
    }
    qsizetype Buffered() const { return m_buffer.size(); }
    // Waits for the peer to close; true if it did.
    bool WaitForClose() {
        while (m_socket.state() == QAbstractSocket::ConnectedState && WaitForData()) {
        }
        return m_socket.state() != QAbstractSocket::ConnectedState;
    }

private:
    bool WaitForData() {
        if (m_socket.bytesAvailable() == 0 && !m_socket.waitForReadyRead(20000))
            return false;
        m_buffer += m_socket.readAll();
        return true;
    }

    QTcpSocket m_socket;
    QByteArray m_buffer;
};

struct Anchor {
    QString href;
    QString inner;
};

QList<Anchor> Anchors(const QByteArray& page) {
    static const QRegularExpression re(QStringLiteral("<a href=\"([^\"]*)\">(.*?)</a>"),
                                       QRegularExpression::DotMatchesEverythingOption);
    QList<Anchor> anchors;
    auto it = re.globalMatch(QString::fromLatin1(page));
    while (it.hasNext()) {
        const auto m = it.next();
        anchors.append({m.captured(1), m.captured(2)});
    }
    return anchors;
}

// Auction links as the scan tells them: item-page prefix, content not a picture.
QStringList AuctionIds(const QByteArray& page, const QString& prefix) {
    static const QRegularExpression id(QStringLiteral("QQitemZ(\\d+)"));
    QStringList ids;
    for (const Anchor& a : Anchors(page))
        if (a.href.startsWith(prefix) && !a.inner.startsWith(QLatin1String("<img"), Qt::CaseInsensitive))
            ids.append(id.match(a.href).captured(1));
    return ids;
}

int PictureLinks(const QByteArray& page, const QString& prefix) {
    int count = 0;
    for (const Anchor& a : Anchors(page))
        count += a.href.startsWith(prefix) && a.inner.startsWith(QLatin1String("<img"));
    return count;
}

// The page count as a reader of the page with upper-case tag names finds it: the text between
// "</B> of" and "</TD>" within p + 30 characters of "<b>Page", compared without case.
int MarkerCount(const QByteArray& page) {
    QString upper = QString::fromLatin1(page);
    static const QRegularExpression tag(QStringLiteral("<(/?)([a-zA-Z]+)"));
    QString out;
    qsizetype last = 0;
    auto it = tag.globalMatch(upper);
    while (it.hasNext()) {
        const auto m = it.next();
        out += upper.mid(last, m.capturedStart() - last) + QLatin1Char('<') + m.captured(1) +
               m.captured(2).toUpper();
        last = m.capturedEnd();
    }
    out += upper.mid(last);
    const qsizetype p = out.indexOf(QLatin1String("<b>Page"), 0, Qt::CaseInsensitive);
    if (p < 0)
        return 0;
    const QString fragment = out.mid(p, p + 1 + 30);
    const qsizetype q = fragment.indexOf(QLatin1String("</B> of"), 0, Qt::CaseInsensitive);
    const qsizetype r = fragment.indexOf(QLatin1String("</TD>"), 0, Qt::CaseInsensitive);
    if (q < 0 || r < q + 7)
        return 0;
    return fragment.mid(q + 7, r - q - 7).trimmed().toInt();
}

QString PageUrl(const QString& firstPage, int page) {
    if (page == 1)
        return firstPage;
    QString url = firstPage;
    url.insert(url.indexOf(QLatin1String("QQsacat")), QStringLiteral("QQlopgZ%1").arg(page));
    return url;
}

struct Node {
    QString path;
    QString url;
};

QList<Node> Nodes(const QStringList& lines, int depth) {
    QList<Node> nodes;
    for (const QString& line : lines) {
        const QString path = line.section(QLatin1Char('\t'), 0, 0);
        if (path.count(QLatin1Char('~')) == depth - 1)
            nodes.append({path, line.section(QLatin1Char('\t'), 1)});
    }
    return nodes;
}

const QString kUsPrefix = QStringLiteral("http://cgi.ebay.com/");

} // namespace

class tst_SiteSim : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void catalogueHasTheAdvertisedShape_data();
    void catalogueHasTheAdvertisedShape();
    void generatedCatalogueHasTheAskedSize();
    void absoluteAndOriginFormAnswerTheSamePage();
    void connectionStaysOpenForSequentialAndPipelinedRequests();
    void connectionCloseIsHonoured();
    void malformedRequestIsRefused();
    void listingPagesCarryMarkerAndFiftyRecords();
    void laterPagesCarryTheFollowingRecords();
    void unknownCategoryAndPageBeyondTheLastHaveNoAuctions();
    void pageCountsSpreadFromOneToMany();
    void titlesFollowTheSeed();
    void titlesHaveTheShapesTheTallyMeets();
    void indexPageLinksEachMainCategoryOnce_data();
    void indexPageLinksEachMainCategoryOnce();
    void mainPagesLinkEachSubCategoryInBold_data();
    void mainPagesLinkEachSubCategoryInBold();
    void faultModes_data();
    void faultModes();
    void stallSendsHeadersThenNothing();
    void resetCutsTheBodyShort();
    void probeAnswers_data();
    void probeAnswers();
    void requestLogKeepsTheOrder();
    void latencyKeepsPipelinedAnswersInOrder();
    void servesQtNetworkThroughItsProxy();
    void terminateEndsCleanly();
};

void tst_SiteSim::catalogueHasTheAdvertisedShape_data() {
    QTest::addColumn<QString>("site");
    QTest::newRow("us") << QStringLiteral("ebay.com");
    QTest::newRow("uk") << QStringLiteral("ebay.co.uk");
}

void tst_SiteSim::catalogueHasTheAdvertisedShape() {
    QFETCH(QString, site);
    const QStringList lines = SiteSim::catalogueOf(site);
    QVERIFY(!lines.isEmpty());
    QCOMPARE(lines.first(), QStringLiteral("Select Category\tRoot"));
    const QList<Node> mains = Nodes(lines, 2);
    QCOMPARE(mains.size(), 12);
    QSet<QString> urls;
    QSet<QString> ids;
    bool ampersand = false;
    for (const Node& main : mains) {
        QVERIFY2(main.url.startsWith(QStringLiteral("http://listings.") + site + QLatin1Char('/')),
                 qPrintable(main.url));
        QVERIFY(!main.url.endsWith(QLatin1String("QQsorecordsperpageZ50")));
        ampersand = ampersand || main.path.contains(QLatin1Char('&'));
        int children = 0;
        for (const Node& sub : Nodes(lines, 3))
            children += sub.path.startsWith(main.path + QLatin1Char('~'));
        QVERIFY2(children >= 3 && children <= 15, qPrintable(main.path));
    }
    QVERIFY(ampersand);
    static const QRegularExpression id(QStringLiteral("QQsacatZ(\\d+)"));
    for (const QString& line : lines.mid(1)) {
        const QString url = line.section(QLatin1Char('\t'), 1);
        QVERIFY2(!urls.contains(url), qPrintable(url));
        urls.insert(url);
        const QString number = id.match(url).captured(1);
        QVERIFY2(!number.isEmpty() && !ids.contains(number), qPrintable(url));
        ids.insert(number);
        if (line.count(QLatin1Char('~')) == 2)
            QVERIFY(url.endsWith(QLatin1String("QQsorecordsperpageZ50")));
    }
}

void tst_SiteSim::generatedCatalogueHasTheAskedSize() {
    const QStringList args{QStringLiteral("--mains"), QStringLiteral("40"), QStringLiteral("--subs"),
                           QStringLiteral("60")};
    const QStringList lines = SiteSim::catalogueOf(QStringLiteral("ebay.com"), args);
    QCOMPARE(Nodes(lines, 2).size(), 40);
    QCOMPARE(Nodes(lines, 3).size(), 40 * 60);
    QCOMPARE(QSet<QString>(lines.begin(), lines.end()).size(), lines.size());

    // The pages follow the generated catalogue, not the built-in one.
    SiteSim sim(args);
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    const Node last = Nodes(lines, 3).last();
    const Response page = client.Fetch(last.url);
    QCOMPARE(page.status, 200);
    QVERIFY(!AuctionIds(page.body, kUsPrefix).isEmpty());
}

void tst_SiteSim::absoluteAndOriginFormAnswerTheSamePage() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    const QStringList lines = sim.catalogue(QStringLiteral("ebay.co.uk"));
    const QStringList urls{QStringLiteral("http://www.ebay.com/"),
                           QStringLiteral("http://listings.ebay.co.uk/"), Nodes(lines, 2).first().url,
                           Nodes(lines, 3).first().url, PageUrl(Nodes(lines, 3).first().url, 2)};
    Client absolute(sim.port());
    Client origin(sim.port());
    QVERIFY(absolute.Connected() && origin.Connected());
    for (const QString& url : urls) {
        absolute.Send(Client::AbsoluteRequest(url));
        const Response a = absolute.Read();
        origin.Send(Client::OriginRequest(url));
        const Response o = origin.Read();
        QCOMPARE(a.status, 200);
        QVERIFY2(a.complete && o.complete && !a.body.isEmpty(), qPrintable(url));
        QVERIFY2(a.body == o.body, qPrintable(url));
    }
}

void tst_SiteSim::connectionStaysOpenForSequentialAndPipelinedRequests() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    const QString sub = Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3).first().url;
    Client client(sim.port());
    QVERIFY(client.Connected());
    const Response first = client.Fetch(QStringLiteral("http://listings.ebay.com/"));
    QVERIFY(first.complete);
    QCOMPARE(first.Header("connection").toLower(), QByteArray("keep-alive"));
    const Response second = client.Fetch(sub);
    QVERIFY(second.complete);
    QVERIFY(second.body.contains("<b>Page 1</b>"));

    // Three requests in one write come back whole and in the order asked.
    client.Send(Client::AbsoluteRequest(PageUrl(sub, 2)) +
                Client::OriginRequest(QStringLiteral("http://www.ebay.com/")) + Client::AbsoluteRequest(sub));
    const Response a = client.Read();
    const Response b = client.Read();
    const Response c = client.Read();
    QVERIFY(a.complete && b.complete && c.complete);
    QVERIFY(a.body.contains("<b>Page 2</b>"));
    QVERIFY(!b.body.contains("<b>Page"));
    QCOMPARE(c.body, second.body);
    QCOMPARE(client.Socket().state(), QAbstractSocket::ConnectedState);
    QCOMPARE(sim.requestLog().size(), 5);

    // A request with a body, sent in two parts: it is answered once the body is in, and the
    // body is skipped so the request behind it is read right.
    client.Send("GET http://www.ebay.com/ HTTP/1.1\r\nHost: www.ebay.com\r\nContent-Length: 5\r\n\r\nhel");
    client.Send("lo" + Client::AbsoluteRequest(sub));
    QVERIFY(client.Read().complete);
    QCOMPARE(client.Read().body, second.body);
    QCOMPARE(sim.requestLog().size(), 7);
}

void tst_SiteSim::malformedRequestIsRefused() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    client.Send("HELLO\r\n\r\n");
    const Response r = client.Read();
    QCOMPARE(r.status, 400);
    QVERIFY(client.WaitForClose());
    QVERIFY(sim.requestLog().isEmpty());
}

void tst_SiteSim::connectionCloseIsHonoured() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    const Response r = client.Fetch(QStringLiteral("http://www.ebay.com/"), "Connection: close\r\n");
    QVERIFY(r.complete);
    QCOMPARE(r.Header("connection").toLower(), QByteArray("close"));
    QVERIFY(client.WaitForClose());

    // HTTP/1.0 without keep-alive closes as well.
    Client old(sim.port());
    QVERIFY(old.Connected());
    old.Send("GET / HTTP/1.0\r\nHost: www.ebay.com\r\n\r\n");
    QVERIFY(old.Read().complete);
    QVERIFY(old.WaitForClose());
}

void tst_SiteSim::listingPagesCarryMarkerAndFiftyRecords() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    int checked = 0;
    for (const Node& sub : Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3).mid(0, 25)) {
        const Response first = client.Fetch(sub.url);
        QVERIFY(first.complete);
        const int pages = MarkerCount(first.body);
        QVERIFY2(pages >= 1, qPrintable(sub.url));
        static const QRegularExpression found(QStringLiteral("<b>(\\d+)</b> items found"));
        const int records = found.match(QString::fromLatin1(first.body)).captured(1).toInt();
        QCOMPARE((records + 49) / 50, pages);
        QVERIFY(first.body.contains("<b>Page 1</b> of " + QByteArray::number(pages) + "</td>"));
        QCOMPARE(AuctionIds(first.body, kUsPrefix).size(), std::min(records, 50));
        // Each record also has its picture link to the same item, which the scan must not count.
        QCOMPARE(PictureLinks(first.body, kUsPrefix), std::min(records, 50));
        if (pages > 1) {
            const Response last = client.Fetch(PageUrl(sub.url, pages));
            QCOMPARE(MarkerCount(last.body), pages);
            QVERIFY(last.body.contains("<b>Page " + QByteArray::number(pages) + "</b> of "));
            QCOMPARE(AuctionIds(last.body, kUsPrefix).size(), records - (pages - 1) * 50);
            ++checked;
        }
    }
    QVERIFY(checked > 5);
}

void tst_SiteSim::laterPagesCarryTheFollowingRecords() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    QString sub;
    for (const Node& node : Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3)) {
        if (MarkerCount(client.Fetch(node.url).body) >= 5) {
            sub = node.url;
            break;
        }
    }
    QVERIFY(!sub.isEmpty());
    QStringList fifties;
    for (int page = 1; page <= 4; ++page) {
        const QStringList ids = AuctionIds(client.Fetch(PageUrl(sub, page)).body, kUsPrefix);
        QCOMPARE(ids.size(), 50);
        fifties += ids;
    }
    QCOMPARE(QSet<QString>(fifties.begin(), fifties.end()).size(), 200);
    // The same listing at 200 a page holds the same records in the same order.
    QString wide = sub;
    wide.replace(QLatin1String("QQsorecordsperpageZ50"), QLatin1String("QQsorecordsperpageZ200"));
    const Response widePage = client.Fetch(wide);
    QCOMPARE(AuctionIds(widePage.body, kUsPrefix), fifties);
    static const QRegularExpression found(QStringLiteral("<b>(\\d+)</b> items found"));
    const int records = found.match(QString::fromLatin1(widePage.body)).captured(1).toInt();
    QCOMPARE(MarkerCount(widePage.body), (records + 199) / 200);
    QCOMPARE(MarkerCount(client.Fetch(sub).body), (records + 49) / 50);
}

void tst_SiteSim::unknownCategoryAndPageBeyondTheLastHaveNoAuctions() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    const QString sub = Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3).first().url;
    const int pages = MarkerCount(client.Fetch(sub).body);
    const QStringList empty{
        PageUrl(sub, pages + 1),
        QStringLiteral("http://listings.ebay.com/Nothing_W0QQsacatZ999999QQsorecordsperpageZ50"),
        QStringLiteral("http://listings.ebay.com/no-such-page.html")};
    for (const QString& url : empty) {
        const Response r = client.Fetch(url);
        QCOMPARE(r.status, 200);
        QVERIFY2(r.body.contains("</html>"), qPrintable(url));
        QVERIFY2(AuctionIds(r.body, kUsPrefix).isEmpty(), qPrintable(url));
        QCOMPARE(MarkerCount(r.body), 0);
    }
}

void tst_SiteSim::pageCountsSpreadFromOneToMany() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    QList<int> counts;
    for (const Node& sub : Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3))
        counts.append(MarkerCount(client.Fetch(sub.url).body));
    std::sort(counts.begin(), counts.end());
    QCOMPARE(counts.first(), 1);
    QVERIFY(counts.count(1) >= 5);
    QVERIFY(counts.last() >= 100); // enough for the largest auction limit in one sub-category
    QVERIFY(counts[counts.size() - 3] <= 40);
}

void tst_SiteSim::titlesFollowTheSeed() {
    SiteSim one;
    SiteSim same;
    SiteSim other({QStringLiteral("--seed"), QStringLiteral("77")});
    QVERIFY(one.isRunning() && same.isRunning() && other.isRunning());
    const QString sub = Nodes(one.catalogue(QStringLiteral("ebay.co.uk")), 3).value(4).url;
    Client a(one.port());
    Client b(same.port());
    Client c(other.port());
    QVERIFY(a.Connected() && b.Connected() && c.Connected());
    const QByteArray pageA = a.Fetch(sub).body;
    const QByteArray pageB = b.Fetch(sub).body;
    const QByteArray pageC = c.Fetch(sub).body;
    QVERIFY(!pageA.isEmpty());
    QCOMPARE(pageA, pageB);
    QVERIFY(pageA != pageC);
    const QString ukPrefix = QStringLiteral("http://cgi.ebay.co.uk/");
    // The catalogue and the items stay; only the titles change.
    QCOMPARE(MarkerCount(pageA), MarkerCount(pageC));
    QStringList titlesA;
    QStringList titlesC;
    for (const Anchor& x : Anchors(pageA))
        if (x.href.startsWith(ukPrefix) && !x.inner.startsWith(QLatin1String("<img")))
            titlesA.append(x.inner);
    for (const Anchor& x : Anchors(pageC))
        if (x.href.startsWith(ukPrefix) && !x.inner.startsWith(QLatin1String("<img")))
            titlesC.append(x.inner);
    QCOMPARE(titlesA.size(), titlesC.size());
    int differing = 0;
    for (qsizetype i = 0; i < titlesA.size(); ++i)
        differing += titlesA[i] != titlesC[i];
    QVERIFY(differing > titlesA.size() / 2);
    QCOMPARE(AuctionIds(pageA, ukPrefix).size(), AuctionIds(pageC, ukPrefix).size());
}

void tst_SiteSim::titlesHaveTheShapesTheTallyMeets() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    QStringList titles;
    for (const Node& sub : Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3).mid(10, 10))
        for (const Anchor& a : Anchors(client.Fetch(sub.url).body))
            if (a.href.startsWith(kUsPrefix) && !a.inner.startsWith(QLatin1String("<img")))
                titles.append(a.inner);
    QVERIFY(titles.size() > 100);
    const QList<QPair<const char*, QRegularExpression>> shapes{
        {"year", QRegularExpression(QStringLiteral("\\b(19|20)\\d\\d\\b"))},
        {"grouped number", QRegularExpression(QStringLiteral("\\b\\d,\\d{3}\\b"))},
        {"price", QRegularExpression(QStringLiteral("\\$\\d+\\.\\d\\d"))},
        {"bold word", QRegularExpression(QStringLiteral("^<b>NEW</b> "))},
        {"bold inside a word", QRegularExpression(QStringLiteral("\\w<b>\\w+</b>"))},
        {"ampersand", QRegularExpression(QStringLiteral("&amp;"))},
        {"one-letter word", QRegularExpression(QStringLiteral("(^| )[aAXw]( |$)"))},
        {"double blank", QRegularExpression(QStringLiteral("\\S  \\S"))},
        {"punctuation", QRegularExpression(QStringLiteral("[!,*()]"))},
        {"word again in capitals",
         QRegularExpression(QStringLiteral("\\b([A-Z][a-z]+)\\b.*\\b(?!\\1\\b)(?i:\\1)\\b"))},
    };
    for (const auto& shape : shapes) {
        bool seen = false;
        for (const QString& t : titles)
            seen = seen || shape.second.match(t).hasMatch();
        QVERIFY2(seen, shape.first);
    }
}

void tst_SiteSim::indexPageLinksEachMainCategoryOnce_data() {
    catalogueHasTheAdvertisedShape_data();
}

void tst_SiteSim::indexPageLinksEachMainCategoryOnce() {
    QFETCH(QString, site);
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    const Response index = client.Fetch(QStringLiteral("http://listings.") + site + QLatin1Char('/'));
    QCOMPARE(index.status, 200);
    const QList<Anchor> anchors = Anchors(index.body);
    const QList<Node> mains = Nodes(sim.catalogue(site), 2);
    int seeAll = 0;
    int featured = 0;
    for (const Anchor& a : anchors) {
        const QString text = a.inner.trimmed().toUpper();
        if (!text.startsWith(QLatin1String("SEE ALL")))
            continue;
        if (text == QLatin1String("SEE ALL FEATURED ITEMS")) {
            ++featured;
            continue;
        }
        ++seeAll;
    }
    QCOMPARE(featured, 1);
    QCOMPARE(seeAll, mains.size());
    for (const Node& main : mains) {
        const QString name = main.path.section(QLatin1Char('~'), 1);
        const QString cell = QStringLiteral("<td><a href=\"%1\">See all %2 categories...</a></td>")
                                 .arg(main.url, name.toHtmlEscaped());
        QCOMPARE(QString::fromLatin1(index.body).count(cell), 1);
    }
}

void tst_SiteSim::mainPagesLinkEachSubCategoryInBold_data() {
    catalogueHasTheAdvertisedShape_data();
}

void tst_SiteSim::mainPagesLinkEachSubCategoryInBold() {
    QFETCH(QString, site);
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    const QStringList lines = sim.catalogue(site);
    const QString root = QStringLiteral("http://listings.") + site + QLatin1Char('/');
    static const QRegularExpression bold(QStringLiteral("<b><a href=\"([^\"]*)\">([^<]*)</a></b>"));
    for (const Node& main : Nodes(lines, 2)) {
        const Response page = client.Fetch(main.url);
        QCOMPARE(page.status, 200);
        const QString html = QString::fromLatin1(page.body);
        QStringList found;
        bool browse = false;
        bool otherHost = false;
        auto it = bold.globalMatch(html);
        while (it.hasNext()) {
            const auto m = it.next();
            const QString name = m.captured(2);
            if (!m.captured(1).startsWith(root)) {
                otherHost = true;
            } else if (name.toUpper().startsWith(QLatin1String("BROWSE"))) {
                browse = true;
            } else {
                QString text = name;
                text.replace(QLatin1String("&amp;"), QLatin1String("&"));
                found.append(main.path + QLatin1Char('~') + text + QLatin1Char('\t') + m.captured(1) +
                             QStringLiteral("QQsorecordsperpageZ50"));
            }
        }
        QStringList expected;
        for (const QString& line : lines)
            if (line.startsWith(main.path + QLatin1Char('~')))
                expected.append(line);
        QCOMPARE(found, expected);
        QVERIFY(browse && otherHost);
        // Sub-category links also stand outside bold, where they are no entries.
        const QString firstSub = expected.first().section(QLatin1Char('\t'), 1).chopped(21);
        QVERIFY(html.count(QStringLiteral("<a href=\"%1\">").arg(firstSub)) >= 2);
    }
}

void tst_SiteSim::faultModes_data() {
    QTest::addColumn<QString>("mode");
    QTest::addColumn<int>("status");
    QTest::newRow("500") << QStringLiteral("500") << 500;
    QTest::newRow("garbage") << QStringLiteral("garbage") << 200;
    QTest::newRow("huge") << QStringLiteral("huge") << 200;
}

void tst_SiteSim::faultModes() {
    QFETCH(QString, mode);
    QFETCH(int, status);
    SiteSim sim({QStringLiteral("--fault"), mode + QStringLiteral("=QQsacatZ16001")});
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    const QString faulty =
        QStringLiteral("http://listings.ebay.com/Coins-Bullion_W0QQsacatZ16001QQsorecordsperpageZ50");
    const Response r = client.Fetch(faulty);
    QVERIFY(r.complete);
    QCOMPARE(r.status, status);
    QVERIFY(AuctionIds(r.body, kUsPrefix).isEmpty());
    if (mode == QLatin1String("500")) {
        QVERIFY(r.body.contains("</html>"));
    } else if (mode == QLatin1String("garbage")) {
        QCOMPARE(r.Header("content-type"), QByteArray("text/html"));
        QVERIFY(r.body.size() > 1000);
        QVERIFY(!r.body.contains("<html"));
    } else {
        QVERIFY(r.body.size() >= 20 * 1024 * 1024);
        QVERIFY(r.body.endsWith("</html>\r\n"));
    }
    // Other URLs of the same connection are served as usual.
    const Response normal = client.Fetch(
        QStringLiteral("http://listings.ebay.com/Coins-Coins-US_W0QQsacatZ16002QQsorecordsperpageZ50"));
    QCOMPARE(normal.status, 200);
    QCOMPARE(AuctionIds(normal.body, kUsPrefix).size(), 50);
}

void tst_SiteSim::stallSendsHeadersThenNothing() {
    SiteSim sim({QStringLiteral("--fault"), QStringLiteral("stall=QQlopgZ2")});
    QVERIFY(sim.isRunning());
    const QString sub = Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3).value(5).url;
    Client stalled(sim.port());
    QVERIFY(stalled.Connected());
    stalled.Get(PageUrl(sub, 2));
    Response head;
    QVERIFY(stalled.ReadHead(&head));
    QCOMPARE(head.status, 200);
    QVERIFY(head.contentLength > 0);
    // A later request on the stalled connection is not even read.
    stalled.Get(sub);
    // The server stays free for others; by the time they are answered the stalled request and the
    // one behind it have been handled, so any body would already be on its way.
    Client other(sim.port());
    QVERIFY(other.Connected());
    QVERIFY(other.Fetch(sub).complete);
    QVERIFY(other.Fetch(PageUrl(sub, 3)).complete);
    QCOMPARE(sim.requestLog().size(), 3);
    stalled.Socket().waitForReadyRead(0);
    QCOMPARE(stalled.Buffered() + stalled.Socket().bytesAvailable(), qsizetype(0));
    QCOMPARE(stalled.Socket().state(), QAbstractSocket::ConnectedState);
}

void tst_SiteSim::resetCutsTheBodyShort() {
    SiteSim sim({QStringLiteral("--fault"), QStringLiteral("reset=QQsacatZ16003")});
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    client.Get(
        QStringLiteral("http://listings.ebay.com/Coins-Coins-Ancient_W0QQsacatZ16003QQsorecordsperpageZ50"));
    Response r;
    if (client.ReadHead(&r)) {
        client.ReadBody(&r);
        QVERIFY(r.contentLength > 0);
        QVERIFY(!r.complete);
        QVERIFY(r.body.size() <= r.contentLength / 2);
    }
    QVERIFY(client.WaitForClose());
    // The server itself goes on.
    Client next(sim.port());
    QVERIFY(next.Connected());
    QCOMPARE(next.Fetch(QStringLiteral("http://www.ebay.com/")).status, 200);
}

void tst_SiteSim::probeAnswers_data() {
    QTest::addColumn<QString>("answer");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("emptyBody");
    QTest::newRow("ok") << QStringLiteral("ok") << 200 << false;
    QTest::newRow("empty") << QStringLiteral("empty") << 200 << true;
    QTest::newRow("500") << QStringLiteral("500") << 500 << false;
}

void tst_SiteSim::probeAnswers() {
    QFETCH(QString, answer);
    QFETCH(int, status);
    QFETCH(bool, emptyBody);
    SiteSim sim({QStringLiteral("--probe"), answer});
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    const Response r = client.Fetch(QStringLiteral("http://www.ebay.com/"));
    QVERIFY(r.complete);
    QCOMPARE(r.status, status);
    QCOMPARE(r.body.isEmpty(), emptyBody);
    // Only the probe changes.
    QCOMPARE(client.Fetch(QStringLiteral("http://listings.ebay.com/")).status, 200);
}

void tst_SiteSim::requestLogKeepsTheOrder() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    const QList<Node> subs = Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3);
    const QStringList urls{QStringLiteral("http://www.ebay.com/"), subs[3].url, PageUrl(subs[3].url, 2),
                           QStringLiteral("http://listings.ebay.co.uk/"), subs[0].url};
    Client absolute(sim.port());
    Client origin(sim.port());
    QVERIFY(absolute.Connected() && origin.Connected());
    for (qsizetype i = 0; i < urls.size(); ++i) {
        Client& c = i % 2 ? origin : absolute;
        c.Send(i % 2 ? Client::OriginRequest(urls[i]) : Client::AbsoluteRequest(urls[i]));
        QVERIFY(c.Read().complete);
    }
    QCOMPARE(sim.requestLog(), urls);
}

void tst_SiteSim::latencyKeepsPipelinedAnswersInOrder() {
    SiteSim sim({QStringLiteral("--latency"), QStringLiteral("5")});
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    QString sub;
    for (const Node& node : Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3))
        if (sub.isEmpty() && MarkerCount(client.Fetch(node.url).body) >= 3)
            sub = node.url;
    QVERIFY(!sub.isEmpty());
    QByteArray requests;
    for (int page = 1; page <= 3; ++page)
        requests += Client::AbsoluteRequest(PageUrl(sub, page));
    client.Send(requests);
    for (int page = 1; page <= 3; ++page) {
        const Response r = client.Read();
        QVERIFY(r.complete);
        QVERIFY(r.body.contains("<b>Page " + QByteArray::number(page) + "</b>"));
    }
}

void tst_SiteSim::servesQtNetworkThroughItsProxy() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    const QString sub = Nodes(sim.catalogue(QStringLiteral("ebay.com")), 3).first().url;
    Client raw(sim.port());
    QVERIFY(raw.Connected());
    const QByteArray expected = raw.Fetch(sub).body;

    QNetworkAccessManager manager;
    manager.setProxy(QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), sim.port()));
    for (const QString& url : {QStringLiteral("http://www.ebay.com/"), sub, PageUrl(sub, 2)}) {
        std::unique_ptr<QNetworkReply> reply(manager.get(QNetworkRequest(QUrl(url))));
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        QVERIFY(finished.wait(20000));
        QCOMPARE(reply->error(), QNetworkReply::NoError);
        QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
        const QByteArray body = reply->readAll();
        if (url == sub)
            QCOMPARE(body, expected);
    }
    QCOMPARE(sim.requestLog().mid(1),
             (QStringList{QStringLiteral("http://www.ebay.com/"), sub, PageUrl(sub, 2)}));
}

void tst_SiteSim::terminateEndsCleanly() {
    SiteSim sim;
    QVERIFY(sim.isRunning());
    Client client(sim.port());
    QVERIFY(client.Connected());
    QVERIFY(client.Fetch(QStringLiteral("http://www.ebay.com/")).complete);
    sim.process().terminate();
    QVERIFY(sim.process().waitForFinished(30000));
    QCOMPARE(sim.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(sim.process().exitCode(), 0);
}

QTEST_GUILESS_MAIN(tst_SiteSim)
#include "tst_SiteSim.moc"
