#include "HtmlDom.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstring>
#include <deque>
#include <libxml/HTMLparser.h>
#include <libxml/SAX2.h>
#include <libxml/encoding.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

namespace {

bool NameIs(const xmlNode* node, const char* name) {
    return node->name && std::strcmp(reinterpret_cast<const char*>(node->name), name) == 0;
}

bool NameIn(const xmlNode* node, std::initializer_list<const char*> names) {
    for (const char* name : names)
        if (NameIs(node, name))
            return true;
    return false;
}

bool IsElement(const xmlNode* node) {
    return node && node->type == XML_ELEMENT_NODE;
}

bool IsVoidElement(const xmlNode* node) {
    return NameIn(node, {"area", "base", "basefont", "bgsound", "br", "col", "embed", "frame", "hr", "img",
                         "input", "keygen", "link", "meta", "param", "source", "track", "wbr"});
}

// Text inside these is written out as it came; we run no scripts, so noscript is ordinary markup.
bool IsRawTextElement(const xmlNode* node) {
    return NameIn(node, {"script", "style", "xmp", "iframe", "noembed", "noframes", "plaintext"});
}

bool IsBlockElement(const xmlNode* node) {
    return NameIn(node, {"address", "article", "aside",    "blockquote", "caption", "center", "dd", "div",
                         "dl",      "dt",      "fieldset", "figure",     "footer",  "form",   "h1", "h2",
                         "h3",      "h4",      "h5",       "h6",         "header",  "hr",     "li", "main",
                         "nav",     "ol",      "p",        "pre",        "section", "table",  "tr", "ul"});
}

// Pre-order walk of root's descendants without recursion. enter(node) returns whether to go into
// the node's children; leave(node) follows every enter, after the children.
template <class Enter, class Leave> void WalkChildren(xmlNodePtr root, Enter&& enter, Leave&& leave) {
    xmlNodePtr node = root->children;
    while (node) {
        if (enter(node) && node->children) {
            node = node->children;
            continue;
        }
        leave(node);
        while (!node->next) {
            node = node->parent;
            if (!node || node == root)
                return;
            leave(node);
        }
        node = node->next;
    }
}

QByteArray AttributeValue(const xmlAttr* attr) {
    const xmlNode* text = attr->children;
    if (!text)
        return {};
    if (text->type == XML_TEXT_NODE && !text->next)
        return QByteArray(reinterpret_cast<const char*>(text->content));
    xmlChar* value = xmlNodeGetContent(reinterpret_cast<const xmlNode*>(attr));
    QByteArray result(reinterpret_cast<const char*>(value));
    xmlFree(value);
    return result;
}

const xmlAttr* FindAttribute(const xmlNode* node, const char* name) {
    for (const xmlAttr* attr = node->properties; attr; attr = attr->next)
        if (attr->name && std::strcmp(reinterpret_cast<const char*>(attr->name), name) == 0)
            return attr;
    return nullptr;
}

void AppendUpper(QByteArray& out, const xmlChar* name) {
    for (const xmlChar* p = name; p && *p; ++p)
        out.append((*p >= 'a' && *p <= 'z') ? char(*p - 'a' + 'A') : char(*p));
}

// The escapes of the fragment serialization; the text is UTF-8, where a no-break space is C2 A0.
void AppendEscaped(QByteArray& out, const xmlChar* text, bool attributeMode) {
    if (!text)
        return;
    for (const xmlChar* p = text; *p; ++p) {
        switch (*p) {
        case '&':
            out.append("&amp;");
            break;
        case '"':
            out.append(attributeMode ? "&quot;" : "\"");
            break;
        case '<':
            out.append(attributeMode ? "<" : "&lt;");
            break;
        case '>':
            out.append(attributeMode ? ">" : "&gt;");
            break;
        case 0xC2:
            if (p[1] == 0xA0) {
                out.append("&nbsp;");
                ++p;
                break;
            }
            out.append(char(*p));
            break;
        default:
            out.append(char(*p));
        }
    }
}

void AppendStartTag(QByteArray& out, const xmlNode* node) {
    out.append('<');
    AppendUpper(out, node->name);
    for (const xmlAttr* attr = node->properties; attr; attr = attr->next) {
        out.append(' ');
        out.append(reinterpret_cast<const char*>(attr->name));
        out.append("=\"");
        const QByteArray value = AttributeValue(attr);
        AppendEscaped(out, reinterpret_cast<const xmlChar*>(value.constData()), true);
        out.append('"');
    }
    out.append('>');
}

void AppendEndTag(QByteArray& out, const xmlNode* node) {
    out.append("</");
    AppendUpper(out, node->name);
    out.append('>');
}

void SerializeChildren(xmlNodePtr root, QByteArray& out) {
    WalkChildren(
        root,
        [&out](xmlNodePtr node) {
            switch (node->type) {
            case XML_ELEMENT_NODE:
                AppendStartTag(out, node);
                return !IsVoidElement(node);
            case XML_TEXT_NODE:
                if (IsElement(node->parent) && IsRawTextElement(node->parent))
                    out.append(reinterpret_cast<const char*>(node->content));
                else
                    AppendEscaped(out, node->content, false);
                return false;
            case XML_CDATA_SECTION_NODE:
                out.append(reinterpret_cast<const char*>(node->content));
                return false;
            case XML_COMMENT_NODE:
                out.append("<!--");
                out.append(reinterpret_cast<const char*>(node->content));
                out.append("-->");
                return false;
            case XML_PI_NODE:
                out.append("<?");
                out.append(reinterpret_cast<const char*>(node->name));
                if (node->content) {
                    out.append(' ');
                    out.append(reinterpret_cast<const char*>(node->content));
                }
                out.append('>');
                return false;
            default:
                return false;
            }
        },
        [&out](xmlNodePtr node) {
            if (node->type == XML_ELEMENT_NODE && !IsVoidElement(node))
                AppendEndTag(out, node);
        });
}

bool IsHtmlSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// The rendered text: runs of white space fold to one blank, a <br> is a line break, a block element
// starts and ends a line, cells are parted by a blank. Lines end in "\r\n", as the platform's
// browser gives them. A no-break space is kept as the character it is. Script, style and the head
// are no rendered text.
QString InnerText(xmlNodePtr root) {
    QByteArray out;
    bool pendingSpace = false;
    bool blockBreak = false;
    int forcedBreaks = 0;
    auto appendText = [&](const char* text) {
        for (const char* p = text; *p; ++p) {
            if (IsHtmlSpace(*p)) {
                pendingSpace = true;
                continue;
            }
            if (!out.isEmpty()) {
                const int breaks = std::max(forcedBreaks, blockBreak ? 1 : 0);
                if (breaks > 0) {
                    for (int i = 0; i < breaks; ++i)
                        out.append("\r\n");
                } else if (pendingSpace) {
                    out.append(' ');
                }
            }
            pendingSpace = false;
            blockBreak = false;
            forcedBreaks = 0;
            out.append(*p);
        }
    };
    WalkChildren(
        root,
        [&](xmlNodePtr node) {
            if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
                if (node->content)
                    appendText(reinterpret_cast<const char*>(node->content));
                return false;
            }
            if (node->type != XML_ELEMENT_NODE)
                return false;
            if (NameIn(node, {"script", "style", "head", "title"}))
                return false;
            if (NameIs(node, "br"))
                ++forcedBreaks;
            else if (IsBlockElement(node))
                blockBreak = true;
            else if (NameIn(node, {"td", "th"}))
                pendingSpace = true;
            return true;
        },
        [&](xmlNodePtr node) {
            if (node->type == XML_ELEMENT_NODE && IsBlockElement(node))
                blockBreak = true;
        });
    return QString::fromUtf8(out);
}

class DomDocument;

class DomElement final : public HtmlElement {
public:
    DomElement(xmlNodePtr node, const DomDocument* document) : m_node(node), m_document(document) {}
    QString DefaultValue() const override;
    QString innerHTML() const override {
        QByteArray out;
        if (!IsVoidElement(m_node))
            SerializeChildren(m_node, out);
        return QString::fromUtf8(out);
    }
    QString outerHTML() const override {
        QByteArray out;
        AppendStartTag(out, m_node);
        if (!IsVoidElement(m_node)) {
            SerializeChildren(m_node, out);
            AppendEndTag(out, m_node);
        }
        return QString::fromUtf8(out);
    }
    QString innerText() const override { return InnerText(m_node); }
    HtmlElement* parentElement() const override {
        xmlNodePtr parent = m_node->parent;
        return IsElement(parent) ? static_cast<DomElement*>(parent->_private) : nullptr;
    }
    QString tagName() const override {
        QByteArray name;
        AppendUpper(name, m_node->name);
        return QString::fromUtf8(name);
    }

private:
    xmlNodePtr m_node;
    const DomDocument* m_document;
};

class DomDocument final : public HtmlDocument {
public:
    DomDocument(htmlDocPtr doc, const QUrl& pageUrl) : m_doc(doc), m_baseUrl(pageUrl) {
        if (!m_doc)
            return;
        bool baseSeen = false;
        WalkChildren(
            reinterpret_cast<xmlNodePtr>(m_doc),
            [&](xmlNodePtr node) {
                if (node->type != XML_ELEMENT_NODE)
                    return false;
                DomElement& element = m_elements.emplace_back(node, this);
                node->_private = &element;
                m_all.push_back(&element);
                if (NameIn(node, {"a", "area"}) && FindAttribute(node, "href"))
                    m_links.push_back(&element);
                else if (!baseSeen && NameIs(node, "base")) {
                    if (const xmlAttr* href = FindAttribute(node, "href")) {
                        baseSeen = true;
                        const QString value = QString::fromUtf8(AttributeValue(href)).trimmed();
                        m_baseUrl = pageUrl.resolved(QUrl(value));
                    }
                }
                return true;
            },
            [](xmlNodePtr) {});
        if (xmlNodePtr root = xmlDocGetRootElement(m_doc))
            m_root = static_cast<DomElement*>(root->_private);
    }
    ~DomDocument() override {
        if (m_doc)
            xmlFreeDoc(m_doc);
    }
    DomDocument(const DomDocument&) = delete;
    DomDocument& operator=(const DomDocument&) = delete;

    const std::vector<HtmlElement*>& links() const override { return m_links; }
    const std::vector<HtmlElement*>& all() const override { return m_all; }
    HtmlElement* documentElement() const override { return m_root; }
    const QUrl& BaseUrl() const { return m_baseUrl; }

private:
    htmlDocPtr m_doc;
    QUrl m_baseUrl;
    std::deque<DomElement> m_elements;
    std::vector<HtmlElement*> m_all;
    std::vector<HtmlElement*> m_links;
    HtmlElement* m_root = nullptr;
};

QString DomElement::DefaultValue() const {
    if (!NameIn(m_node, {"a", "area"}))
        return QStringLiteral("[object]");
    const xmlAttr* href = FindAttribute(m_node, "href");
    if (!href)
        return QStringLiteral("[object]");
    const QString value = QString::fromUtf8(AttributeValue(href)).trimmed();
    const QUrl url(value);
    if (!url.isRelative())
        return value;
    return m_document->BaseUrl().resolved(url).toString();
}

// windows-1252's bytes 0x80..0x9F; the five it leaves undefined map to the C1 controls.
constexpr std::array<char16_t, 32> Cp1252High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

QString DecodeCp1252(const QByteArray& body) {
    QString text(body.size(), Qt::Uninitialized);
    QChar* out = text.data();
    for (const char c : body) {
        const auto byte = static_cast<unsigned char>(c);
        *out++ = (byte >= 0x80 && byte < 0xA0) ? QChar(Cp1252High[byte - 0x80]) : QChar(byte);
    }
    return text;
}

enum class Charset { Utf8, Cp1252, Other, Unknown };

Charset Classify(const QString& name) {
    const QString n = name.trimmed().toLower();
    if (n.isEmpty())
        return Charset::Unknown;
    if (n == u"utf-8" || n == u"utf8")
        return Charset::Utf8;
    // Browsers read Latin-1 and ASCII pages as windows-1252, its superset.
    if (n == u"windows-1252" || n == u"cp1252" || n == u"iso-8859-1" || n == u"iso8859-1" || n == u"latin1" ||
        n == u"l1" || n == u"us-ascii" || n == u"ascii" || n == u"x-cp1252")
        return Charset::Cp1252;
    if (xmlCharEncodingHandlerPtr handler = xmlFindCharEncodingHandler(n.toLatin1().constData())) {
        xmlCharEncCloseFunc(handler);
        return Charset::Other;
    }
    return Charset::Unknown;
}

// The parser gives up on a whole page once its tree grows deeper than its own limit, losing
// everything after that point. So an element that would lie deeper than our cap is ended as soon as
// it starts, and what it holds goes to the element at the cap: the tree is flattened there and
// every link and word of the page is kept. The parser reports each element's end once, implied or
// written, so a stack of flags tells which ends to swallow.
struct DepthCap {
    std::vector<bool> flattened;
};

void CappedStartElement(void* context, const xmlChar* name, const xmlChar** attributes) {
    auto* parser = static_cast<htmlParserCtxtPtr>(context);
    auto* cap = static_cast<DepthCap*>(parser->_private);
    if (parser->nameNr > HtmlMaxOpenElements) {
        // The parser may still report the ends of the elements open; they are swallowed.
        cap->flattened.push_back(true);
        xmlStopParser(parser);
        return;
    }
    const bool flatten = parser->nodeNr >= HtmlMaxTreeDepth - 1;
    cap->flattened.push_back(flatten);
    xmlSAX2StartElement(context, name, attributes);
    if (flatten)
        xmlSAX2EndElement(context, name);
}

void CappedEndElement(void* context, const xmlChar* name) {
    auto* parser = static_cast<htmlParserCtxtPtr>(context);
    auto* cap = static_cast<DepthCap*>(parser->_private);
    bool flattened = false;
    if (!cap->flattened.empty()) {
        flattened = cap->flattened.back();
        cap->flattened.pop_back();
    }
    if (!flattened)
        xmlSAX2EndElement(context, name);
}

htmlDocPtr ReadCapped(const QByteArray& text, const QByteArray& url, const char* encoding) {
    htmlParserCtxtPtr parser = htmlNewParserCtxt();
    if (!parser)
        return nullptr;
    DepthCap cap;
    parser->_private = &cap;
    parser->sax->startElement = CappedStartElement;
    parser->sax->endElement = CappedEndElement;
    htmlDocPtr doc =
        htmlCtxtReadMemory(parser, text.constData(), int(std::min<qsizetype>(text.size(), INT_MAX)),
                           url.isEmpty() ? nullptr : url.constData(), encoding,
                           HTML_PARSE_RECOVER | HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING);
    htmlFreeParserCtxt(parser);
    return doc;
}

} // namespace

QString MetaCharset(const QByteArray& body) {
    const QByteArray head = body.left(4096).toLower();
    qsizetype from = 0;
    while ((from = head.indexOf("<meta", from)) >= 0) {
        const qsizetype end = head.indexOf('>', from);
        const QByteArray tag = head.mid(from, end < 0 ? -1 : end - from);
        from += 5;
        const qsizetype at = tag.indexOf("charset");
        if (at < 0)
            continue;
        qsizetype i = at + 7;
        while (i < tag.size() && IsHtmlSpace(tag[i]))
            ++i;
        if (i >= tag.size() || tag[i] != '=')
            continue;
        ++i;
        while (i < tag.size() && (IsHtmlSpace(tag[i]) || tag[i] == '"' || tag[i] == '\''))
            ++i;
        qsizetype j = i;
        while (j < tag.size() && (std::isalnum(static_cast<unsigned char>(tag[j])) || tag[j] == '-' ||
                                  tag[j] == '_' || tag[j] == '.' || tag[j] == ':'))
            ++j;
        if (j > i)
            return QString::fromLatin1(tag.mid(i, j - i));
    }
    return {};
}

std::unique_ptr<HtmlDocument> EmptyHtmlDocument() {
    return std::make_unique<DomDocument>(nullptr, QUrl());
}

std::unique_ptr<HtmlDocument> ParseHtmlDocument(const QByteArray& body, const QString& httpCharset,
                                                const QUrl& pageUrl) {
    if (body.isEmpty())
        return std::make_unique<DomDocument>(nullptr, pageUrl);

    QString charsetName = httpCharset;
    Charset charset = Classify(charsetName);
    if (body.startsWith("\xEF\xBB\xBF")) {
        charset = Charset::Utf8;
    } else if (charset == Charset::Unknown) {
        charsetName = MetaCharset(body);
        charset = Classify(charsetName);
    }
    if (charset == Charset::Unknown)
        charset = Charset::Cp1252;

    // UTF-8 and windows-1252, nearly every page, are decoded here: bad bytes become U+FFFD instead
    // of ending the parse, and NUL, which would end the text for the parser, becomes U+FFFD too.
    QByteArray utf8;
    const char* encoding = "UTF-8";
    if (charset == Charset::Other) {
        utf8 = body;
        charsetName = charsetName.trimmed().toLower();
    } else {
        QString text = charset == Charset::Utf8 ? QString::fromUtf8(body) : DecodeCp1252(body);
        text.replace(QChar(0), QChar(QChar::ReplacementCharacter));
        utf8 = text.toUtf8();
    }
    const QByteArray otherName = charsetName.toLatin1();
    if (charset == Charset::Other)
        encoding = otherName.constData();

    return std::make_unique<DomDocument>(ReadCapped(utf8, pageUrl.toEncoded(), encoding), pageUrl);
}
