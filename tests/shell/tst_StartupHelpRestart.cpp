#include "harvest/modMain.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "results/frmSummary.h"
#include "shell/NewSearch.h"
#include "shell/frmHelp.h"
#include "shell/frmMain.h"
#include "shell/frmWarning.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <QTimer>
#include <memory>

namespace {

// Stands in for the main window: loaded on the first pass of the way to it, shown on every pass.
struct MainWindowStandIn {
    std::unique_ptr<QWidget> window;
    int loads = 0;
    int passes = 0;
    std::function<void()> WayToMain() {
        return [this] {
            ++passes;
            if (!window) {
                window = std::make_unique<QWidget>();
                ++loads;
            }
            window->show();
        };
    }
};

struct SeenHelp {
    bool opened = false;
    QString source;
    QString text;
    QWidget* owner = nullptr;
    QPoint centreOffset;
    QList<QSize> iconSizes;
};

// Looks at the help window from inside its modal loop and closes it with its own button.
void CloseHelpWhenShown(SeenHelp& seen) {
    QTimer::singleShot(0, [&seen] {
        auto* help = qobject_cast<frmHelp*>(QApplication::activeModalWidget());
        if (!help)
            return;
        seen.opened = true;
        auto* browser = help->findChild<QTextBrowser*>(QStringLiteral("webHelp"));
        seen.source = browser->source().toLocalFile();
        seen.text = browser->toPlainText();
        seen.owner = help->parentWidget();
        seen.iconSizes = help->windowIcon().availableSizes();
        if (seen.owner)
            seen.centreOffset = help->frameGeometry().center() - seen.owner->frameGeometry().center();
        QTest::mouseClick(help->findChild<QPushButton*>(QStringLiteral("cmdClose")), Qt::LeftButton);
    });
}

} // namespace

class tst_StartupHelpRestart : public QObject {
    Q_OBJECT

    QStringList m_started;
    int m_ends = 0;
    QTemporaryDir m_folder;

private Q_SLOTS:
    void init() {
        ResetHooks();
        MessageBox::Reset();
        MessageBox::SetAnswersSupplied(true);
        ResetProcessControl();
        m_started.clear();
        m_ends = 0;
        ProcessControl().StartDetached = [this](const QString& program) {
            m_started << program;
            return true;
        };
        ProcessControl().EndProcess = [this] { ++m_ends; };
        SetProgramFolder(m_folder.path());
        HarvestState.KeywordTable.Reset();
        HarvestState.KeywordsFound = 0;
    }
    void cleanup() {
        SetProgramFolder(QString());
        QFile::remove(m_folder.filePath(QStringLiteral("Marquill")));
        QFile::remove(m_folder.filePath(QStringLiteral("Marquillb")));
        QFile::remove(m_folder.filePath(QStringLiteral("helpfile.htm")));
        QFile::remove(m_folder.filePath(QStringLiteral("started.mark")));
    }

    void buttonLeadsToTheMainWindowOnce() {
        MainWindowStandIn main;
        frmWarning warning(main.WayToMain());
        warning.show();
        QVERIFY(!main.window);
        QTest::mouseClick(warning.findChild<QPushButton*>(QStringLiteral("ARButton1")), Qt::LeftButton);
        QCOMPARE(main.loads, 1);
        QCOMPARE(main.passes, 2);
        QVERIFY(main.window->isVisible());
        QVERIFY(!warning.isVisible());
    }

    void closeBoxLeadsToTheMainWindowToo() {
        MainWindowStandIn main;
        frmWarning warning(main.WayToMain());
        warning.show();
        QVERIFY(warning.close());
        QCOMPARE(main.loads, 1);
        QVERIFY(main.window->isVisible());
        QVERIFY(!warning.isVisible());
    }

    void startupWindowTellsHowToWork() {
        MainWindowStandIn main;
        frmWarning warning(main.WayToMain());
        QCOMPARE(warning.size(), QSize(450, 364));
        QCOMPARE(warning.windowTitle(), QStringLiteral("Marquill"));
        QCOMPARE(warning.findChild<QLabel*>(QStringLiteral("Label17"))->text(),
                 QStringLiteral("1. Select ebay.com or ebay.co.uk."));
        QCOMPARE(warning.findChild<QLabel*>(QStringLiteral("Label20"))->text(),
                 QStringLiteral("4. Click on Get Keywords button."));
        QCOMPARE(warning.findChild<QLabel*>(QStringLiteral("Label17"))->geometry(), QRect(36, 172, 333, 21));
        auto* button = warning.findChild<QPushButton*>(QStringLiteral("ARButton1"));
        QCOMPARE(button->text(), QStringLiteral("Go to Marquill"));
        QCOMPARE(button->geometry(), QRect(232, 312, 169, 33));
        QVERIFY(warning.windowFlags() & Qt::WindowCloseButtonHint);
        QVERIFY(!(warning.windowFlags() & Qt::WindowMinimizeButtonHint));
        QCOMPARE(warning.windowIcon().availableSizes(),
                 (QList<QSize>{{16, 16}, {32, 32}, {48, 48}, {256, 256}}));
    }

    void helpOpensOverTheSummaryAndReturnsToIt() {
        QFile file(m_folder.filePath(QStringLiteral("helpfile.htm")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("<html><body><h1>How to search</h1></body></html>");
        file.close();
        QWidget owner;
        owner.setGeometry(90, 70, 640, 480);
        owner.show();
        frmSummary summary(&owner);
        summary.show();
        QVERIFY((summary.frameGeometry().center() - owner.frameGeometry().center()).manhattanLength() <= 1);
        SeenHelp seen;
        CloseHelpWhenShown(seen);
        QTest::mouseClick(summary.findChild<QPushButton*>(QStringLiteral("cmdHelp")), Qt::LeftButton);
        QVERIFY(seen.opened);
        QCOMPARE(seen.owner, &summary);
        QCOMPARE(seen.iconSizes, summary.windowIcon().availableSizes());
        QCOMPARE(seen.iconSizes.size(), 4);
        QCOMPARE(seen.source, m_folder.filePath(QStringLiteral("helpfile.htm")));
        QVERIFY(seen.text.contains(QStringLiteral("How to search")));
        QVERIFY2(seen.centreOffset.manhattanLength() <= 1, "the help window opens centred on the summary");
        QCOMPARE(QApplication::activeModalWidget(), &summary);
        QVERIFY(summary.isVisible());
    }

    void helpOpensOverTheMainWindow() {
        QVERIFY(QFile::copy(QStringLiteral(MARQUILL_DATA_DIR "/helpfile.htm"),
                            m_folder.filePath(QStringLiteral("helpfile.htm"))));
        frmMain window;
        window.show();
        SeenHelp seen;
        CloseHelpWhenShown(seen);
        QTest::mouseClick(window.findChild<QPushButton*>(QStringLiteral("cmdHelp")), Qt::LeftButton);
        QVERIFY(seen.opened);
        QCOMPARE(seen.owner, &window);
        QCOMPARE(window.windowIcon().availableSizes(), seen.iconSizes);
        QVERIFY(seen.text.contains(QStringLiteral("Refreshing the categories")));
        QCOMPARE(QApplication::activeModalWidget(), nullptr);
        QFile::remove(m_folder.filePath(QStringLiteral("aeurl.xml")));
    }

    void helpWindowWithoutItsFileStillOpens() {
        QWidget owner;
        owner.show();
        SeenHelp seen;
        CloseHelpWhenShown(seen);
        ShowHelp(&owner);
        QVERIFY(seen.opened);
        QCOMPARE(seen.owner, &owner);
        QVERIFY(seen.text.trimmed().isEmpty());
    }

    void newSearchTargetIsTheOtherName_data() {
        QTest::addColumn<QString>("running");
        QTest::addColumn<QString>("target");
        QTest::newRow("Marquill") << QStringLiteral("Marquill") << QStringLiteral("/opt/m/Marquillb");
        QTest::newRow("Marquillb") << QStringLiteral("Marquillb") << QStringLiteral("/opt/m/Marquill");
        QTest::newRow("capitals differ") << QStringLiteral("marquill") << QStringLiteral("/opt/m/Marquill");
        QTest::newRow("third name") << QStringLiteral("Keywords") << QStringLiteral("/opt/m/Marquill");
    }
    void newSearchTargetIsTheOtherName() {
        QFETCH(QString, running);
        QFETCH(QString, target);
        QCOMPARE(NewSearchTarget(QStringLiteral("/opt/m"), running), target + ExecutableSuffix());
    }

    void runningNameIsThisProgramsName() {
        QCOMPARE(RunningProgramName(), QStringLiteral("tst_StartupHelpRestart"));
    }

    void newSearchStartsTheOtherCopyAndEndsThisOne() {
        QFile other(m_folder.filePath(QStringLiteral("Marquillb") + ExecutableSuffix()));
        QVERIFY(other.open(QIODevice::WriteOnly));
        other.close();
        ProcessControl().RunningName = [] { return QStringLiteral("Marquill"); };
        frmSummary summary(nullptr);
        summary.show();
        QTest::mouseClick(summary.findChild<QPushButton*>(QStringLiteral("ARButton2")), Qt::LeftButton);
        QCOMPARE(m_started, QStringList{other.fileName()});
        QCOMPARE(m_ends, 1);
        QVERIFY(!summary.isVisible());
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
    }

    void missingProgramFileIsToldAndTheSummaryStays() {
        ProcessControl().RunningName = [] { return QStringLiteral("Marquillb"); };
        frmSummary summary(nullptr);
        summary.show();
        QTest::mouseClick(summary.findChild<QPushButton*>(QStringLiteral("ARButton2")), Qt::LeftButton);
        QVERIFY(m_started.isEmpty());
        QCOMPARE(m_ends, 0);
        QVERIFY(summary.isVisible());
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        const QString target = m_folder.filePath(QStringLiteral("Marquill") + ExecutableSuffix());
        QCOMPARE(MessageBox::ShownBoxes()[0].text,
                 QStringLiteral("Cannot start ") + QDir::toNativeSeparators(target));
        QCOMPARE(MessageBox::ShownBoxes()[0].style, 16);
    }

    void programThatWillNotStartIsToldToo() {
        QFile other(m_folder.filePath(QStringLiteral("Marquill") + ExecutableSuffix()));
        QVERIFY(other.open(QIODevice::WriteOnly));
        other.close();
        ProcessControl().RunningName = [] { return QStringLiteral("marquill"); };
        ProcessControl().StartDetached = [this](const QString& program) {
            m_started << program;
            return false;
        };
        frmSummary summary(nullptr);
        summary.show();
        QTest::mouseClick(summary.findChild<QPushButton*>(QStringLiteral("ARButton2")), Qt::LeftButton);
        QCOMPARE(m_started.size(), 1);
        QCOMPARE(m_ends, 0);
        QVERIFY(summary.isVisible());
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        QVERIFY(MessageBox::ShownBoxes()[0].text.startsWith(QStringLiteral("Cannot start ")));
    }

    void realStartRunsTheOtherProgramFile() {
        // A stand-in for the other copy that leaves a mark when it runs.
        const QString target = m_folder.filePath(QStringLiteral("Marquillb") + ExecutableSuffix());
        const QString mark = m_folder.filePath(QStringLiteral("started.mark"));
        QFile script(target);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\ntouch \"" + mark.toUtf8() + "\"\n");
        script.close();
        QVERIFY(script.setPermissions(script.permissions() | QFileDevice::ExeOwner));
        ResetProcessControl();
        ProcessControl().RunningName = [] { return QStringLiteral("Marquill"); };
        ProcessControl().EndProcess = [this] { ++m_ends; };
        QWidget owner;
        QVERIFY(StartNewSearch(&owner));
        QTRY_VERIFY(QFile::exists(mark));
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
    }

    void exitEndsTheProcessWithoutAQuestion() {
        frmSummary summary(nullptr);
        summary.show();
        QTest::mouseClick(summary.findChild<QPushButton*>(QStringLiteral("cmdExit")), Qt::LeftButton);
        QCOMPARE(m_ends, 1);
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        QVERIFY(m_started.isEmpty());
    }
};

QTEST_MAIN(tst_StartupHelpRestart)
#include "tst_StartupHelpRestart.moc"
