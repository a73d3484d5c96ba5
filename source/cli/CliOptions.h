#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <optional>

// The exit statuses of marquill-cli; the help, the README and the man page list them.
enum ExitStatus {
    ExitOk = 0,
    ExitBadArguments = 2,
    ExitOffline = 3,
    ExitCannotOpen = 4,
    ExitNothingFound = 5,
    ExitFinishedWithFailures = 6,
    ExitCannotWrite = 7,
    ExitInterrupted = 130,
};

// Standard error, for messages, progress and the closing lines of a run.
QTextStream& Err();

// The options of one subcommand. Every subcommand has --help and --version; the site, data and
// proxy options are added by the commands that take them.
class CommandOptions final {
public:
    CommandOptions(const QString& command, const QString& description);

    void Add(const QCommandLineOption& option, bool required = false);
    void AddSite(); // required
    void AddData();
    void AddProxy();
    // A required argument without a dash, in the order added; its name is shown in the help.
    void AddPositional(const QString& name, const QString& description);
    QStringList Positionals() const { return m_parser.positionalArguments(); }

    // Parses the command's arguments (the program name first, the command name left out).
    // Nothing when the command is to run; else the status to end with, after printing the help,
    // the version or a message that names the command and what is wrong or missing.
    std::optional<int> Parse(const QStringList& arguments);

    // Whether the command has the option and it was given.
    bool IsSet(const QString& name) const { return m_declared.contains(name) && m_parser.isSet(name); }
    QString Value(const QString& name) const { return m_parser.value(name); }

    // Applies --data, --proxy and --site, or the site given (and the hooks of a host without
    // windows). The site label, or an empty one after printing why the options are wrong.
    QString ApplyCommon(const QString& site = {});
    // Applies --data alone, for the commands that touch the files and no site.
    void ApplyDataFolder();

    QString HelpText() const;

private:
    QString m_command;
    QCommandLineParser m_parser;
    QStringList m_required;
    QStringList m_declared;
    QStringList m_positionals;
};

// --locale: makes the named locale the one of the numeric rules. False for a name Qt does not
// know, which it would silently read as C.
bool ApplyLocale(const QString& name);

// The program's own help: the commands and the exit statuses.
QString ProgramHelp();
QString VersionLine();

// The folder of the category file, as --data names it.
QString CategoryFileFolder();
// Tells on standard error when the last refresh of the category file never reached its end
// (killed, or its machine gone), and how to put back the file from before it.
void WarnOfUnfinishedRefresh();
