#include "platform/ARButton.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "platform/ScreenPointer.h"
#include "platform/WorkAnimation.h"
#include "results/frmSummary.h"
#include "shell/frmHelp.h"
#include "shell/frmMain.h"
#include "shell/frmWarning.h"

#include <QApplication>
#include <QEnterEvent>
#include <QFile>
#include <QFontInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMovie>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

class tst_PlatformControls : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { MessageBox::Reset(); }
    void cleanup() {
        MessageBox::Reset();
        ScreenPointer::Set(ScreenPointer::Default);
    }

    void hoverButtonPaintsOnMouseColoursWhilePointerIsOver() {
        ARButton button;
        button.resize(80, 24);
        // Set as a form would, through the design-time property names.
        QVERIFY(button.setProperty("caption", QStringLiteral("Stop Search")));
        QVERIFY(button.setProperty("forecolor", QColor(0, 0, 0)));
        QVERIFY(button.setProperty("forecoloronmouse", QColor(200, 0, 0)));
        QVERIFY(button.setProperty("backcolor", QColor(240, 240, 233)));
        QVERIFY(button.setProperty("backcoloronmouse", QColor(10, 20, 30)));
        QVERIFY(button.setProperty("borderstyle", 0));
        QVERIFY(button.setProperty("style", 0));
        QCOMPARE(button.text(), QStringLiteral("Stop Search"));
        button.show();

        QSignalSpy entered(&button, &ARButton::PointerEnter);
        QSignalSpy left(&button, &ARButton::PointerLeave);
        const QPoint probe(2, 2); // a corner: background, not caption
        QCOMPARE(button.grab().toImage().pixelColor(probe), QColor(240, 240, 233));
        QCOMPARE(button.CurrentForeColor(), QColor(0, 0, 0));

        QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), QPointF(5, 5));
        QApplication::sendEvent(&button, &enter);
        QCOMPARE(entered.count(), 1);
        QVERIFY(button.PointerOver());
        QCOMPARE(button.CurrentForeColor(), QColor(200, 0, 0));
        QCOMPARE(button.grab().toImage().pixelColor(probe), QColor(10, 20, 30));

        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(&button, &leave);
        QCOMPARE(left.count(), 1);
        QVERIFY(!button.PointerOver());
        QCOMPARE(button.grab().toImage().pixelColor(probe), QColor(240, 240, 233));
    }

    void hoverButtonCaptionAndEnabledChangeAtRunTime() {
        ARButton button;
        QSignalSpy clicked(&button, &QPushButton::clicked);
        button.SetCaption(QStringLiteral("Stop Refresh"));
        QCOMPARE(button.Caption(), QStringLiteral("Stop Refresh"));
        button.SetEnabled(false);
        QTest::mouseClick(&button, Qt::LeftButton);
        QCOMPARE(clicked.count(), 0);
        button.SetEnabled(true);
        QTest::mouseClick(&button, Qt::LeftButton);
        QCOMPARE(clicked.count(), 1);
    }

    void messageBoxAnswersFromTheQueueInOrder() {
        MessageBox::SetNextAnswer(MessageBox::AnswerYes);
        MessageBox::SetNextAnswer(MessageBox::AnswerNo);
        QCOMPARE(MessageBox::Show(QStringLiteral("first"), 20, QStringLiteral("Stop Search?")), 6);
        QCOMPARE(MessageBox::Show(QStringLiteral("second"), 20), 7);
        MessageBox::SetAnswersSupplied(true);
        // An empty queue: a question is answered No, a notice OK.
        QCOMPARE(MessageBox::Show(QStringLiteral("third"), 20), 7);
        QCOMPARE(MessageBox::Show(QStringLiteral("fourth"), 16, QStringLiteral("Online?")), 1);

        const QList<MessageBox::Shown>& shown = MessageBox::ShownBoxes();
        QCOMPARE(shown.size(), 4);
        QCOMPARE(shown[0].title, QStringLiteral("Stop Search?"));
        QCOMPARE(shown[1].title, QStringLiteral("Marquill")); // no title: the application's
        QCOMPARE(shown[1].text, QStringLiteral("second"));
        QCOMPARE(shown[3].style, 16);
        QCOMPARE(shown[3].title, QStringLiteral("Online?"));
    }

    void messageBoxTellsTheObserverBeforeAnswering() {
        MessageBox::SetAnswersSupplied(true);
        QStringList seen;
        MessageBox::SetOnShow(
            [&](const MessageBox::Shown& box) { seen << box.text + QString::number(box.style); });
        MessageBox::Show(QStringLiteral("Please select an item in the list"), 0);
        QCOMPARE(seen, QStringList{QStringLiteral("Please select an item in the list0")});
    }

    void screenPointerNeverStacksOverrides() {
        QVERIFY(!QGuiApplication::overrideCursor());
        ScreenPointer::Set(ScreenPointer::Wait);
        ScreenPointer::Set(ScreenPointer::Wait);
        QCOMPARE(ScreenPointer::Current(), 11);
        QVERIFY(QGuiApplication::overrideCursor());
        QCOMPARE(QGuiApplication::overrideCursor()->shape(), Qt::WaitCursor);
        ScreenPointer::Set(ScreenPointer::Default);
        QCOMPARE(ScreenPointer::Current(), 0);
        // One restore undoes both settings of the wait cursor.
        QVERIFY(!QGuiApplication::overrideCursor());
        ScreenPointer::Set(ScreenPointer::Default);
        QVERIFY(!QGuiApplication::overrideCursor());
    }

    void workAnimationPlaysTheShippedFileClipped() {
        QWidget clip;
        clip.setGeometry(0, 0, 86, 15);
        WorkAnimation animation(&clip);
        animation.setGeometry(-16, -18, 123, 51);
        QVERIFY(animation.Navigate(QStringLiteral(MARQUILL_DATA_DIR "/anwork.gif")));
        QMovie* movie = animation.Movie();
        QVERIFY(movie);
        QCOMPARE(movie->state(), QMovie::Running);
        QVERIFY(movie->frameCount() > 1);
        QCOMPARE(movie->currentImage().size(), QSize(86, 15));
        // The image is placed on the clip's corner, so all of it shows and nothing else.
        QCOMPARE(animation.contentsRect().topLeft(), QPoint(16, 18));
        // Every frame decodes: the file's encoder is our own.
        for (int i = 0; i < movie->frameCount(); ++i) {
            QVERIFY(movie->jumpToFrame(i));
            QVERIFY(!movie->currentImage().isNull());
        }
        QVERIFY(!animation.Navigate(QStringLiteral("/nonexistent/anwork.gif")));
        QVERIFY(!animation.Movie());
    }

    // Not pixel for pixel: each caption's text, in the font its control draws with, within the
    // control's width (a wrapped label's lines within its height).
    void everyCaptionFitsItsControl() {
        QTemporaryDir folder;
        SetProgramFolder(folder.path());
        MessageBox::SetAnswersSupplied(true);
        frmMain main;
        frmSummary summary(&main);
        frmHelp help(&main);
        frmWarning warning([] {});
        QCOMPARE(summary.findChild<QLabel*>(QStringLiteral("Label1"))->font().pointSizeF(), 8.25);
        if (QFile::exists(QStringLiteral("/usr/share/wine/fonts/tahoma.ttf")))
            QCOMPARE(QFontInfo(main.font()).family(), QStringLiteral("Tahoma"));
        int captions = 0;
        for (const QWidget* window :
             std::initializer_list<const QWidget*>{&main, &summary, &help, &warning}) {
            for (const QWidget* control : window->findChildren<QWidget*>()) {
                QString text;
                int room = 0;
                if (const auto* label = qobject_cast<const QLabel*>(control)) {
                    text = label->wordWrap() ? QString() : label->text();
                    room = label->contentsRect().width();
                    QVERIFY(!label->wordWrap() || label->heightForWidth(room) <= label->height());
                } else if (const auto* button = qobject_cast<const ARButton*>(control)) {
                    text = button->text().remove(QLatin1Char('&'));
                    room = button->width() - 7;
                } else if (const auto* title = qobject_cast<const QLineEdit*>(control);
                           title && title->isReadOnly()) {
                    // The box's own background hides the frame's edge; a trailing blank shows nothing.
                    text = title->text();
                    while (text.endsWith(QLatin1Char(' ')))
                        text.chop(1);
                    room = title->width() - 4;
                }
                QVERIFY2(control->fontMetrics().horizontalAdvance(text) <= room,
                         qPrintable(control->objectName()));
                captions += text.isEmpty() ? 0 : 1;
            }
        }
        QVERIFY(captions > 40);
        SetProgramFolder(QString());
    }
};

QTEST_MAIN(tst_PlatformControls)
#include "tst_PlatformControls.moc"
