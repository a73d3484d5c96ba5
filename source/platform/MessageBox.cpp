#include "MessageBox.h"

#include <QMessageBox>
#include <QQueue>

namespace {

struct Seam {
    QQueue<int> answers;
    bool supplied = false;
    QList<MessageBox::Shown> shown;
    std::function<void(const MessageBox::Shown&)> onShow;
};

Seam& seam() {
    static Seam s;
    return s;
}

} // namespace

QString MessageBox::ApplicationTitle() {
    return QStringLiteral("Marquill");
}

int MessageBox::Show(const QString& text, int style, const QString& title, QWidget* parent) {
    const QString caption = title.isEmpty() ? ApplicationTitle() : title;
    Seam& s = seam();
    s.shown.append(Shown{text, style, caption});
    if (s.onShow)
        s.onShow(Shown{text, style, caption});
    const bool question = (style & 0x0F) == 4;
    if (!s.answers.isEmpty())
        return s.answers.dequeue();
    if (s.supplied)
        return question ? AnswerNo : AnswerOk;

    QMessageBox box(parent);
    box.setWindowTitle(caption);
    box.setText(text);
    box.setIcon((style & 0xF0) == 16 ? QMessageBox::Critical : QMessageBox::NoIcon);
    if (question) {
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
        box.setDefaultButton(QMessageBox::Yes);
        return box.exec() == QMessageBox::Yes ? AnswerYes : AnswerNo;
    }
    box.setStandardButtons(QMessageBox::Ok);
    box.exec();
    return AnswerOk;
}

void MessageBox::SetNextAnswer(int answer) {
    seam().answers.enqueue(answer);
}

void MessageBox::SetOnShow(std::function<void(const Shown&)> onShow) {
    seam().onShow = std::move(onShow);
}

void MessageBox::SetAnswersSupplied(bool supplied) {
    seam().supplied = supplied;
}

const QList<MessageBox::Shown>& MessageBox::ShownBoxes() {
    return seam().shown;
}

void MessageBox::Reset() {
    seam() = Seam{};
}
