#pragma once

#include <QList>
#include <QString>
#include <functional>

class QWidget;

// The system's message box: a text, a style number and a title. Style 0 is an OK button alone,
// 16 OK with the critical icon, 20 Yes and No with the critical icon. Tests queue the answers
// in advance and read back what was shown, so no real dialog ever opens under a test.
class MessageBox final {
public:
    static constexpr int AnswerOk = 1;
    static constexpr int AnswerYes = 6;
    static constexpr int AnswerNo = 7;

    struct Shown {
        QString text;
        int style = 0;
        QString title;
    };

    // Shows the box and returns the answer: 1 for OK, 6 for Yes, 7 for No. An empty title
    // gives the application's title.
    static int Show(const QString& text, int style, const QString& title = QString(),
                    QWidget* parent = nullptr);

    // The answer the next box gives without opening; several calls queue several answers.
    static void SetNextAnswer(int answer);
    // With answers supplied, no box opens at all: an empty queue answers OK, or No to a
    // question, as a cautious user would.
    static void SetAnswersSupplied(bool supplied);
    static const QList<Shown>& ShownBoxes();
    // Called as each box is shown, before its answer: tests look at the window behind it.
    static void SetOnShow(std::function<void(const Shown&)> onShow);
    static void Reset();

    static QString ApplicationTitle();
};
