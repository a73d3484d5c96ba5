#include "frmHelp.h"

#include "platform/DataPaths.h"
#include "platform/FormFont.h"
#include "platform/ProgramIcon.h"
#include "platform/WindowPlacement.h"
#include "ui_frmHelp.h"

#include <QIcon>
#include <QUrl>

frmHelp::frmHelp(QWidget* owner) : QDialog(owner), m_ui(std::make_unique<Ui::frmHelp>()) {
    m_ui->setupUi(this);
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setFixedSize(size());
    CentreOnOwner(this, owner);
    setWindowIcon(ProgramIcon());
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, QColor(240, 240, 233));
    setPalette(palette);
    setAutoFillBackground(true);

    m_ui->cmdClose->setFont(FormFont(QStringLiteral("MS Sans Serif"), 8.25));
    const QColor buttonFace = QPalette().color(QPalette::Button);
    m_ui->cmdClose->SetBackColor(buttonFace);
    m_ui->cmdClose->SetBackColorOnMouse(buttonFace);

    connect(m_ui->cmdClose, &QPushButton::clicked, this, &QDialog::accept);
    m_ui->webHelp->setSource(QUrl::fromLocalFile(HelpFilePath()));
}

frmHelp::~frmHelp() = default;

QString frmHelp::HelpFilePath() {
    return ReadOnlyFilePath(QStringLiteral("helpfile.htm"));
}

void ShowHelp(QWidget* owner) {
    frmHelp help(owner);
    help.exec();
}
