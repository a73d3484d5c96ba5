// marquill-cli: the same core as the program, with no window, for scripts and for checking the
// program from outside.
//   marquill-cli search --site SITE --node PATH [--auctions N|none] [--data DIR] [--proxy URL]
//   marquill-cli tree --site SITE [--data DIR]
//   marquill-cli refresh --site SITE [--data DIR] [--proxy URL]
#include "CategoryCatalogue.h"
#include "CategoryTree.h"
#include "HostHooks.h"
#include "HttpPageSource.h"
#include "Inet.h"
#include "ResultRows.h"
#include "modMain.h"
#include "modParser.h"
#include "modRetreiver.h"
#include "modXML.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QSocketNotifier>
#include <QTextStream>
#include <QUrl>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

enum ExitStatus {
    ExitOk = 0,
    ExitBadArguments = 2,
    ExitOffline = 3,
    ExitCannotOpen = 4,
    ExitNothingFound = 5
};

QTextStream& err() {
    static QTextStream stream(stderr);
    return stream;
}

// Ctrl-C is a confirmed Stop: the handler only writes to a pipe, whose notifier raises the flag
// in the event loop, so a run asleep in a page load wakes up for it.
int stopPipe[2] = {-1, -1};

void onInterrupt(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(stopPipe[1], &byte, 1);
}

void installStop() {
    if (::pipe(stopPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(stopPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, [] {
        char byte;
        [[maybe_unused]] const ssize_t got = ::read(stopPipe[0], &byte, 1);
        HarvestState.StopRequested = FlagTrue;
        err() << "\nStopped.\n" << Qt::flush;
    });
    std::signal(SIGINT, onInterrupt);
}

// The hooks of a host without windows: messages and progress go to standard error.
void installHooks(const QString& site) {
    Hooks().SiteLabel = [site] { return site; };
    Hooks().MsgBox = [](const QString& text, int style, const QString&) {
        err() << QString(text).replace(QStringLiteral("\r\n"), QStringLiteral("\n")) << '\n' << Qt::flush;
        return style == 20 ? 7 : 1;
    };
    Hooks().ExclusionFileUnreadable = [](const QString& path) {
        err() << "warning: cannot open " << QDir::toNativeSeparators(path) << "; nothing is excluded\n"
              << Qt::flush;
    };
    Hooks().SetMainTotalCaption = [](const QString& caption) { err() << '\r' << caption << Qt::flush; };
}

bool applyCommonOptions(const QCommandLineParser& parser, QString& site) {
    site = parser.value(QStringLiteral("site"));
    if (site != USSiteLabel && site != UKSiteLabel) {
        err() << "marquill-cli: --site must be " << USSiteLabel << " or " << UKSiteLabel << '\n';
        return false;
    }
    const QString data = parser.isSet(QStringLiteral("data")) ? parser.value(QStringLiteral("data"))
                                                              : QCoreApplication::applicationDirPath();
    SetProgramFolder(QDir(data).absolutePath());
    if (parser.optionNames().contains(QStringLiteral("proxy"))) {
        const QUrl proxy(parser.value(QStringLiteral("proxy")));
        if (!proxy.isValid() || proxy.host().isEmpty() || proxy.port() <= 0) {
            err() << "marquill-cli: --proxy must be a URL such as http://127.0.0.1:8080\n";
            return false;
        }
        HttpPageSource::SetProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, proxy.host(), quint16(proxy.port())));
    }
    installHooks(site);
    return true;
}

// Opens the category file and fills the tree, as the main window does at start-up.
bool loadTree() {
    LoadCategories();
    const auto tree = CurrentCategoryTree();
    return tree && tree->Root();
}

int runSearch(const QCommandLineParser& parser) {
    QString site;
    if (!applyCommonOptions(parser, site))
        return ExitBadArguments;
    std::int32_t maxAuctions = 2000;
    const QString auctions = parser.value(QStringLiteral("auctions"));
    if (auctions == u"none") {
        maxAuctions = NoAuctionLimit;
    } else if (!auctions.isEmpty()) {
        bool ok = false;
        maxAuctions = auctions.toInt(&ok);
        if (!ok || maxAuctions <= 0) {
            err() << "marquill-cli: --auctions must be a positive number or none\n";
            return ExitBadArguments;
        }
    }
    if (!loadTree())
        return ExitCannotOpen;
    const auto tree = CurrentCategoryTree();
    const QString path = parser.value(QStringLiteral("node"));
    const CategoryNode* node = tree->FindByPath(path);
    if (!node) {
        err() << "marquill-cli: no node \"" << path << "\" in the tree of " << site << '\n';
        return ExitBadArguments;
    }
    if (ProbeAnswerIsEmpty(OpenURL(ProbeUrl))) {
        err() << "You appear not to be online..\nPlease connect and try again\n";
        return ExitOffline;
    }

    HarvestState.KeywordsFound = 0;
    HarvestState.StopRequested = FlagFalse;
    HarvestState.SelectedPath = node->FullPath();
    HarvestState.AuctionsScanned = 0;
    HarvestState.MaxAuctions = maxAuctions;
    installStop();
    RunHarvest(ScopeOfPath(HarvestState.SelectedPath), node->Key(), tree, node);

    const SummaryCaptions captions = CaptionsForPath(HarvestState.SelectedPath);
    err() << "\nSite: " << site << "\nMain: " << captions.main << "\nSub: " << captions.sub
          << "\nKeywords found: " << QLocale().toString(HarvestState.KeywordsFound) << '\n'
          << Qt::flush;
    QTextStream out(stdout);
    for (const ResultRow& row : ResultRowsInListOrder())
        out << row.word << ',' << row.count << '\n';
    HarvestState.SelectedPath.clear();
    return ExitOk;
}

int runTree(const QCommandLineParser& parser) {
    QString site;
    if (!applyCommonOptions(parser, site))
        return ExitBadArguments;
    if (!loadTree())
        return ExitCannotOpen;
    QTextStream out(stdout);
    for (const CategoryNode* node : CurrentCategoryTree()->NodesInOrder())
        out << node->FullPath() << '\t' << node->Key() << '\n';
    return ExitOk;
}

int runRefresh(const QCommandLineParser& parser) {
    QString site;
    if (!applyCommonOptions(parser, site))
        return ExitBadArguments;
    // The refresh saves into the file that the tree is read from.
    CategoryStore.CategoryFilePath = ProgramFolder() + u'/' + CategoryFileName;
    installStop();
    const RefreshResult result = RefreshCategories();
    err() << "\rTotal Found: " << result.MainCount << " (" << result.SubCount << ")\n" << Qt::flush;
    switch (result.Outcome) {
    case RefreshOutcome::CannotOpen:
        return ExitCannotOpen;
    case RefreshOutcome::NothingFound:
        return ExitNothingFound;
    case RefreshOutcome::Completed:
    case RefreshOutcome::Stopped:
        break;
    }
    return ExitOk;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("marquill-cli"));
    const QStringList arguments = QCoreApplication::arguments();
    const QString command = arguments.value(1);

    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption siteOption(
        QStringLiteral("site"), QStringLiteral("The site: ebay.com or ebay.co.uk."), QStringLiteral("SITE"));
    const QCommandLineOption dataOption(
        QStringLiteral("data"),
        QStringLiteral("Folder of aeurl.xml and exclude.dat (default: the program's)."),
        QStringLiteral("DIR"));
    const QCommandLineOption proxyOption(QStringLiteral("proxy"),
                                         QStringLiteral("HTTP proxy, e.g. http://127.0.0.1:8080."),
                                         QStringLiteral("URL"));
    parser.addOption(siteOption);
    parser.addOption(dataOption);
    if (command == u"search") {
        parser.setApplicationDescription(
            QStringLiteral("Runs a keyword search and prints word,count lines."));
        parser.addOption(proxyOption);
        parser.addOption({QStringLiteral("node"), QStringLiteral("FullPath of the node, levels joined by ~."),
                          QStringLiteral("PATH")});
        parser.addOption({QStringLiteral("auctions"),
                          QStringLiteral("Auction limit, or none (default 2000)."), QStringLiteral("N")});
    } else if (command == u"refresh") {
        parser.setApplicationDescription(QStringLiteral("Crawls the site's category pages into aeurl.xml."));
        parser.addOption(proxyOption);
    } else if (command == u"tree") {
        parser.setApplicationDescription(QStringLiteral("Prints the category tree: FullPath, tab, key."));
    } else {
        const bool help = command == u"--help" || command == u"-h";
        QTextStream usage(help ? stdout : stderr);
        usage << "usage: marquill-cli search --site SITE --node PATH [--auctions N|none] [--data DIR] "
                 "[--proxy URL]\n"
                 "       marquill-cli tree --site SITE [--data DIR]\n"
                 "       marquill-cli refresh --site SITE [--data DIR] [--proxy URL]\n"
                 "       marquill-cli COMMAND --help\n";
        return help ? ExitOk : ExitBadArguments;
    }
    QStringList rest = arguments;
    rest.removeAt(1);
    if (!parser.parse(rest)) {
        err() << "marquill-cli: " << parser.errorText() << '\n';
        return ExitBadArguments;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        QTextStream(stdout) << parser.helpText();
        return ExitOk;
    }
    if (!parser.positionalArguments().isEmpty() || !parser.isSet(siteOption) ||
        (command == u"search" && !parser.isSet(QStringLiteral("node")))) {
        err() << "marquill-cli: missing or unexpected arguments; see marquill-cli " << command << " --help\n";
        return ExitBadArguments;
    }
    if (command == u"search")
        return runSearch(parser);
    if (command == u"tree")
        return runTree(parser);
    return runRefresh(parser);
}
