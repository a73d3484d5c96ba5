#include "platform/ProgramIcon.h"
#include "shell/frmMain.h"
#include "shell/frmWarning.h"

#include <QApplication>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// The program's name as started: "Marquill" or "Marquillb".
const char* StartedName(const char* argv0) {
    const char* slash = std::strrchr(argv0, '/');
    return slash ? slash + 1 : argv0;
}

} // namespace

int main(int argc, char* argv[]) {
    // Read before the window system is reached, so that both answer without a display. No other
    // option is read: the program starts the same way whatever else it is given.
    if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("%s %s\n", StartedName(argv[0]), MARQUILL_VERSION);
        return 0;
    }
    if (argc > 1 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::printf("usage: %s [--version | --help]\n"
                    "Opens the Marquill window. Its files: MARQUILL_DATA names their folder; see "
                    "Marquill(1).\n",
                    StartedName(argv[0]));
        return 0;
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Marquill"));
    QApplication::setApplicationVersion(QStringLiteral(MARQUILL_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral(MARQUILL_DESKTOP_ID));
    QApplication::setWindowIcon(ProgramIcon());
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
