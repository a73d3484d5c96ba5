#pragma once

#include <QDialog>
#include <memory>

namespace Ui {
class frmHelp;
}

// The help window: the help file from the program's folder, and a button to close it.
class frmHelp final : public QDialog {
    Q_OBJECT

public:
    explicit frmHelp(QWidget* owner);
    ~frmHelp() override;

    // The file the help window shows.
    static QString HelpFilePath();

private:
    std::unique_ptr<Ui::frmHelp> m_ui;
};

// The help command of every window: a fresh help window, modal and centred over the owner.
void ShowHelp(QWidget* owner);
