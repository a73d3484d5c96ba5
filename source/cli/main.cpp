// marquill-cli: the same core as the program, with no window, for scripts and for checking the
// program from outside. Each command parses its own options; see marquill-cli --help.
#include "CatalogueCommands.h"
#include "CliOptions.h"
#include "ResearchCommands.h"
#include "ResearchOutput.h"
#include "SearchCommand.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <memory>

namespace {

struct Command {
    const char16_t* name;
    int (*run)(const QStringList& arguments);
};

constexpr Command Commands[] = {
    {u"search", RunSearchCommand},
    {u"tree", RunTreeCommand},
    {u"refresh", RunRefreshCommand},
    {u"restore", RunRestoreCommand},
    {u"recount", RunRecountCommand},
    {u"diff", RunDiffCommand},
    {u"compare", RunCompareCommand},
};

} // namespace

int main(int argc, char** argv) {
    // A chart's text needs a QGuiApplication; it draws off screen, so no display is needed.
    std::unique_ptr<QCoreApplication> app;
    if (WantsChart(argc, argv)) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("marquill-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MARQUILL_VERSION));
    QStringList arguments = QCoreApplication::arguments();
    const QString name = arguments.value(1);
    for (const Command& command : Commands) {
        if (name == QStringView(command.name)) {
            arguments.removeAt(1);
            return command.run(arguments);
        }
    }
    if (name == u"--help" || name == u"-h") {
        QTextStream(stdout) << ProgramHelp();
        return ExitOk;
    }
    if (name == u"--version") {
        QTextStream(stdout) << VersionLine();
        return ExitOk;
    }
    Err() << (name.isEmpty() ? QStringLiteral("marquill-cli: no command given\n")
                             : QStringLiteral("marquill-cli: unknown command \"%1\"\n").arg(name))
          << ProgramHelp();
    return ExitBadArguments;
}
