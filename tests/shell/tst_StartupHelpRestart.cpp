#include "harvest/modMain.h"
#include "platform/ARButton.h"
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
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <QTimer>
#include <memory>

class tst_StartupHelpRestart : public QObject {
    Q_OBJECT

    QStringList m_started;
    int m_ends = 0;
    QTemporaryDir m_folder;

    static void Click(QWidget& window, const char* button) {
        QTest::mouseClick(window.findChild<QPushButton*>(QLatin1String(button)), Qt::LeftButton);
    }
    void MakeFile(const QString& name, const QByteArray& bytes = {}) {
        QFile file(m_folder.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }

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
            return !program.endsWith(QLatin1String("Marquill") + ExecutableSuffix());
        };
        ProcessControl().EndProcess = [this] { ++m_ends; };
        SetProgramFolder(m_folder.path());
    }
    void cleanup() {
        SetProgramFolder(QString());
        for (const QString& name : QDir(m_folder.path()).entryList(QDir::Files))
            QFile::remove(m_folder.filePath(name));
    }

    void startupWindowLeadsToTheMainWindowOnce_data() {
        QTest::addColumn<bool>("button");
        QTest::newRow("button") << true;
        QTest::newRow("close box") << false;
    }
    void startupWindowLeadsToTheMainWindowOnce() {
        QFETCH(bool, button);
        std::unique_ptr<QWidget> main;
        int loads = 0;
        frmWarning warning([&] {
            if (!main) {
                main = std::make_unique<QWidget>();
                ++loads;
            }
            main->show();
        });
        QVERIFY(warning.windowFlags() & Qt::WindowCloseButtonHint);
        QVERIFY(!(warning.windowFlags() & Qt::WindowMinimizeButtonHint));
        QCOMPARE(warning.windowIcon().availableSizes(),
                 (QList<QSize>{{16, 16}, {32, 32}, {48, 48}, {256, 256}}));
        warning.show();
        QVERIFY(!main);
        if (button)
            Click(warning, "ARButton1");
        else
            QVERIFY(warning.close());
        QCOMPARE(loads, 1);
        QVERIFY(main->isVisible() && !warning.isVisible());
    }

    void helpOpensCentredOverItsOwnerAndReturnsToIt_data() {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QByteArray>("file"); // the help file beside the program; empty for none
        QTest::addColumn<QString>("text");
        QTest::newRow("summary") << "summary"
                                 << QByteArray("<html><body><h1>How to search</h1></body></html>")
                                 << "How to search";
        QTest::newRow("main window") << "main" << QByteArray("shipped") << "Refreshing the categories";
        QTest::newRow("no file") << "other" << QByteArray() << "";
    }
    void helpOpensCentredOverItsOwnerAndReturnsToIt() {
        QFETCH(QString, from);
        QFETCH(QByteArray, file);
        QFETCH(QString, text);
        if (file == "shipped")
            QVERIFY(QFile::copy(QStringLiteral(MARQUILL_DATA_DIR "/helpfile.htm"),
                                m_folder.filePath(QStringLiteral("helpfile.htm"))));
        else if (!file.isEmpty())
            MakeFile(QStringLiteral("helpfile.htm"), file);
        QWidget top;
        top.setGeometry(90, 70, 640, 480);
        top.show();
        std::unique_ptr<QWidget> owner;
        if (from == "summary")
            owner = std::make_unique<frmSummary>(&top);
        else if (from == "main")
            owner = std::make_unique<frmMain>();
        if (owner)
            owner->show();
        QWidget* expectedOwner = owner ? owner.get() : &top;
        QWidget* modalBefore = QApplication::activeModalWidget();
        // Looked at from inside its modal loop, and closed with its own button.
        QWidget* helpOwner = nullptr;
        QString seen;
        int iconSizes = 0;
        QPoint offCentre;
        QTimer::singleShot(0, [&] {
            auto* help = qobject_cast<frmHelp*>(QApplication::activeModalWidget());
            auto* browser = help->findChild<QTextBrowser*>(QStringLiteral("webHelp"));
            seen = browser->source().toLocalFile() + '|' + browser->toPlainText().trimmed();
            helpOwner = help->parentWidget();
            iconSizes = int(help->windowIcon().availableSizes().size()) +
                        (help->findChild<ARButton*>(QStringLiteral("cmdClose"))->BackColor() ==
                         QPalette().color(QPalette::Button));
            offCentre = help->frameGeometry().center() - expectedOwner->frameGeometry().center();
            Click(*help, "cmdClose");
        });
        if (owner)
            Click(*owner, "cmdHelp");
        else
            ShowHelp(&top);
        QVERIFY2(seen.startsWith(m_folder.filePath(QStringLiteral("helpfile.htm")) + '|') &&
                     (text.isEmpty() ? seen.endsWith('|') : seen.contains(text)),
                 qPrintable(seen));
        QCOMPARE(helpOwner, expectedOwner);
        QCOMPARE(iconSizes, 4 + 1); // and the close button in the system's button colour
        QVERIFY(offCentre.manhattanLength() <= 1);
        QCOMPARE(QApplication::activeModalWidget(), modalBefore);
    }

    void newSearchTargetIsTheOtherName() {
        QCOMPARE(RunningProgramName(), QStringLiteral("tst_StartupHelpRestart"));
        for (const auto& [running, target] : QList<QPair<QString, QString>>{{"Marquill", "Marquillb"},
                                                                            {"Marquillb", "Marquill"},
                                                                            {"marquill", "Marquill"},
                                                                            {"Keywords", "Marquill"}})
            QCOMPARE(NewSearchTarget(QStringLiteral("/opt/m"), running),
                     "/opt/m/" + target + ExecutableSuffix());
    }

    void newSearchStartsTheOtherCopyAndEndsThisOne_data() {
        QTest::addColumn<QString>("running");
        QTest::addColumn<bool>("present"); // the other copy's file
        QTest::addColumn<int>("started");
        QTest::addColumn<bool>("ends");
        QTest::newRow("started") << "Marquill" << true << 1 << true;
        QTest::newRow("missing file") << "Marquillb" << false << 0 << false;
        QTest::newRow("will not start") << "marquill" << true << 1 << false;
    }
    void newSearchStartsTheOtherCopyAndEndsThisOne() {
        QFETCH(QString, running);
        QFETCH(bool, present);
        QFETCH(int, started);
        QFETCH(bool, ends);
        const QString target = NewSearchTarget(m_folder.path(), running);
        if (present)
            MakeFile(QFileInfo(target).fileName());
        ProcessControl().RunningName = [running] { return running; };
        frmSummary summary(nullptr);
        summary.show();
        Click(summary, "ARButton2");
        QCOMPARE(m_started, QStringList(started, target));
        QCOMPARE(m_ends, int(ends));
        QCOMPARE(summary.isVisible(), !ends);
        QCOMPARE(MessageBox::ShownBoxes().size(), int(!ends));
        for (const MessageBox::Shown& box : MessageBox::ShownBoxes())
            QCOMPARE(box.text + '|' + QString::number(box.style),
                     "Cannot start " + QDir::toNativeSeparators(target) + "|16");
    }

    void realStartRunsTheOtherProgramFile() {
        // A stand-in for the other copy that leaves a mark when it runs.
        const QString mark = m_folder.filePath(QStringLiteral("started.mark"));
        MakeFile(QStringLiteral("Marquillb") + ExecutableSuffix(),
                 "#!/bin/sh\ntouch \"" + mark.toUtf8() + "\"\n");
        QFile script(m_folder.filePath(QStringLiteral("Marquillb") + ExecutableSuffix()));
        QVERIFY(script.setPermissions(script.permissions() | QFileDevice::ExeOwner));
        ResetProcessControl();
        ProcessControl().RunningName = [] { return QStringLiteral("Marquill"); };
        QWidget owner;
        QVERIFY(StartNewSearch(&owner));
        QTRY_VERIFY(QFile::exists(mark));
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
    }

    void exitEndsTheProcessWithoutAQuestion() {
        frmSummary summary(nullptr);
        summary.show();
        Click(summary, "cmdExit");
        QCOMPARE(m_ends, 1);
        QVERIFY(MessageBox::ShownBoxes().isEmpty() && m_started.isEmpty());
    }
};

QTEST_MAIN(tst_StartupHelpRestart)
#include "tst_StartupHelpRestart.moc"
