// Renders the start-up and help windows, the main window in each of its states and the summary
// of its search to PNG files, for looking at the layout.
//   marquill-shots OUTDIR [--data DIR] [--proxy HOST:PORT] [--node FULLPATH]
// With a proxy (the sample site) the search is a real one over HTTP.
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "harvest/HttpPageSource.h"
#include "platform/HostHooks.h"
#include "platform/MessageBox.h"
#include "results/frmSummary.h"
#include "shell/frmHelp.h"
#include "shell/frmMain.h"
#include "shell/frmWarning.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QNetworkProxy>
#include <QTreeWidget>
#include <cstdio>

namespace {

void Save(QWidget* window, const QString& folder, const QString& name) {
    const QString path = QDir(folder).filePath(name + QStringLiteral(".png"));
    if (!window->grab().save(path))
        std::fprintf(stderr, "cannot write %s\n", qUtf8Printable(path));
    else
        std::printf("%s\n", qUtf8Printable(path));
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("outdir"), QStringLiteral("Folder for the pictures"));
    parser.addOption({QStringLiteral("data"), QStringLiteral("Folder of the files beside the program"),
                      QStringLiteral("dir")});
    parser.addOption(
        {QStringLiteral("proxy"), QStringLiteral("The sample site, host:port"), QStringLiteral("proxy")});
    parser.addOption(
        {QStringLiteral("node"), QStringLiteral("FullPath of the node to search"), QStringLiteral("path")});
    parser.process(app);
    if (parser.positionalArguments().size() != 1)
        parser.showHelp(2);
    const QString out = parser.positionalArguments().front();
    QDir().mkpath(out);
    if (parser.isSet(QStringLiteral("data")))
        SetProgramFolder(parser.value(QStringLiteral("data")));
    if (parser.isSet(QStringLiteral("proxy"))) {
        const QStringList parts = parser.value(QStringLiteral("proxy")).split(QLatin1Char(':'));
        const QNetworkProxy proxy(QNetworkProxy::HttpProxy, parts.value(0), quint16(parts.value(1).toUInt()));
        QNetworkProxy::setApplicationProxy(proxy);
        HttpPageSource::SetProxy(proxy);
    }
    MessageBox::SetAnswersSupplied(true);
    // The summary is pictured as it opens over the main window, then closed.
    frmMain::SetShowSummary([&out](QWidget* owner) {
        frmSummary summary(owner);
        summary.show();
        QCoreApplication::processEvents();
        Save(&summary, out, QStringLiteral("summary"));
    });

    {
        frmWarning warning([] {});
        warning.show();
        QCoreApplication::processEvents();
        Save(&warning, out, QStringLiteral("warning"));
        frmHelp help(nullptr);
        help.show();
        QCoreApplication::processEvents();
        Save(&help, out, QStringLiteral("help"));
    }

    frmMain window;
    window.show();
    QCoreApplication::processEvents();
    Save(&window, out, QStringLiteral("main-idle"));
    // The refreshing state as a refresh shows it, without crawling: its title over the frame.
    Hooks().ShowRefreshFeedback();
    Hooks().SetStopCaption(QStringLiteral("Stop Refresh"));
    QCoreApplication::processEvents();
    Save(&window, out, QStringLiteral("main-refreshing"));
    Hooks().HideFeedback();

    auto* tree = window.findChild<QTreeWidget*>(QStringLiteral("treCategories"));
    auto* search = window.findChild<QAbstractButton*>(QStringLiteral("cmdGetKeywords"));
    MessageBox::SetOnShow(
        [&](const MessageBox::Shown&) { Save(&window, out, QStringLiteral("main-no-node")); });
    search->click();
    MessageBox::SetOnShow(nullptr);

    const QString path = parser.value(QStringLiteral("node"));
    const CategoryNode* node = CurrentCategoryTree() ? CurrentCategoryTree()->FindByPath(path) : nullptr;
    if (!node && CurrentCategoryTree())
        node = CurrentCategoryTree()->Root();
    if (QTreeWidgetItem* item = node ? window.ItemOfNode(node) : nullptr) {
        tree->scrollToItem(item);
        tree->setCurrentItem(item);
    }
    const std::function<void()> plainYield = Hooks().Yield;
    int yields = 0;
    Hooks().Yield = [&] {
        if (++yields == 50)
            Save(&window, out, QStringLiteral("main-searching"));
        plainYield();
    };
    search->click();
    Hooks().Yield = plainYield;
    Save(&window, out, QStringLiteral("main-after-search"));
    return 0;
}
