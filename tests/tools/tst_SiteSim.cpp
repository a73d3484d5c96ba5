#include "SiteSim.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <memory>

// The sample site's contract with the program: the pages a refresh and a search ask for, the
// fault modes and the request log. How the program reads those pages is tested with the program.
namespace {

struct Reply {
    int status = 0;
    QByteArray body;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    bool headers = false;
};

// The site reached as an HTTP proxy, as the program reaches it.
struct Site {
    SiteSim sim;
    QNetworkAccessManager manager;
    explicit Site(const QStringList& arguments = {}) : sim(arguments) {
        manager.setProxy(QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), sim.port()));
    }
    Reply Get(const QString& url, int timeoutMs = 20000) {
        QNetworkRequest request{QUrl(url)};
        request.setTransferTimeout(timeoutMs);
        std::unique_ptr<QNetworkReply> reply(manager.get(request));
        Reply r;
        QObject::connect(reply.get(), &QNetworkReply::metaDataChanged, [&r] { r.headers = true; });
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        finished.wait(timeoutMs * 2); // a dripping page is read as far as it came
        return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                reply->isOpen() ? reply->readAll() : QByteArray(), reply->error(), r.headers};
    }
};

// Item ids of the title links to auctions; each record also has a picture link, which is no title.
QStringList AuctionIds(const QByteArray& page) {
    static const QRegularExpression link(
        QStringLiteral("<a href=\"http://cgi\\.[^\"]*QQitemZ(\\d+)[^\"]*\">(?!<img)"));
    QStringList ids;
    for (auto it = link.globalMatch(QString::fromLatin1(page)); it.hasNext();)
        ids.append(it.next().captured(1));
    return ids;
}

QString PageUrl(QString firstPage, int page) {
    return firstPage.insert(firstPage.indexOf(QLatin1String("QQsacat")),
                            QStringLiteral("QQlopgZ%1").arg(page));
}

const QString kSub =
    QStringLiteral("http://listings.ebay.com/Coins-Coins-US_W0QQsacatZ16002QQsorecordsperpageZ50");

} // namespace

class tst_SiteSim : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refreshAndSearchPagesFollowTheCatalogue_data();
    void refreshAndSearchPagesFollowTheCatalogue();
    void faultsHitOnlyTheirUrls_data();
    void faultsHitOnlyTheirUrls();
};

void tst_SiteSim::refreshAndSearchPagesFollowTheCatalogue_data() {
    QTest::addColumn<QString>("site");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("mains");
    QTest::newRow("us") << QStringLiteral("ebay.com") << QStringList{} << 12;
    QTest::newRow("uk") << QStringLiteral("ebay.co.uk") << QStringList{} << 12;
    QTest::newRow("generated") << QStringLiteral("ebay.com")
                               << QStringList{QStringLiteral("--mains"), QStringLiteral("3"),
                                              QStringLiteral("--subs"), QStringLiteral("40")}
                               << 3;
}

void tst_SiteSim::refreshAndSearchPagesFollowTheCatalogue() {
    QFETCH(QString, site);
    QFETCH(QStringList, arguments);
    QFETCH(int, mains);
    Site s(arguments);
    const QStringList lines = s.sim.catalogue(site);
    QStringList asked{QStringLiteral("http://listings.") + site + QLatin1Char('/')};
    const QString index = QString::fromLatin1(s.Get(asked.first()).body);
    QCOMPARE(index.count(QRegularExpression(QStringLiteral("(?i)>\\s*see all "))),
             mains + 1); // and the featured items
    static const QRegularExpression bold(QStringLiteral("<b><a href=\"([^\"]*)\">([^<]*)</a></b>"));
    for (const QString& line : lines.filter(QRegularExpression(QStringLiteral("^[^~]*~[^~]*\t")))) {
        const QString path = line.section(QLatin1Char('\t'), 0, 0);
        const QString url = line.section(QLatin1Char('\t'), 1);
        const QString name = path.section(QLatin1Char('~'), 1);
        QCOMPARE(index.count(QStringLiteral("<td><a href=\"%1\">See all %2 categories...</a></td>")
                                 .arg(url, name.toHtmlEscaped())),
                 1);
        // A refresh takes the bold links on the listing host that are not "Browse ..." links.
        QStringList found;
        asked.append(url);
        for (auto it = bold.globalMatch(QString::fromLatin1(s.Get(url).body)); it.hasNext();) {
            const auto m = it.next();
            if (m.captured(1).startsWith(asked.first()) && !m.captured(2).startsWith(QLatin1String("Browse")))
                found.append(path + QLatin1Char('~') +
                             m.captured(2).replace(QLatin1String("&amp;"), QLatin1String("&")) +
                             QLatin1Char('\t') + m.captured(1) + QStringLiteral("QQsorecordsperpageZ50"));
        }
        QCOMPARE(found, lines.filter(path + QLatin1Char('~')));
    }
    // A search reads a sub-category page by page; the marker tells the page count.
    static const QRegularExpression found(
        QStringLiteral("<b>(\\d+)</b> items found.*<b>Page 1</b> of (\\d+)</td>"),
        QRegularExpression::DotMatchesEverythingOption);
    QString sub;
    QByteArray first;
    QRegularExpressionMatch m;
    for (qsizetype i = lines.size() - 1; m.captured(2).toInt() < 2 && i > 0; --i) {
        asked << (sub = lines[i].section(QLatin1Char('\t'), 1));
        m = found.match(QString::fromLatin1(first = s.Get(sub).body));
    }
    const int records = m.captured(1).toInt();
    const int pages = m.captured(2).toInt();
    QVERIFY2(records > 50 && pages == (records + 49) / 50, qPrintable(sub));
    const QByteArray last = s.Get(PageUrl(sub, pages)).body;
    QVERIFY(last.contains("<b>Page " + QByteArray::number(pages) + "</b> of "));
    const QStringList ids = AuctionIds(first) + AuctionIds(last);
    QCOMPARE(ids.size(), 50 + records - (pages - 1) * 50);
    QCOMPARE(QSet<QString>(ids.begin(), ids.end()).size(), ids.size());
    QVERIFY(AuctionIds(s.Get(PageUrl(sub, pages + 1)).body).isEmpty());
    asked << PageUrl(sub, pages) << PageUrl(sub, pages + 1);
    QCOMPARE(s.sim.requestLog(), asked);
}

void tst_SiteSim::faultsHitOnlyTheirUrls_data() {
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("whole");
    QTest::addColumn<int>("size"); // at least; 0 for none, -1 for any
    QTest::addColumn<bool>("html");
    QTest::newRow("500") << "--fault 500=QQsacatZ16001" << 500 << true << 1 << true;
    QTest::newRow("garbage") << "--fault garbage=QQsacatZ16001" << 200 << true << 1001 << false;
    QTest::newRow("huge") << "--fault huge=QQsacatZ16001" << 200 << true << 20 * 1024 * 1024 << true;
    QTest::newRow("reset") << "--fault reset=QQsacatZ16001" << 200 << false << -1 << false;
    QTest::newRow("stall") << "--fault stall=QQsacatZ16001" << 200 << false << 0 << false;
    QTest::newRow("drip") << "--fault drip=QQsacatZ16001 --drip-interval 5" << 200 << true << 20 << false;
    QTest::newRow("probe ok") << "--probe ok" << 200 << true << 1 << true;
    QTest::newRow("probe empty") << "--probe empty" << 200 << true << 0 << false;
    QTest::newRow("probe 500") << "--probe 500" << 500 << true << 1 << true;
}

void tst_SiteSim::faultsHitOnlyTheirUrls() {
    QFETCH(QString, arguments);
    QFETCH(int, status);
    QFETCH(bool, whole);
    QFETCH(int, size);
    QFETCH(bool, html);
    Site s(arguments.split(QLatin1Char(' ')));
    const QString url =
        arguments.startsWith(QLatin1String("--probe"))
            ? QStringLiteral("http://www.ebay.com/")
            : QStringLiteral("http://listings.ebay.com/Coins-Bullion_W0QQsacatZ16001QQsorecordsperpageZ50");
    const Reply r =
        s.Get(url, arguments.contains(QRegularExpression(QStringLiteral("stall|drip"))) ? 300 : 20000);
    QVERIFY(r.headers);
    QCOMPARE(r.status, status);
    QCOMPARE(r.error == QNetworkReply::NoError || r.error == QNetworkReply::InternalServerError, whole);
    QVERIFY(!whole || AuctionIds(r.body).isEmpty());
    QVERIFY2(size == 0 ? r.body.isEmpty() : r.body.size() >= size, QByteArray::number(r.body.size()));
    if (size >= 0)
        QCOMPARE(r.body.trimmed().endsWith("</html>"), html);
    // The server goes on, and other URLs are served as usual.
    QCOMPARE(AuctionIds(s.Get(kSub).body).size(), 50);
    QCOMPARE(s.sim.requestLog(), (QStringList{url, kSub}));
}

QTEST_GUILESS_MAIN(tst_SiteSim)
#include "tst_SiteSim.moc"
