#include "modRetreiver.h"

#include "catalogue/ApiCategories.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/modXML.h"
#include "harvest/BrowserPage.h"
#include "harvest/modMain.h"
#include "platform/HostHooks.h"

#include <memory>
#include <pugixml.hpp>
#include <vector>

namespace {

const QString SubCategorySuffix = QStringLiteral("QQsorecordsperpageZ50");
const QString NoLinkValue = QStringLiteral("[object]");

void LoadPage(BrowserPage& page, const QString& url) {
    page.Navigate(url);
    while (page.ReadyState() != 4)
        Hooks().WaitForEvents();
}

// Trims blanks only, as the See-all test names them.
QString TrimBlanks(const QString& text) {
    qsizetype first = 0;
    qsizetype last = text.size();
    while (first < last && text.at(first) == QLatin1Char(' '))
        ++first;
    while (last > first && text.at(last - 1) == QLatin1Char(' '))
        --last;
    return text.mid(first, last - first);
}

bool IsSeeAllLink(const QString& innerText) {
    const QString upper = innerText.toUpper();
    return upper.left(7) == QLatin1String("SEE ALL") &&
           TrimBlanks(upper) != QLatin1String("SEE ALL FEATURED ITEMS");
}

} // namespace

QString CategoryNameFromLink(const QString& linkText) {
    // The first 8 characters, "See all ", are dropped unseen.
    const QString rest = linkText.mid(8);
    const qsizetype at = rest.indexOf(QLatin1String("categories"), 0, Qt::CaseInsensitive);
    // Without the word, or with it at the very start, there is nothing to cut before it: the
    // whole rest is the name.
    if (at <= 0)
        return rest.trimmed();
    // What stands before the word, less the one character in front of it.
    return rest.left(at - 1);
}

QString SiteRootOfUrl(const QString& url) {
    const QString siteLabel = Hooks().SiteLabel();
    QString marker;
    if (siteLabel == UKSiteLabel)
        marker = QStringLiteral(".co.uk/");
    else if (siteLabel == USSiteLabel)
        marker = QStringLiteral(".com/");
    // A site without a marker has no root: the empty prefix lets every address pass.
    if (marker.isEmpty())
        return QString();
    const qsizetype at = url.indexOf(marker, 0, Qt::CaseInsensitive);
    if (at < 0)
        return QString();
    return url.left(at + marker.size());
}

void ShowRefreshFeedback() {
    Hooks().ShowRefreshFeedback();
}

CrawlResult CrawlCategories(const QString& listingsBaseUrl) {
    CrawlResult result;
    Hooks().SetMainTotalCaption(QStringLiteral("Total found: 0"));

    // The index browser keeps its page for the whole crawl: its elements are walked while the
    // category browser loads one main category's page after the other.
    BrowserPage indexBrowser;
    BrowserPage categoryBrowser;
    LoadPage(indexBrowser, listingsBaseUrl);

    static const std::vector<HtmlElement*> noElements;
    const HtmlDocument* index = indexBrowser.Document();
    const std::vector<HtmlElement*>& elements = index ? index->all() : noElements;
    for (const HtmlElement* element : elements) {
        Hooks().Yield();
        if (HarvestState.StopRequested == FlagTrue) {
            result.Stopped = true;
            break;
        }
        const QString text = element->innerText();
        if (!IsSeeAllLink(text))
            continue;
        // Cells, rows and tables around the link carry its text but are no link themselves.
        const QString mainUrl = element->DefaultValue();
        if (mainUrl == NoLinkValue)
            continue;

        ++result.MainCount;
        Hooks().SetMainTotalCaption(QStringLiteral("Total found: ") + QString::number(result.MainCount));
        AddMainCategory(CategoryNameFromLink(text), mainUrl);

        const QString linkPrefix = SiteRootOfUrl(mainUrl);
        LoadPage(categoryBrowser, mainUrl);
        const HtmlDocument* page = categoryBrowser.Document();
        const std::vector<HtmlElement*>& links = page ? page->links() : noElements;
        for (const HtmlElement* link : links) {
            Hooks().Yield();
            if (HarvestState.StopRequested == FlagTrue) {
                result.Stopped = true;
                break;
            }
            const QString url = link->DefaultValue();
            const QString name = link->innerText();
            if (url.left(linkPrefix.size()) != linkPrefix ||
                name.left(6).toUpper() == QLatin1String("BROWSE"))
                continue;
            const HtmlElement* parent = link->parentElement();
            if (!parent || parent->tagName() != QLatin1String("B"))
                continue;
            ++result.SubCount;
            Hooks().SetMainTotalCaption(QStringLiteral("Total Found: ") + QString::number(result.MainCount) +
                                        QStringLiteral(" (") + QString::number(result.SubCount) +
                                        QLatin1Char(')'));
            AddSubCategory(name, url + SubCategorySuffix);
        }
        if (result.Stopped)
            break;
    }

    // Both browsers are ended explicitly on every way out, the stopped ones included.
    categoryBrowser.Quit();
    indexBrowser.Quit();
    return result;
}

RefreshResult RefreshCategories() {
    RefreshResult result;
    Hooks().SetStopCaption(QStringLiteral("Stop Refresh"));
    HarvestState.StopRequested = FlagFalse;
    ShowRefreshFeedback();

    // The window's load has set the path; a host that never loaded the tree gets the file beside
    // the program, as the load would.
    if (CategoryStore.CategoryFilePath.isEmpty())
        CategoryStore.CategoryFilePath = ProgramFolder() + QLatin1Char('/') + CategoryFileName;
    const QString path = CategoryStore.CategoryFilePath;
    if (!OpenCategoryFile(path, CategoryRootName)) {
        Hooks().MsgBox(QStringLiteral("Cannot open ") + path, 0, QString());
        ReleaseCategoryFile();
        result.Outcome = RefreshOutcome::CannotOpen;
        return result;
    }

    const QString siteLabel = Hooks().SiteLabel();
    const bool throughApi = RefreshSource() == CategorySource::Api;
    const QString listingsBaseUrl =
        throughApi ? ApiCategoryTreeAddress(siteLabel) : ListingsBaseUrl(siteLabel);

    // A crawl that finds nothing (no connection, a page of another layout, a stop before the first
    // find) must not leave the site empty. Such a crawl writes nothing but the removal, so the
    // document as it stood before it is exactly what the file must hold again: it is kept whole,
    // the site's entries in their places among the other site's and the file's comments.
    auto former = std::make_unique<pugi::xml_document>();
    former->reset(*CategoryStore.XmlDocument);
    RemoveSiteCategories(siteLabel);

    const CrawlResult crawl =
        throughApi ? CrawlCategoriesThroughApi(siteLabel) : CrawlCategories(listingsBaseUrl);
    result.MainCount = crawl.MainCount;
    result.SubCount = crawl.SubCount;
    result.Outcome = crawl.Stopped ? RefreshOutcome::Stopped : RefreshOutcome::Completed;

    bool restoreFailed = false;
    if (crawl.MainCount == 0) {
        result.Outcome = RefreshOutcome::NothingFound;
        // After a confirmed stop the stop command has put a document read from the file in the
        // crawl's place; whichever is open, the former one takes its place and is saved, so that
        // the tree below and the disk both show the kept entries.
        CategoryStore.XmlDocument = std::move(former);
        CategoryStore.RootElement = CategoryStore.XmlDocument->document_element();
        CategoryStore.CurrentMainElement = pugi::xml_node();
        restoreFailed = !SaveCategoryFile();
    }

    ReloadCategoryTree();
    ReleaseCategoryFile();
    Hooks().HideFeedback();
    Hooks().SetMousePointer(0);

    if (result.Outcome == RefreshOutcome::NothingFound)
        Hooks().MsgBox(restoreFailed ? QStringLiteral("Cannot open ") + path
                                     : QStringLiteral("No categories were found at ") + listingsBaseUrl +
                                           QStringLiteral("; the former categories are kept."),
                       0, QString());
    return result;
}
