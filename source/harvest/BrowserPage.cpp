#include "BrowserPage.h"

#include "HtmlDom.h"
#include "PageSource.h"

#include <QUrl>

BrowserPage::BrowserPage(PageSource* source) : m_source(source) {}

BrowserPage::~BrowserPage() = default;

void BrowserPage::Navigate(const QString& url) {
    m_load.reset();
    m_document.reset();
    m_url = url;
    m_httpStatus = 0;
    m_failure = PageFailure::None;
    m_navigated = true;
    PageSource& source = m_source ? *m_source : DefaultPageSource();
    m_load = source.Start(QUrl(url.trimmed()));
}

int BrowserPage::ReadyState() const {
    if (!m_navigated)
        return 0;
    if (!m_load || m_load->IsFinished())
        return 4;
    return 1;
}

HtmlDocument* BrowserPage::Document() {
    if (ReadyState() != 4)
        return nullptr;
    if (!m_document) {
        // Parsed here, on first use, so a page nobody reads costs no parse.
        if (m_load && m_load->IsFinished()) {
            const PageResponse response = m_load->TakeResponse();
            m_httpStatus = response.httpStatus;
            m_failure = response.failure;
            m_document = response.ok
                             ? ParseHtmlDocument(response.body, response.httpCharset, response.finalUrl)
                             : EmptyHtmlDocument();
        } else {
            m_failure = PageFailure::Aborted;
            m_document = EmptyHtmlDocument();
        }
        m_load.reset();
    }
    return m_document.get();
}

void BrowserPage::Stop() {
    if (!m_navigated || ReadyState() == 4)
        return;
    m_load.reset();
}

void BrowserPage::Quit() {
    m_load.reset();
    m_document.reset();
    m_navigated = false;
}
