// The main window against the sample site: a real search over HTTP through the proxy.
#include "SiteSim.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "harvest/HttpPageSource.h"
#include "harvest/modMain.h"
#include "platform/ARButton.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "platform/ScreenPointer.h"
#include "results/frmSummary.h"
#include "shell/frmMain.h"

#include <QAbstractButton>
#include <QAction>
#include <QComboBox>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QNetworkProxy>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

namespace {

QString Cdata(const QString& text) {
    return QStringLiteral("<![CDATA[") + text + QStringLiteral("]]>");
}

// The category file for the site's tree as the sample site prints it ("FullPath<TAB>URL").
QByteArray CategoryFileOf(const QString& site, const QStringList& lines) {
    QString xml = QStringLiteral("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<Categories>\n");
    bool open = false;
    for (const QString& line : lines) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        const QStringList path = fields.value(0).split(QLatin1Char('~'));
        if (path.size() == 2) {
            if (open)
                xml += QStringLiteral("</") + site + QStringLiteral(">\n");
            xml += QStringLiteral("<") + site + QStringLiteral("><MainItem>") + Cdata(path[1]) +
                   QStringLiteral("</MainItem><MainURL>") + Cdata(fields.value(1)) +
                   QStringLiteral("</MainURL>\n");
            open = true;
        } else if (path.size() == 3 && open) {
            xml += QStringLiteral("<SubItem>") + Cdata(path[2]) + QStringLiteral("<SubURL>") +
                   Cdata(fields.value(1)) + QStringLiteral("</SubURL></SubItem>\n");
        }
    }
    if (open)
        xml += QStringLiteral("</") + site + QStringLiteral(">\n");
    xml += QStringLiteral("</Categories>\n");
    return xml.toLatin1();
}

} // namespace

class tst_frmMainSite : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refreshShowsItsStateAndRefillsTheTree_data();
    void refreshShowsItsStateAndRefillsTheTree();

    void searchOnASubCategoryEndsInTheSummary() {
        SiteSim site;
        QVERIFY(site.isRunning());
        const QStringList lines = site.catalogue(USSiteLabel);
        QVERIFY(lines.size() > 3);
        QTemporaryDir folder;
        QFile file(folder.filePath(QStringLiteral("aeurl.xml")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(CategoryFileOf(USSiteLabel, lines));
        file.close();
        QFile exclusions(folder.filePath(QStringLiteral("exclude.dat")));
        QVERIFY(exclusions.open(QIODevice::WriteOnly));
        exclusions.close();
        SetProgramFolder(folder.path());
        HttpPageSource::SetProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));
        MessageBox::Reset();
        MessageBox::SetAnswersSupplied(true);

        int rows = -1;
        QString shownPath;
        QStringList shownLines;
        frmMain::SetShowSummary([&](QWidget* owner) {
            shownPath = HarvestState.SelectedPath;
            // The real summary, loaded over the window; its load is what fills the list.
            frmSummary summary(owner);
            auto* list = summary.findChild<QTreeWidget*>(QStringLiteral("lvwResults"));
            rows = list->topLevelItemCount();
            for (int row = 0; row < rows; ++row)
                shownLines << list->topLevelItem(row)->text(0) + u',' + list->topLevelItem(row)->text(1);
        });

        {
            frmMain window;
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
            // The first sub-category of the first main category.
            const QStringList sub = lines[2].split(QLatin1Char('\t'));
            const CategoryNode* node = CurrentCategoryTree()->FindByPath(sub[0]);
            QVERIFY2(node, qPrintable(sub[0]));
            QCOMPARE(node->Key(), sub[1]);
            auto* tree = window.findChild<QTreeWidget*>(QStringLiteral("treCategories"));
            tree->setCurrentItem(window.ItemOfNode(node));
            window.findChild<QAbstractButton*>(QStringLiteral("cmdGetKeywords"))->click();

            QVERIFY(MessageBox::ShownBoxes().isEmpty());
            QCOMPARE(shownPath, sub[0]);
            QVERIFY(HarvestState.AuctionsScanned > 0);
            QVERIFY(HarvestState.KeywordsFound > 0);
            QVERIFY(rows > 0);
            QVERIFY(window.findChild<QLabel*>(QStringLiteral("lblMainTotal"))
                        ->text()
                        .startsWith(QStringLiteral("Keywords Found")));
            QCOMPARE(ScreenPointer::Current(), 0);
            const QStringList log = site.requestLog();
            QCOMPARE(log.value(0), ProbeUrl);
            // The listing pages asked for are the node's category.
            const QRegularExpression category(QStringLiteral("QQsacatZ\\d+"));
            const QString id = category.match(sub[1]).captured(0);
            QVERIFY(!id.isEmpty());
            QVERIFY(log.size() > 1);
            for (const QString& url : log.mid(1))
                QVERIFY2(url.contains(id), qPrintable(url));
            QVERIFY(window.findChild<QAbstractButton*>(QStringLiteral("cmdGetKeywords"))->isEnabled());

            // The command-line tool, run on the same node of the same site, gives the same rows
            // in the same order.
            QProcess cli;
            cli.start(QStringLiteral(MARQUILL_CLI),
                      {QStringLiteral("search"), QStringLiteral("--site"), USSiteLabel,
                       QStringLiteral("--node"), sub[0], QStringLiteral("--data"), folder.path(),
                       QStringLiteral("--proxy"), site.proxyUrl().toString(), QStringLiteral("--format"),
                       QStringLiteral("json")});
            QVERIFY(cli.waitForFinished(60000));
            QCOMPARE(cli.exitCode(), 0);
            QStringList cliLines;
            for (const QJsonValue word :
                 QJsonDocument::fromJson(cli.readAllStandardOutput())["words"].toArray())
                cliLines << word["word"].toString() + u',' + QString::number(word["count"].toInteger());
            QCOMPARE(cliLines, shownLines);
        }
        HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::NoProxy));
        frmMain::ResetSeams();
    }
};

void tst_frmMainSite::refreshShowsItsStateAndRefillsTheTree_data() {
    QTest::addColumn<bool>("stop");
    QTest::addColumn<bool>("close");
    QTest::addColumn<bool>("api");
    QTest::newRow("to its end") << false << false << false;
    QTest::newRow("stopped") << true << false << false;
    QTest::newRow("window closed") << false << true << false;
    QTest::newRow("keys given: through the API") << false << false << true;
}

void tst_frmMainSite::refreshShowsItsStateAndRefillsTheTree() {
    QFETCH(bool, stop);
    QFETCH(bool, close);
    QFETCH(bool, api);
    SiteSim site;
    QVERIFY(site.isRunning());
    const QStringList variables{"MARQUILL_EBAY_API", "MARQUILL_EBAY_CLIENT_ID",
                                "MARQUILL_EBAY_CLIENT_SECRET"};
    const QStringList values{site.proxyUrl().toString(), "sample-id", "sample-secret"};
    for (int i = 0; api && i < 3; ++i)
        qputenv(variables[i].toLatin1(), values[i].toUtf8());
    const QStringList lines = site.catalogue(USSiteLabel);
    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("aeurl.xml")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    // One main category of the sample site to start from; the refresh replaces it.
    file.write(CategoryFileOf(USSiteLabel, lines.mid(0, 3)));
    file.close();
    SetProgramFolder(folder.path());
    HttpPageSource::SetProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));
    MessageBox::Reset();
    MessageBox::SetAnswersSupplied(true);
    {
        frmMain window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto* tree = window.findChild<QTreeWidget*>(QStringLiteral("treCategories"));
        auto* limits = window.findChild<QComboBox*>(QStringLiteral("cboMaxAuctions"));
        QCOMPARE(tree->topLevelItem(0)->childCount(), 1);
        limits->setCurrentIndex(0);

        const std::function<void()> plainYield = Hooks().Yield;
        int yields = 0;
        bool seen = false;
        Hooks().Yield = [&] {
            if (++yields == 30) {
                seen = true;
                for (const char* name : {"cboSite", "cmdGetKeywords", "cmdRefresh"})
                    QVERIFY2(!window.findChild<QWidget*>(QString::fromLatin1(name))->isEnabled(), name);
                for (const char* name : {"cboMaxAuctions", "cmdHelp", "cmdExit", "treCategories"})
                    QVERIFY2(window.findChild<QWidget*>(QString::fromLatin1(name))->isEnabled(), name);
                QVERIFY(window.findChild<QAction*>(QStringLiteral("mnuExit"))->isEnabled());
                QVERIFY(window.findChild<QWidget*>(QStringLiteral("fraFeedBack"))->isVisible());
                QVERIFY(
                    window.findChild<QWidget*>(QStringLiteral("txtlblRefreshingCategories"))->isVisible());
                QVERIFY(window.findChild<QWidget*>(QStringLiteral("txtlblGettingKeywords"))->isVisible());
                QCOMPARE(window.findChild<ARButton*>(QStringLiteral("cmdStopSearch"))->Caption(),
                         QStringLiteral("Stop Refresh"));
                if (stop) {
                    MessageBox::SetNextAnswer(MessageBox::AnswerYes);
                    window.findChild<QAbstractButton*>(QStringLiteral("cmdStopSearch"))->click();
                    QCOMPARE(limits->currentText(), QStringLiteral("2,000"));
                    QVERIFY(!window.findChild<QWidget*>(QStringLiteral("fraFeedBack"))->isVisible());
                }
                if (close)
                    window.close();
            }
            plainYield();
        };
        window.findChild<QAbstractButton*>(QStringLiteral("cmdRefresh"))->click();
        Hooks().Yield = plainYield;
        QVERIFY(seen);
        if (close) {
            // The crawl stopped without a question and the window went once it had unwound.
            QCOMPARE(HarvestState.StopRequested, FlagTrue);
            QVERIFY(!window.isVisible());
            // No question was asked; a crawl stopped before its first find still says the former
            // categories are kept, as any stopped crawl does.
            for (const MessageBox::Shown& box : MessageBox::ShownBoxes())
                QVERIFY2(box.style != 20, qPrintable(box.text));
            HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::NoProxy));
            return;
        }

        // Back to idle, the stop button still saying what it last served.
        for (const char* name : {"cboSite", "cmdGetKeywords", "cmdRefresh", "cboMaxAuctions"})
            QVERIFY2(window.findChild<QWidget*>(QString::fromLatin1(name))->isEnabled(), name);
        QVERIFY(!window.findChild<QWidget*>(QStringLiteral("fraFeedBack"))->isVisible());
        QCOMPARE(window.findChild<ARButton*>(QStringLiteral("cmdStopSearch"))->Caption(),
                 QStringLiteral("Stop Refresh"));
        int mains = 0;
        for (const QString& line : lines)
            mains += line.count(QLatin1Char('~')) == 1 ? 1 : 0;
        const int shown = tree->topLevelItem(0)->childCount();
        if (stop) {
            QVERIFY(shown >= 1);
            QVERIFY(shown < mains);
        } else {
            QCOMPARE(shown, mains);
        }
        QCOMPARE(ScreenPointer::Current(), 0);
        const QString firstKey = CurrentCategoryTree()->Root()->Child()->Key();
        QCOMPARE(firstKey.startsWith("https://api.ebay.com/buy/browse/v1/item_summary/search?"), api);
    }
    for (const QString& variable : variables)
        qunsetenv(variable.toLatin1());
    HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::NoProxy));
}

QTEST_MAIN(tst_frmMainSite)
#include "tst_frmMainSite.moc"
