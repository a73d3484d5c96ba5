#include "modParser.h"

#include "ApiScan.h"
#include "BrowserPage.h"
#include "CategoryTree.h"
#include "DataPaths.h"
#include "HarvestObserver.h"
#include "HostHooks.h"
#include "TallyObserver.h"
#include "VbNumeric.h"

#include <QFile>
#include <QStringDecoder>
#include <limits>

// ---- The keyword tally ----

bool AuctionLimitReached() {
    return HarvestState.MaxAuctions != NoAuctionLimit &&
           HarvestState.AuctionsScanned >= HarvestState.MaxAuctions;
}

QString DecodeWordFile(const QByteArray& bytes) {
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8.decode(bytes);
    if (utf8.hasError())
        text = QString::fromLatin1(bytes);
    if (text.startsWith(QChar(0xFEFF)))
        text.remove(0, 1);
    return text;
}

namespace {

bool stopRequested() {
    return HarvestState.StopRequested == FlagTrue;
}

} // namespace

bool WalkEndsAfterItem(ScannedPage& seen, bool lastItem) {
    const bool stopped = stopRequested();
    if (!stopped && !AuctionLimitReached())
        return false;
    HarvestState.ScanHalted = FlagTrue;
    seen.walkedToEnd = !stopped && lastItem;
    return true;
}

void LoadExclusions() {
    LoadExclusionsFrom(ExclusionFilePath());
}

void LoadExclusionsFrom(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        // A missing list excludes nothing; the host tells the user and the search goes on.
        Hooks().ExclusionFileUnreadable(path);
        return;
    }
    const QString text = DecodeWordFile(file.readAll());
    // Line ends are dropped and the lines joined with nothing between them, seams included.
    qsizetype start = 0;
    while (start < text.size()) {
        qsizetype end = start;
        while (end < text.size() && text[end] != u'\n' && text[end] != u'\r')
            ++end;
        const QStringView line = QStringView(text).mid(start, end - start);
        HarvestState.ExclusionText.append(line);
        HarvestState.ExclusionIndex.Append(line.toString().toUpper());
        if (end + 1 < text.size() && text[end] == u'\r' && text[end + 1] == u'\n')
            ++end;
        start = end + 1;
    }
}

void ResetKeywordTable() {
    HarvestState.KeywordTable.Reset();
}

// The tally does without this answer (see TallyTitle), so it searches the text itself rather than
// keep an index of it that would cost more memory than the words.
bool IsKeywordSeen(const QString& upperWord) {
    if (HarvestState.SeenKeywords.isEmpty())
        return false;
    return HarvestState.SeenKeywords.toUpper().contains(upperWord.toUpper(), Qt::CaseSensitive);
}

namespace {

// Steps 6 and 7 of a piece: one cleaning, the first that fits. Returns false when the piece is
// dropped.
bool cleanPiece(QString& piece) {
    // Only b and B upper-case to B, so a case-blind comparison is the upper-cased one.
    if (piece.endsWith(u"</B>", Qt::CaseInsensitive)) {
        piece.chop(4);
    } else if (piece.startsWith(u"<B>", Qt::CaseInsensitive)) {
        piece.remove(0, 3);
    } else if (piece.contains(u"&amp;", Qt::CaseInsensitive)) {
        piece.replace(QStringLiteral("&amp;"), QStringLiteral("&"), Qt::CaseSensitive);
    }
    return !piece.isEmpty() && piece != u"&";
}

void raiseCount(qsizetype column) {
    KeywordGrid& table = HarvestState.KeywordTable;
    // A count goes through a 32-bit integer; it cannot get near its end in one search, but a
    // wrap would show a negative count, so it stops at the top instead.
    const qint64 count = qint64(table.CountValue(column)) + 1;
    table.SetCount(column, std::int32_t(std::min<qint64>(count, std::numeric_limits<std::int32_t>::max())));
}

qsizetype addKeyword(const QString& word, const QString& upperWord) {
    ++HarvestState.KeywordsFound;
    Hooks().SetMainTotalCaption(QStringLiteral("Keywords Found: ") +
                                QString::number(HarvestState.KeywordsFound));
    const qsizetype column = HarvestState.KeywordTable.Add(word, upperWord);
    HarvestState.SeenKeywords.append(word);
    return column;
}

} // namespace

void TallyTitle(const QString& title) {
    TallyObserver* observer = CurrentTallyObserver();
    if (observer)
        observer->TitleStarted(title);
    // An empty title gives no pieces at all, so not even a yield.
    if (title.isEmpty())
        return;
    const QLocale locale = NumericLocale();
    qsizetype start = 0;
    for (;;) {
        qsizetype end = title.indexOf(u' ', start);
        const bool last = end < 0;
        if (last)
            end = title.size();
        QString piece = title.mid(start, end - start);
        start = end + 1;

        Hooks().Yield();
        if (stopRequested())
            return;
        // The tests have no side effects until the cleaning, so the cheap ones go first.
        QString upperWord;
        const qsizetype uncleanSize = piece.size();
        const bool dropped = piece.size() <= 1 || IsNumeric(piece, locale) ||
                             HarvestState.ExclusionIndex.Contains(upperWord = piece.toUpper()) ||
                             !cleanPiece(piece);
        if (!dropped) {
            // Every cleaning shortens the piece, so an unchanged size is an unchanged piece.
            if (piece.size() != uncleanSize)
                upperWord = piece.toUpper();
            // The seen-text is only a hint, and the table's index answers alone: a word with an
            // entry is always in the seen-text, and a word without one gets a new entry whatever
            // the seen-text says. Asking the hint would only cost a search of it.
            qsizetype column = HarvestState.KeywordTable.Find(upperWord);
            if (column > 0)
                raiseCount(column);
            else
                column = addKeyword(piece, upperWord);
            if (observer)
                observer->PieceTallied(column);
        } else if (observer && !piece.isEmpty()) {
            observer->PieceTallied(0);
        }
        if (last)
            return;
    }
}

// ---- The listing scan ----

std::int16_t ReadPageCount(const QString& outerHtml) {
    // Positions here are 0-based; the markers are found from the first character, ignoring case.
    const qsizetype p = outerHtml.indexOf(u"<b>Page", 0, Qt::CaseInsensitive);
    if (p < 0)
        return 0;
    // The fragment is p + 30 characters long counted from 1, the marker's position plus 30.
    const QString fragment = outerHtml.mid(p, (p + 1) + 30);
    const qsizetype q = fragment.indexOf(u"</B> of", 0, Qt::CaseInsensitive);
    const qsizetype r = fragment.indexOf(u"</TD>", 0, Qt::CaseInsensitive);
    // A page without the markers, or with them in the wrong order, states no count: 0, and the
    // next page tries again.
    if (q < 0 || r < 0)
        return 0;
    const qsizetype start = q + 7;
    if (r < start)
        return 0;
    const Int16Conversion count = ToInt16(QStringView(fragment).mid(start, r - start).trimmed());
    return count.status == ConversionStatus::Ok ? count.value : 0;
}

void ScanListingPage(const QString& url) {
    // The one point where the two sources part: the address says which the entry is.
    if (IsApiSearchUrl(url)) {
        ScanApiPage(url);
        return;
    }
    if (stopRequested())
        return;
    HarvestObserver* observer = CurrentHarvestObserver();
    ScannedPage seen;
    BrowserPage page;
    page.Navigate(url);
    while (page.ReadyState() != 4) {
        Hooks().WaitForEvents();
        // A stop confirmed during the load drops the page unwalked, so there is no need to wait
        // for the rest of it.
        if (stopRequested())
            page.Stop();
    }
    if (stopRequested()) {
        page.Quit();
        if (observer) {
            seen.url = url;
            seen.failure = PageFailure::Aborted;
            observer->PageScanned(seen);
        }
        return;
    }
    HtmlDocument* document = page.Document();
    if (HarvestState.PageCount == 0) {
        const HtmlElement* root = document->documentElement();
        HarvestState.PageCount = ReadPageCount(root ? root->outerHTML() : QString());
    }
    const QString prefix = ItemPagePrefix(Hooks().SiteLabel());
    seen.walked = true;
    seen.walkedToEnd = true;
    for (const HtmlElement* anchor : document->links()) {
        Hooks().Yield();
        if (stopRequested()) {
            HarvestState.ScanHalted = FlagTrue;
            seen.walkedToEnd = false;
            break;
        }
        // Only the starts of the target and the markup decide, so only an auction's title is
        // written out whole.
        if (anchor->DefaultValueStartsWith(prefix) && !anchor->InnerHtmlStartsWith(u"<IMG")) {
            ++HarvestState.AuctionsScanned;
            ++seen.auctionLinks;
            TallyTitle(anchor->innerHTML());
        }
        if (WalkEndsAfterItem(seen, anchor == document->links().back()))
            break;
    }
    if (observer) {
        seen.url = url;
        seen.httpStatus = page.HttpStatus();
        seen.failure = page.Failure();
        observer->PageScanned(seen);
    }
    page.Quit();
}

QString ResultPageUrl(std::int16_t pageNumber, const QString& firstPageUrl) {
    if (IsApiSearchUrl(firstPageUrl))
        return ApiResultPageUrl(pageNumber, firstPageUrl);
    const qsizetype i = firstPageUrl.indexOf(u"QQsacat", 0, Qt::CaseInsensitive);
    if (i < 0)
        return QString();
    return firstPageUrl.left(i) + QStringLiteral("QQlopgZ") + QString::number(pageNumber) +
           firstPageUrl.mid(i);
}

Flag ScanResultPage(std::int16_t pageNumber, const QString& firstPageUrl) {
    const QString url = ResultPageUrl(pageNumber, firstPageUrl);
    // A URL without the key has no page form: rather than ask the site for an address it never
    // gave, the run ends here.
    if (url.isEmpty())
        return FlagTrue;
    ScanListingPage(url);
    return HarvestState.ScanHalted == FlagTrue || stopRequested() ? FlagTrue : FlagFalse;
}

// ---- The harvest run ----

QString PrepareListingUrl(const QString& url) {
    QString prepared = url;
    prepared.replace(QStringLiteral("QQsorecordsperpageZ200"), QStringLiteral("QQsorecordsperpageZ50"),
                     Qt::CaseSensitive);
    return prepared;
}

SearchScope ScopeOfPath(const QString& fullPath) {
    switch (fullPath.count(u'~')) {
    case 0:
        return ScopeAllCategories;
    case 1:
        return ScopeMainCategory;
    case 2:
        return ScopeSubCategory;
    default:
        return 0;
    }
}

namespace {

// The yield at the head of a step of a walk. A stop confirmed in it may have rebuilt the tree,
// so the step reads no node after it and the run ends.
bool yieldAndContinue() {
    Hooks().Yield();
    return !stopRequested();
}

bool runMustEnd() {
    return stopRequested() || HarvestState.ScanHalted == FlagTrue;
}

// The hint for a watcher: the URLs of the sub-categories that the walk will scan, in its order.
// Worked out only when someone watches, and before the first yield, so it reads the nodes that
// the walk reads. API addresses are left out: they are asked for with a token, never ahead.
void tellSubCategoriesAhead(SearchScope scope, const CategoryNode* selected) {
    HarvestObserver* observer = CurrentHarvestObserver();
    if (!observer || !selected)
        return;
    QStringList urls;
    const auto hint = [&urls](const QString& url) {
        if (!IsApiSearchUrl(url))
            urls << PrepareListingUrl(url);
    };
    if (scope == ScopeAllCategories) {
        for (const CategoryNode* main = selected->Child(); main; main = main->Next())
            for (const CategoryNode* sub = main->Child(); sub; sub = sub->Next())
                hint(sub->Key());
    } else {
        const CategoryNode* cursor = selected->Child();
        for (int step = 1; step <= selected->Children() && cursor; ++step, cursor = cursor->Next())
            hint(cursor->Key());
    }
    observer->PagesAhead(urls);
}

void tellResultPagesAhead(std::int16_t last, const QString& prepared) {
    HarvestObserver* observer = CurrentHarvestObserver();
    if (!observer || IsApiSearchUrl(prepared))
        return;
    QStringList urls;
    for (int pageNumber = 2; pageNumber <= last; ++pageNumber) {
        const QString url = ResultPageUrl(std::int16_t(pageNumber), prepared);
        if (url.isEmpty())
            break;
        urls << url;
    }
    observer->PagesAhead(urls);
}

} // namespace

// The tree argument only keeps the nodes alive for the length of the walk.
void RunHarvest(SearchScope scope, const QString& url, std::shared_ptr<const CategoryTree> /*tree*/,
                const CategoryNode* selected) {
    HarvestState.ScanHalted = FlagFalse;
    HarvestState.PageCount = 0;
    LoadExclusions();
    ResetKeywordTable();

    switch (scope) {
    case ScopeAllCategories:
        tellSubCategoriesAhead(scope, selected);
        for (const CategoryNode* main = selected ? selected->Child() : nullptr; main; main = main->Next()) {
            for (const CategoryNode* sub = main->Child(); sub; sub = sub->Next()) {
                if (!yieldAndContinue())
                    return;
                ScanListingPage(PrepareListingUrl(sub->Key()));
                if (runMustEnd())
                    return;
            }
        }
        break;
    case ScopeMainCategory: {
        const int n = selected ? selected->Children() : 0;
        tellSubCategoriesAhead(scope, selected);
        const CategoryNode* cursor = nullptr;
        for (int step = 1; step <= n; ++step) {
            if (!yieldAndContinue())
                return;
            cursor = step == 1 ? selected->Child() : cursor->Next();
            if (!cursor)
                return;
            ScanListingPage(PrepareListingUrl(cursor->Key()));
            if (runMustEnd())
                return;
        }
        break;
    }
    case ScopeSubCategory: {
        const QString prepared = PrepareListingUrl(url);
        ScanListingPage(prepared);
        if (stopRequested())
            return;
        const std::int16_t last = HarvestState.PageCount;
        tellResultPagesAhead(last, prepared);
        for (std::int16_t pageNumber = 2; pageNumber <= last && pageNumber > 0; ++pageNumber) {
            Hooks().Yield();
            if (ScanResultPage(pageNumber, prepared) == FlagTrue)
                return;
            if (pageNumber == std::numeric_limits<std::int16_t>::max())
                break;
        }
        break;
    }
    default:
        break;
    }
}
