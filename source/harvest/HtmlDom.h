#pragma once

#include "BrowserPage.h"

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <memory>

// No element lies deeper than this (the root at depth 1). An element that would is ended where it
// starts, and what it holds becomes the content of its parent, in document order, so
// its text and links are kept though the nesting below the cap is lost.
inline constexpr int HtmlMaxTreeDepth = 200;
// A page that holds more elements open at once than this is read up to that point and no further:
// the parser's cost for each end tag grows with the elements open, so hostile tag soup would
// otherwise take hours.
inline constexpr int HtmlMaxOpenElements = 256;

// Parses a page into the element facade. The bytes are decoded by httpCharset when it names a
// known charset, else by the page's meta charset, else as windows-1252. Never returns null; bytes
// that are no HTML at all give a document without links.
std::unique_ptr<HtmlDocument> ParseHtmlDocument(const QByteArray& body, const QString& httpCharset,
                                                const QUrl& pageUrl);
// A document without elements, for a load that failed or was abandoned.
std::unique_ptr<HtmlDocument> EmptyHtmlDocument();
// The charset that a meta tag near the start of the page names, or an empty string.
QString MetaCharset(const QByteArray& body);
