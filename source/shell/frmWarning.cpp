#include "frmWarning.h"

#include "platform/FormFont.h"
#include "platform/ProgramIcon.h"
#include "ui_frmWarning.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QIcon>
#include <QScreen>

frmWarning::frmWarning(std::function<void()> wayToMain, QWidget* parent)
    : QWidget(parent), m_ui(std::make_unique<Ui::frmWarning>()), m_wayToMain(std::move(wayToMain)) {
    m_ui->setupUi(this);
    setWindowIcon(ProgramIcon());
    setWindowFlags(Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setFixedSize(size());

    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, QColor(240, 240, 233));
    setPalette(palette);
    setAutoFillBackground(true);

    const QString face = QStringLiteral("Trebuchet MS");
    setFont(FormFont(face, 9));
    m_ui->Label1->setFont(FormFont(face, 11.25, true));
    m_ui->Label14->setFont(FormFont(face, 9.75, true));
    m_ui->ARButton1->setFont(FormFont(face, 9, true));
    m_ui->ARButton1->SetBackColor(QColor(240, 240, 233));
    m_ui->ARButton1->SetBackColorOnMouse(QColor(240, 240, 233));

    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());

    connect(m_ui->ARButton1, &QPushButton::clicked, this, &frmWarning::ARButton1_Click);
}

frmWarning::~frmWarning() = default;

void frmWarning::closeEvent(QCloseEvent* event) {
    // The unload is never cancelled: closing this window always leads on to the main window.
    event->accept();
    m_wayToMain();
}

void frmWarning::ARButton1_Click() {
    close();
    // The close above has already taken the way; this second pass finds the main window loaded
    // and shown, and changes nothing.
    m_wayToMain();
}
