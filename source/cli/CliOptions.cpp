#include "CliOptions.h"

#include "CategoryBackup.h"
#include "CategoryCatalogue.h"
#include "DataPaths.h"
#include "HostHooks.h"
#include "HttpPageSource.h"
#include "Terminal.h"
#include "modMain.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QUrl>

QTextStream& Err() {
    static QTextStream stream(stderr);
    return stream;
}

QString VersionLine() {
    return QStringLiteral("marquill-cli ") + QCoreApplication::applicationVersion() + u'\n';
}

// --locale: the locale of the numeric rules. An unknown name falls back to C in Qt, which would
// silently give other words, so it is refused.
bool ApplyLocale(const QString& name) {
    const QLocale locale(name);
    const QString base = name.section(u'.', 0, 0);
    if (locale.language() == QLocale::C && base != u"C" && base != u"POSIX")
        return false;
    QLocale::setDefault(locale);
    return true;
}

QString ProgramHelp() {
    return QStringLiteral("Usage: marquill-cli COMMAND [options]\n"
                          "The keyword search of Marquill without windows, for scripts.\n"
                          "\n"
                          "Commands:\n"
                          "  search    Runs a keyword search and prints the words with their counts.\n"
                          "  tree      Prints the category tree of a site.\n"
                          "  refresh   Crawls a site's category pages into the category file.\n"
                          "  restore   Puts back the category file from before the last refresh.\n"
                          "  recount   Counts the titles kept by search --save-titles again, without a page load.\n"
                          "  diff      Compares two lists or two kept sets of titles word by word.\n"
                          "  compare   Searches one category on both sites and sets the counts side by side.\n"
                          "\n"
                          "  marquill-cli COMMAND --help   the options of a command\n"
                          "  marquill-cli --version        the version\n"
                          "\n"
                          "Exit status:\n"
                          "  0    finished (a search that found nothing included)\n"
                          "  2    bad arguments, or a node that is not in the tree\n"
                          "  3    the network does not answer (offline)\n"
                          "  4    the category file, or a file to recount or diff, cannot be opened or read\n"
                          "  5    a refresh found no category; the former ones are kept\n"
                          "  6    a refresh finished, but pages failed, a bound was reached or a save\n"
                          "       was refused: its categories may be partial\n"
                          "  7    the --output or --report file cannot be written\n"
                          "  130  stopped by Ctrl-C; what was found is still written\n");
}

CommandOptions::CommandOptions(const QString& command, const QString& description) : m_command(command) {
    m_parser.setApplicationDescription(description);
    // A help option of our own: Qt's adds --help-all, which would offer Qt's options to a
    // program that has none.
    m_parser.addOption({{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Shows this help.")});
    m_parser.addOption({QStringLiteral("version"), QStringLiteral("Shows the version.")});
}

void CommandOptions::Add(const QCommandLineOption& option, bool required) {
    m_parser.addOption(option);
    m_declared << option.names();
    if (required)
        m_required << option.names().constFirst();
}

void CommandOptions::AddSite() {
    Add({QStringLiteral("site"),
         QStringLiteral("The site: %1 or %2 (required).").arg(USSiteLabel, UKSiteLabel),
         QStringLiteral("SITE")},
        true);
}

void CommandOptions::AddData() {
    Add({QStringLiteral("data"),
         QStringLiteral("Folder of aeurl.xml and exclude.dat (default: MARQUILL_DATA, a portable "
                        "folder, else the user's data folder)."),
         QStringLiteral("DIR")});
}

void CommandOptions::AddProxy() {
    Add({QStringLiteral("proxy"), QStringLiteral("HTTP proxy, e.g. http://127.0.0.1:8080."),
         QStringLiteral("URL")});
}

void CommandOptions::AddPositional(const QString& name, const QString& description) {
    m_parser.addPositionalArgument(name, description);
    m_positionals << name;
}

QString CommandOptions::HelpText() const {
    // Qt's usage line names the program only; ours names the command too.
    QString text = m_parser.helpText();
    const qsizetype lineEnd = text.indexOf(u'\n');
    QString usage = QStringLiteral("Usage: marquill-cli %1 [options]").arg(m_command);
    for (const QString& name : m_positionals)
        usage += u' ' + name;
    return usage + text.mid(lineEnd);
}

std::optional<int> CommandOptions::Parse(const QStringList& arguments) {
    const QString prefix = QStringLiteral("marquill-cli %1: ").arg(m_command);
    if (!m_parser.parse(arguments)) {
        Err() << prefix << m_parser.errorText() << "\nSee marquill-cli " << m_command << " --help\n";
        return ExitBadArguments;
    }
    if (m_parser.isSet(QStringLiteral("help"))) {
        QTextStream(stdout) << HelpText();
        return ExitOk;
    }
    if (m_parser.isSet(QStringLiteral("version"))) {
        QTextStream(stdout) << VersionLine();
        return ExitOk;
    }
    const QStringList positionals = m_parser.positionalArguments();
    if (positionals.size() > m_positionals.size()) {
        Err() << prefix << "unexpected argument \"" << positionals.at(m_positionals.size())
              << "\"\nSee marquill-cli " << m_command << " --help\n";
        return ExitBadArguments;
    }
    if (positionals.size() < m_positionals.size()) {
        Err() << prefix << "missing " << m_positionals.at(positionals.size()) << "\nSee marquill-cli "
              << m_command << " --help\n";
        return ExitBadArguments;
    }
    for (const QString& name : std::as_const(m_required)) {
        if (!m_parser.isSet(name)) {
            Err() << prefix << "missing --" << name << "\nSee marquill-cli " << m_command << " --help\n";
            return ExitBadArguments;
        }
    }
    return std::nullopt;
}

void CommandOptions::ApplyDataFolder() {
    if (IsSet(QStringLiteral("data")))
        SetDataFolder(Value(QStringLiteral("data")));
}

QString CategoryFileFolder() {
    return QDir::toNativeSeparators(QFileInfo(CategoryFilePath()).absolutePath());
}

void WarnOfUnfinishedRefresh() {
    if (LastRefreshUnfinished(CategoryFilePath()))
        Err() << "The last refresh of " << QDir::toNativeSeparators(CategoryFilePath())
              << " did not finish; its categories may be partial. To put back the file from before it: "
                 "marquill-cli restore --data "
              << CategoryFileFolder() << '\n'
              << Qt::flush;
}

QString CommandOptions::ApplyCommon(const QString& chosenSite) {
    const QString site = chosenSite.isEmpty() ? Value(QStringLiteral("site")) : chosenSite;
    if (site != USSiteLabel && site != UKSiteLabel) {
        Err() << "marquill-cli " << m_command << ": --site must be " << USSiteLabel << " or " << UKSiteLabel
              << '\n';
        return QString();
    }
    ApplyDataFolder();
    if (IsSet(QStringLiteral("proxy"))) {
        const QUrl proxy(Value(QStringLiteral("proxy")));
        if (!proxy.isValid() || proxy.host().isEmpty() || proxy.port() <= 0) {
            Err() << "marquill-cli " << m_command
                  << ": --proxy must be a URL such as http://127.0.0.1:8080\n";
            return QString();
        }
        HttpPageSource::SetProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, proxy.host(), quint16(proxy.port())));
    }
    InstallHostHooks(site);
    return site;
}
