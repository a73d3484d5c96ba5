#pragma once

#include "PageSource.h"

#include <QString>
#include <QStringView>
#include <memory>
#include <vector>

class PageLoad;
class HtmlDocument;

// One element of a loaded page, as the listing scan and the category crawl read it.
// Elements belong to their document and live as long as it does.
class HtmlElement {
public:
    virtual ~HtmlElement() = default;
    // For a link (an anchor or area with an href) its target as an absolute URL: an href that names
    // a scheme as written, a relative one resolved against the page's base with its percent escapes
    // kept, as a browser's href property gives it. For any other element "[object]".
    virtual QString DefaultValue() const = 0;
    // The markup inside the element, element names in capitals ("<IMG ..."), text escaped as the
    // HTML fragment serialization escapes it.
    virtual QString innerHTML() const = 0;
    virtual QString outerHTML() const = 0;
    // The text without markup: runs of white space folded to one blank, trimmed; a line break for
    // <br> and between block elements.
    virtual QString innerText() const = 0;
    // The enclosing element, or nullptr.
    virtual HtmlElement* parentElement() const = 0;
    // The element's name in capitals, such as "B".
    virtual QString tagName() const = 0;

    // DefaultValue().startsWith(prefix) and innerHTML().startsWith(prefix), case-sensitive, for
    // a walk that looks at the start only: they read no more of the element than that needs.
    virtual bool DefaultValueStartsWith(QStringView prefix) const {
        return DefaultValue().startsWith(prefix);
    }
    virtual bool InnerHtmlStartsWith(QStringView prefix) const { return innerHTML().startsWith(prefix); }
};

class HtmlDocument {
public:
    virtual ~HtmlDocument() = default;
    // Anchors and areas with an href, in document order.
    virtual const std::vector<HtmlElement*>& links() const = 0;
    // Every element, in document order.
    virtual const std::vector<HtmlElement*>& all() const = 0;
    // The root element, or nullptr for a page without elements.
    virtual HtmlElement* documentElement() const = 0;
};

// The stand-in for the platform's unseen browser object with its loaded document.
// Order of use: construct, Navigate, read ReadyState until it is 4 (yielding between reads),
// Document, read, Quit.
class BrowserPage final {
public:
    // Loads through the given source, or through the process's default source when null.
    explicit BrowserPage(PageSource* source = nullptr);
    ~BrowserPage();
    BrowserPage(const BrowserPage&) = delete;
    BrowserPage& operator=(const BrowserPage&) = delete;

    // Starts loading the URL and returns at once. Works again on a page that has loaded.
    void Navigate(const QString& url);
    // 4 once the load has ended, whether it succeeded or not; 1 while it goes on; 0 before the first
    // Navigate and after Quit.
    int ReadyState() const;
    // Once ReadyState is 4 the loaded page, never null: a failed load gives a page without
    // elements. Null before that. Valid until the next Navigate or Quit.
    HtmlDocument* Document();
    // How the last load ended, once Document() has been taken: the status of the answer and why
    // it gave no page. A Stop or Quit before that reads as Aborted.
    int HttpStatus() const { return m_httpStatus; }
    PageFailure Failure() const { return m_failure; }
    // Abandons a load in progress: ReadyState turns 4 with a page without elements.
    void Stop();
    // Ends the browser: any load is abandoned and the document released.
    void Quit();

private:
    PageSource* m_source;
    // Null once the load has ended: its page taken, stopped or quit.
    std::unique_ptr<PageLoad> m_load;
    std::unique_ptr<HtmlDocument> m_document;
    QString m_url;
    int m_httpStatus = 0;
    PageFailure m_failure = PageFailure::None;
    bool m_navigated = false;
};
