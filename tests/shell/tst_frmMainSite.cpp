// The main window's refresh against the sample site, over HTTP through the proxy.
#include "CliRun.h"
#include "catalogue/CategoryCatalogue.h"
#include "harvest/HttpPageSource.h"
#include "harvest/modMain.h"
#include "platform/ARButton.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "platform/ScreenPointer.h"
#include "shell/frmMain.h"

#include <QAction>
#include <QComboBox>
#include <QNetworkProxy>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

class tst_frmMainSite : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refreshShowsItsStateAndRefillsTheTree_data() {
        QTest::addColumn<bool>("stop");
        QTest::addColumn<bool>("close");
        QTest::addColumn<bool>("api");
        QTest::newRow("to its end") << false << false << false;
        QTest::newRow("stopped") << true << false << false;
        QTest::newRow("window closed") << false << true << false;
        QTest::newRow("keys given: through the API") << false << false << true;
    }
    void refreshShowsItsStateAndRefillsTheTree() {
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
        // One main category of the sample site to start from; the refresh replaces it.
        writeCatalogue(folder.path(), USSiteLabel, lines.mid(1, 2));
        SetProgramFolder(folder.path());
        HttpPageSource::SetProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), site.port()));
        MessageBox::Reset();
        MessageBox::SetAnswersSupplied(true);
        frmMain window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto* tree = window.findChild<QTreeWidget*>(QStringLiteral("treCategories"));
        auto* limits = window.findChild<QComboBox*>(QStringLiteral("cboMaxAuctions"));
        auto enabled = [&window] {
            QStringList open;
            for (const char* name :
                 {"cboSite", "cmdGetKeywords", "cmdRefresh", "cboMaxAuctions", "cmdHelp", "cmdExit",
                  "treCategories", "fraFeedBack", "txtlblRefreshingCategories", "txtlblGettingKeywords"}) {
                const auto* w = window.findChild<QWidget*>(QLatin1String(name));
                open << QLatin1String(name) + (w->isEnabled() ? "+" : "-") + (w->isVisible() ? "" : "h");
            }
            return open.join(' ');
        };
        QCOMPARE(tree->topLevelItem(0)->childCount(), 1);
        limits->setCurrentIndex(0);
        const std::function<void()> plainYield = Hooks().Yield;
        int yields = 0;
        Hooks().Yield = [&] {
            if (++yields == 30) {
                QCOMPARE(enabled(),
                         QStringLiteral("cboSite- cmdGetKeywords- cmdRefresh- cboMaxAuctions+ cmdHelp+ "
                                        "cmdExit+ treCategories+ fraFeedBack+ txtlblRefreshingCategories+ "
                                        "txtlblGettingKeywords+"));
                QVERIFY(window.findChild<QAction*>(QStringLiteral("mnuExit"))->isEnabled());
                QCOMPARE(window.findChild<ARButton*>(QStringLiteral("cmdStopSearch"))->Caption(),
                         QStringLiteral("Stop Refresh"));
                if (stop) {
                    MessageBox::SetNextAnswer(MessageBox::AnswerYes);
                    window.findChild<ARButton*>(QStringLiteral("cmdStopSearch"))->click();
                    QCOMPARE(limits->currentText(), QStringLiteral("2,000"));
                }
                if (close)
                    window.close();
            }
            plainYield();
        };
        window.findChild<ARButton*>(QStringLiteral("cmdRefresh"))->click();
        Hooks().Yield = plainYield;
        for (const QString& variable : variables)
            qunsetenv(variable.toLatin1());
        HttpPageSource::SetProxy(QNetworkProxy(QNetworkProxy::NoProxy));
        QVERIFY(yields >= 30);
        // Closing stops the crawl without a question; the window goes once it has unwound.
        for (const MessageBox::Shown& box : MessageBox::ShownBoxes())
            QVERIFY2(!close || box.style != 20, qPrintable(box.text));
        QCOMPARE(HarvestState.StopRequested == FlagTrue, stop || close);
        QCOMPARE(window.isVisible(), !close);
        if (close)
            return;
        // Back to idle, the stop button still saying what it last served.
        QCOMPARE(enabled(),
                 QStringLiteral(
                     "cboSite+ cmdGetKeywords+ cmdRefresh+ cboMaxAuctions+ cmdHelp+ cmdExit+ "
                     "treCategories+ fraFeedBack+h txtlblRefreshingCategories+h txtlblGettingKeywords+h"));
        QCOMPARE(window.findChild<ARButton*>(QStringLiteral("cmdStopSearch"))->Caption(),
                 QStringLiteral("Stop Refresh"));
        const int mains = int(lines.filter(QRegularExpression(QStringLiteral("^[^~]*~[^~]*\t"))).size());
        const int shown = tree->topLevelItem(0)->childCount();
        QVERIFY2(stop ? shown >= 1 && shown < mains : shown == mains, qPrintable(QString::number(shown)));
        QCOMPARE(ScreenPointer::Current(), 0);
        const QString firstKey = CurrentCategoryTree()->Root()->Child()->Key();
        QCOMPARE(firstKey.startsWith("https://api.ebay.com/buy/browse/v1/item_summary/search?"), api);
    }
};

QTEST_MAIN(tst_frmMainSite)
#include "tst_frmMainSite.moc"
