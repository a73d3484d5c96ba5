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
#include <QColor>
#include <QEnterEvent>
#include <QFile>
#include <QFontInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMovie>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QVariant>

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
        for (const auto& [name, value] :
             QList<QPair<const char*, QVariant>>{{"caption", QStringLiteral("Stop Search")},
                                                 {"forecolor", QColor(0, 0, 0)},
                                                 {"forecoloronmouse", QColor(200, 0, 0)},
                                                 {"backcolor", QColor(240, 240, 233)},
                                                 {"backcoloronmouse", QColor(10, 20, 30)},
                                                 {"borderstyle", 0},
                                                 {"style", 0}})
            QVERIFY2(button.setProperty(name, value), name);
        QCOMPARE(button.text(), QStringLiteral("Stop Search"));
        button.show();
        QSignalSpy entered(&button, &ARButton::PointerEnter);
        QSignalSpy left(&button, &ARButton::PointerLeave);
        // A corner: background, not caption.
        auto look = [&button] {
            return button.grab().toImage().pixelColor(2, 2).name() + ' ' + button.CurrentForeColor().name() +
                   ' ' + QString::number(button.PointerOver());
        };
        QCOMPARE(look(), QStringLiteral("#f0f0e9 #000000 0"));
        QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), QPointF(5, 5));
        QApplication::sendEvent(&button, &enter);
        QCOMPARE(look(), QStringLiteral("#0a141e #c80000 1"));
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(&button, &leave);
        QCOMPARE(look(), QStringLiteral("#f0f0e9 #000000 0"));
        QCOMPARE(entered.count() + left.count(), 2);
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
        QStringList shown;
        for (const MessageBox::Shown& box : MessageBox::ShownBoxes())
            shown << box.text + '|' + QString::number(box.style) + '|' + box.title;
        // No title: the application's.
        QCOMPARE(shown.join(' '), QStringLiteral("first|20|Stop Search? second|20|Marquill "
                                                 "third|20|Marquill fourth|16|Online?"));
    }

    void screenPointerNeverStacksOverrides() {
        ScreenPointer::Set(ScreenPointer::Wait);
        ScreenPointer::Set(ScreenPointer::Wait);
        QCOMPARE(ScreenPointer::Current(), 11);
        QCOMPARE(QGuiApplication::overrideCursor()->shape(), Qt::WaitCursor);
        // One restore undoes both settings of the wait cursor.
        ScreenPointer::Set(ScreenPointer::Default);
        QCOMPARE(ScreenPointer::Current(), 0);
        QVERIFY(!QGuiApplication::overrideCursor());
    }

    void workAnimationPlaysTheShippedFileClipped() {
        QWidget clip;
        clip.setGeometry(0, 0, 86, 15);
        WorkAnimation animation(&clip);
        animation.setGeometry(-16, -18, 123, 51);
        QVERIFY(animation.Navigate(QStringLiteral(MARQUILL_DATA_DIR "/anwork.gif")));
        QMovie* movie = animation.Movie();
        QVERIFY(movie->state() == QMovie::Running && movie->frameCount() > 1);
        QCOMPARE(movie->currentImage().size(), QSize(86, 15));
        // The image is placed on the clip's corner, so all of it shows and nothing
        // else.
        QCOMPARE(animation.contentsRect().topLeft(), QPoint(16, 18));
        QVERIFY(!animation.Navigate(QStringLiteral("/nonexistent/anwork.gif")));
        QVERIFY(!animation.Movie());
    }

    // Not pixel for pixel: each caption's text, in the font its control draws
    // with, within the control's width (a wrapped label's lines within its
    // height).
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
                    // The box's own background hides the frame's edge; a trailing blank
                    // shows nothing.
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
