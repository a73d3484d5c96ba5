#pragma once

#include <QWidget>
#include <functional>
#include <memory>

namespace Ui {
class frmWarning;
}

// The start-up window: how to work, and the way to the main window. Its button and its close
// box both take that way; there is no way from here to end the program.
class frmWarning final : public QWidget {
    Q_OBJECT

public:
    // wayToMain loads the main window when it is not loaded yet and shows it.
    explicit frmWarning(std::function<void()> wayToMain, QWidget* parent = nullptr);
    ~frmWarning() override;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void ARButton1_Click();

    std::unique_ptr<Ui::frmWarning> m_ui;
    std::function<void()> m_wayToMain;
};
