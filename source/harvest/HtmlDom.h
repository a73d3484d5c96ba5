#pragma once

#include "BrowserPage.h"
#include "PageText.h"

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <memory>

// No element lies deeper than this (the root at depth 1), as in a browser: an element that opens
// deeper is attached to the element at the cap and ends at once, and what it holds goes to the
// element at the cap, so text and links keep their order.
inline constexpr int HtmlMaxTreeDepth = 512;
// Except in a link: a link may open just past the cap, and what a link holds, its title, may lie
// this many levels deeper than the cap, since a link's title is what the harvest reads.
inline constexpr int HtmlMaxDepthInLink = 64;

// Parses a page into the element facade. The bytes are decoded as DecodePageText says; the markup
// is split into tokens as a browser splits it (NormaliseHtml) and libxml2's HTML parser builds the
// tree. Never returns null; bytes that are no HTML at all give a document without links. Nothing
// is written to standard error.
std::unique_ptr<HtmlDocument> ParseHtmlDocument(const QByteArray& body, const QString& httpCharset,
                                                const QUrl& pageUrl);
// A document without elements, for a load that failed or was abandoned.
std::unique_ptr<HtmlDocument> EmptyHtmlDocument();
