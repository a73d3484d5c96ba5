#include "shell/frmMain.h"
#include "shell/frmWarning.h"

#include <QApplication>
#include <memory>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Marquill"));
    // The main window loads only when the start-up window goes, by its button or its close box,
    // and a second pass of that way finds it loaded and shown.
    std::unique_ptr<frmMain> mainWindow;
    frmWarning warning([&mainWindow] {
        if (!mainWindow)
            mainWindow = std::make_unique<frmMain>();
        mainWindow->show();
    });
    warning.show();
    return QApplication::exec();
}
