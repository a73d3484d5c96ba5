#include "modRetreiver.h"

#include "catalogue/ApiCategories.h"
#include "catalogue/CategoryBackup.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryFileWriter.h"
#include "catalogue/modXML.h"
#include "harvest/BrowserPage.h"
#include "harvest/modMain.h"
#include "platform/DataPaths.h"
#include "platform/HostHooks.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <memory>
#include <pugixml.hpp>
#include <unistd.h>
#include <unordered_set>
#include <vector>

namespace {

const QString SubCategorySuffix = QStringLiteral("QQsorecordsperpageZ50");
const QString NoLinkValue = QStringLiteral("[object]");

void LoadPage(BrowserPage& page, const QString& url) {
    page.Navigate(url);
    while (page.ReadyState() != 4) {
        Hooks().WaitForEvents();
        // A stopped refresh walks no more of any page, so the rest of this one is not waited for.
        if (HarvestState.StopRequested == FlagTrue)
            page.Stop();
    }
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

// A load that ended in an error status, a time-out or no answer is a failure the user is told of;
// a Stop is not, and neither is a link the browser would not follow.
void NoteFailure(const BrowserPage& page, const QString& url, bool isIndex, CrawlResult& result) {
    const PageFailure failure = page.Failure();
    if (failure == PageFailure::HttpError || failure == PageFailure::TimedOut ||
        failure == PageFailure::Network)
        result.FailedPages.push_back({url, failure, page.HttpStatus(), isIndex});
}

bool FileAccessible(const QString& path, int mode) {
    const QString file = ResolveFileLinks(path);
    return !QFileInfo::exists(file) || ::access(QFile::encodeName(file).constData(), mode) == 0;
}

QString OutcomeName(RefreshOutcome outcome) {
    switch (outcome) {
    case RefreshOutcome::Completed:
        return QStringLiteral("completed");
    case RefreshOutcome::Stopped:
        return QStringLiteral("stopped");
    case RefreshOutcome::NothingFound:
        return QStringLiteral("nothing-found");
    case RefreshOutcome::CannotOpen:
        return QStringLiteral("cannot-open");
    case RefreshOutcome::Limited:
        return QStringLiteral("limited");
    }
    return QString();
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

CrawlBounds& RefreshBounds() {
    static CrawlBounds bounds;
    return bounds;
}

void ShowRefreshFeedback() {
    Hooks().ShowRefreshFeedback();
}

CrawlResult CrawlCategories(const QString& listingsBaseUrl) {
    CrawlResult result;
    const CrawlBounds bounds = RefreshBounds();
    Hooks().SetMainTotalCaption(QStringLiteral("Total found: 0"));

    // The index browser keeps its page for the whole crawl: its elements are walked while the
    // category browser loads one main category's page after the other.
    BrowserPage indexBrowser;
    BrowserPage categoryBrowser;
    LoadPage(indexBrowser, listingsBaseUrl);

    static const std::vector<HtmlElement*> noElements;
    const HtmlDocument* index = indexBrowser.Document();
    NoteFailure(indexBrowser, listingsBaseUrl, true, result);
    const std::vector<HtmlElement*>& elements = index ? index->all() : noElements;
    // Only a link has a default value other than "[object]", so only links are asked for their
    // text: the text of every element of a deeply nested page would cost the square of its size.
    const std::vector<HtmlElement*>& indexLinks = index ? index->links() : noElements;
    const std::unordered_set<const HtmlElement*> isLink(indexLinks.begin(), indexLinks.end());
    std::int32_t seeAllLinks = 0;
    for (const HtmlElement* link : indexLinks)
        seeAllLinks += IsSeeAllLink(link->innerText()) ? 1 : 0;
    result.TooManySeeAllLinks = seeAllLinks > bounds.SeeAllLinks;

    for (const HtmlElement* element : result.TooManySeeAllLinks ? noElements : elements) {
        Hooks().Yield();
        if (HarvestState.StopRequested == FlagTrue) {
            result.Stopped = true;
            break;
        }
        if (!isLink.count(element))
            continue;
        const QString text = element->innerText();
        if (!IsSeeAllLink(text))
            continue;
        // Cells, rows and tables around the link carry its text but are no link themselves.
        const QString mainUrl = element->DefaultValue();
        if (mainUrl == NoLinkValue)
            continue;

        // Each find is counted and shown once it is saved: there is no yield in between, so the
        // window sees the same, and a save the disk refused is never shown as a find.
        result.TooManyFinds = result.MainCount + result.SubCount >= bounds.Finds;
        result.SaveFailed = !result.TooManyFinds && !AddMainCategory(CategoryNameFromLink(text), mainUrl);
        if (result.TooManyFinds || result.SaveFailed)
            break;
        ++result.MainCount;
        Hooks().SetMainTotalCaption(QStringLiteral("Total found: ") + QString::number(result.MainCount));

        const QString linkPrefix = SiteRootOfUrl(mainUrl);
        LoadPage(categoryBrowser, mainUrl);
        const HtmlDocument* page = categoryBrowser.Document();
        NoteFailure(categoryBrowser, mainUrl, false, result);
        const std::vector<HtmlElement*>& links = page ? page->links() : noElements;
        for (const HtmlElement* link : links) {
            Hooks().Yield();
            if (HarvestState.StopRequested == FlagTrue) {
                result.Stopped = true;
                break;
            }
            const QString url = link->DefaultValue();
            if (url.left(linkPrefix.size()) != linkPrefix)
                continue;
            const HtmlElement* parent = link->parentElement();
            if (!parent || parent->tagName() != QLatin1String("B"))
                continue;
            const QString name = link->innerText();
            if (name.left(6).toUpper() == QLatin1String("BROWSE"))
                continue;
            result.TooManyFinds = result.MainCount + result.SubCount >= bounds.Finds;
            result.SaveFailed = !result.TooManyFinds && !AddSubCategory(name, url + SubCategorySuffix);
            if (result.TooManyFinds || result.SaveFailed)
                break;
            ++result.SubCount;
            Hooks().SetMainTotalCaption(QStringLiteral("Total Found: ") + QString::number(result.MainCount) +
                                        QStringLiteral(" (") + QString::number(result.SubCount) +
                                        QLatin1Char(')'));
        }
        if (result.Stopped || result.TooManyFinds || result.SaveFailed)
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

    // The window's load has set the path; a host that never loaded the tree gets the user's
    // category file, as the load would.
    if (CategoryStore.CategoryFilePath.isEmpty())
        CategoryStore.CategoryFilePath = CategoryFilePath();
    const QString path = CategoryStore.CategoryFilePath;
    // Refused before anything is touched; the feedback stays up, as after any open that failed.
    auto refuse = [&](const QString& message) {
        Hooks().MsgBox(message, 0, QString());
        ReleaseCategoryFile();
        result.Outcome = RefreshOutcome::CannotOpen;
        result.Message = message;
        return result;
    };
    if (!FileAccessible(path, R_OK))
        return refuse(QStringLiteral("Cannot open ") + path);
    // A file that can be read but not written still serves searches; only a refresh needs more.
    if (!FileAccessible(path, W_OK))
        return refuse(QStringLiteral("Cannot refresh the categories: ") + path +
                      QStringLiteral(" is read-only, and a refresh needs write access to it."));
    // The file as it stands goes aside before the first save, so that restore can put it back.
    if (!KeepCategoryBackup(path))
        return refuse(QStringLiteral("Cannot open ") + path +
                      QStringLiteral(": no backup of it could be kept as ") + CategoryBackupPath(path));
    const QString siteLabel = Hooks().SiteLabel();
    MarkRefreshStarted(path, siteLabel);
    if (!OpenCategoryFile(path, CategoryRootName)) {
        ClearRefreshMark(path);
        return refuse(QStringLiteral("Cannot open ") + path);
    }

    const bool throughApi = RefreshSource() == CategorySource::Api;
    const QString listingsBaseUrl =
        throughApi ? ApiCategoryTreeAddress(siteLabel) : ListingsBaseUrl(siteLabel);

    // A crawl that finds nothing (no connection, a page of another layout, a stop before the first
    // find) must not leave the site empty. Such a crawl writes nothing but the removal, so the
    // document as it stood before it is exactly what the file must hold again: it is kept whole,
    // the site's entries in their places among the other site's and the file's comments.
    auto former = std::make_unique<pugi::xml_document>();
    former->reset(*CategoryStore.XmlDocument);
    CrawlResult crawl;
    if (!RemoveSiteCategories(siteLabel))
        crawl.SaveFailed = true;
    else if (throughApi)
        crawl = CrawlCategoriesThroughApi(siteLabel);
    else
        crawl = CrawlCategories(listingsBaseUrl);
    result.MainCount = crawl.MainCount;
    result.SubCount = crawl.SubCount;
    result.FailedPages = std::move(crawl.FailedPages);
    result.SaveFailed = crawl.SaveFailed;
    result.Outcome = crawl.Stopped                                    ? RefreshOutcome::Stopped
                     : crawl.TooManyFinds || crawl.TooManySeeAllLinks ? RefreshOutcome::Limited
                                                                      : RefreshOutcome::Completed;

    bool restoreFailed = false;
    if (crawl.MainCount == 0) {
        if (result.Outcome != RefreshOutcome::Limited)
            result.Outcome = RefreshOutcome::NothingFound;
        // After a confirmed stop the stop command has put a document read from the file in the
        // crawl's place; whichever is open, the former one takes its place and is saved, so that
        // the tree below and the disk both show the kept entries.
        AdoptCategoryDocument(std::move(former));
        restoreFailed = !SaveCategoryFile();
    }

    ReloadCategoryTree();
    ReleaseCategoryFile();
    Hooks().HideFeedback();
    Hooks().SetMousePointer(0);
    ClearRefreshMark(path);

    if (result.SaveFailed || restoreFailed)
        result.Message = QStringLiteral("Cannot save ") + path +
                         QStringLiteral("; the refresh has ended. The file from before it is kept as ") +
                         CategoryBackupPath(path) + QLatin1Char('.');
    else if (crawl.TooManySeeAllLinks)
        result.Message = QStringLiteral("The page ") + listingsBaseUrl +
                         QStringLiteral(" has more than %1 \"See all\" links, more than a refresh takes; the "
                                        "former categories are kept.")
                             .arg(RefreshBounds().SeeAllLinks);
    else if (crawl.TooManyFinds)
        result.Message =
            QStringLiteral("The refresh ended after %1 categories, the most one refresh takes; the "
                           "categories found so far are kept.")
                .arg(RefreshBounds().Finds);
    else if (result.Outcome == RefreshOutcome::NothingFound)
        result.Message = QStringLiteral("No categories were found at ") + listingsBaseUrl +
                         QStringLiteral("; the former categories are kept.");
    if (!result.Message.isEmpty())
        Hooks().MsgBox(result.Message, 0, QString());
    return result;
}

QString FailedPageText(const FailedPage& page) {
    QString why;
    switch (page.Failure) {
    case PageFailure::HttpError:
        why = QStringLiteral("HTTP ") + QString::number(page.HttpStatus);
        break;
    case PageFailure::TimedOut:
        why = QStringLiteral("timed out");
        break;
    default:
        why = QStringLiteral("no answer");
        break;
    }
    return page.Url + QStringLiteral(": ") + why +
           (page.IsIndex ? QStringLiteral("; the category index page did not load")
                         : QStringLiteral("; its sub-categories were not read, so the main category stands "
                                          "without them"));
}

QByteArray RefreshReportJson(const RefreshResult& result, const QString& siteLabel) {
    QJsonArray failed;
    for (const FailedPage& page : result.FailedPages)
        failed.append(QJsonObject{{QStringLiteral("url"), page.Url},
                                  {QStringLiteral("failure"), PageFailureName(page.Failure)},
                                  {QStringLiteral("http_status"), page.HttpStatus},
                                  {QStringLiteral("page"), page.IsIndex ? QStringLiteral("index")
                                                                        : QStringLiteral("main-category")}});
    const QJsonObject report{{QStringLiteral("command"), QStringLiteral("refresh")},
                             {QStringLiteral("site"), siteLabel},
                             {QStringLiteral("outcome"), OutcomeName(result.Outcome)},
                             {QStringLiteral("main_categories"), result.MainCount},
                             {QStringLiteral("sub_categories"), result.SubCount},
                             {QStringLiteral("failed_pages"), failed},
                             {QStringLiteral("save_failed"), result.SaveFailed},
                             {QStringLiteral("message"), result.Message}};
    return QJsonDocument(report).toJson();
}
