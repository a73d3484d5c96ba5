#include "shell/frmMain.h"

#include <QApplication>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Marquill"));
    frmMain window;
    window.show();
    return QApplication::exec();
}
