// marquill-cli: the same core as the program, with no window, for scripts and for checking the
// program from outside. Each command parses its own options; see marquill-cli --help.
#include "CatalogueCommands.h"
#include "CliOptions.h"
#include "SearchCommand.h"

#include <QCoreApplication>

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
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
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
