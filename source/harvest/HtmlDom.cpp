#include "HtmlDom.h"

#include "HtmlTokens.h"
#include "LinkTarget.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <libxml/HTMLparser.h>
#include <libxml/dict.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

enum class NodeKind : std::uint8_t { Element, Text, Comment };

enum ElementFlag : std::uint16_t {
    VoidElement = 1 << 0,
    RawTextElement = 1 << 1, // its text is written out as it came
    BlockElement = 1 << 2,
    CellElement = 1 << 3,
    HiddenElement = 1 << 4, // no rendered text
    BreakElement = 1 << 5,
    LinkElement = 1 << 6, // a link when it has an href
    BaseElement = 1 << 7,
    AnchorElement = 1 << 8,
    // A link opened inside it does not end a link opened outside it.
    ScopeElement = 1 << 9,
};

std::uint16_t FlagsOfName(std::string_view name) {
    struct Entry {
        const char* name;
        std::uint16_t flags;
    };
    static const Entry entries[] = {
        {"a", LinkElement | AnchorElement},
        {"area", LinkElement | VoidElement},
        {"base", BaseElement | VoidElement},
        {"br", BreakElement | VoidElement},
        {"td", CellElement | ScopeElement},
        {"th", CellElement | ScopeElement},
        {"caption", BlockElement | ScopeElement},
        {"applet", ScopeElement},
        {"object", ScopeElement},
        {"marquee", ScopeElement},
        {"template", ScopeElement},
        {"script", RawTextElement | HiddenElement},
        {"style", RawTextElement | HiddenElement},
        {"head", HiddenElement},
        {"title", HiddenElement},
        {"xmp", RawTextElement},
        {"iframe", RawTextElement},
        {"noembed", RawTextElement},
        {"noframes", RawTextElement},
        {"plaintext", RawTextElement},
        {"hr", BlockElement | VoidElement},
    };
    for (const Entry& entry : entries)
        if (name == entry.name)
            return entry.flags;
    static const char* const voids[] = {"basefont", "bgsound", "col",  "embed", "frame",  "img",   "input",
                                        "keygen",   "link",    "meta", "param", "source", "track", "wbr"};
    for (const char* known : voids)
        if (name == known)
            return VoidElement;
    static const char* const blocks[] = {
        "address", "article", "aside",    "blockquote", "caption", "center", "dd",   "div",
        "dl",      "dt",      "fieldset", "figure",     "footer",  "form",   "h1",   "h2",
        "h3",      "h4",      "h5",       "h6",         "header",  "li",     "main", "nav",
        "ol",      "p",       "pre",      "section",    "table",   "tr",     "ul"};
    for (const char* known : blocks)
        if (name == known)
            return BlockElement;
    return 0;
}

struct DomNode {
    DomNode* parent = nullptr;
    DomNode* firstChild = nullptr;
    DomNode* lastChild = nullptr;
    DomNode* next = nullptr;
    NodeKind kind = NodeKind::Text;
};

// A run of text or a comment: its bytes lie in the document's character store.
struct DomCharacters : DomNode {
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
};

// Nodes are made in blocks, so a page of thousands of elements costs a handful of allocations.
template <class T> class NodePool {
public:
    T* Make() {
        if (m_blocks.empty() || m_used == BlockSize) {
            m_blocks.push_back(std::make_unique<T[]>(BlockSize));
            m_used = 0;
        }
        return &m_blocks.back()[m_used++];
    }

private:
    static constexpr std::size_t BlockSize = 256;
    std::vector<std::unique_ptr<T[]>> m_blocks;
    std::size_t m_used = 0;
};

class DomDocument;

class DomElement final : public HtmlElement, public DomNode {
public:
    DomElement() { kind = NodeKind::Element; }
    void Set(const DomDocument* document, const char* name, std::uint16_t flags, std::uint32_t firstAttribute,
             std::uint32_t attributeCount) {
        m_document = document;
        m_name = name;
        m_flags = flags;
        m_firstAttribute = firstAttribute;
        m_attributeCount = attributeCount;
    }

    QString DefaultValue() const override;
    QString innerHTML() const override;
    QString outerHTML() const override;
    QString innerText() const override;
    HtmlElement* parentElement() const override {
        return parent && parent->kind == NodeKind::Element ? static_cast<DomElement*>(parent) : nullptr;
    }
    QString tagName() const override;
    bool DefaultValueStartsWith(QStringView prefix) const override;
    bool InnerHtmlStartsWith(QStringView prefix) const override;

    const char* Name() const { return m_name; }
    std::uint16_t Flags() const { return m_flags; }
    std::uint32_t FirstAttribute() const { return m_firstAttribute; }
    std::uint32_t AttributeCount() const { return m_attributeCount; }
    // The attribute's value, and whether the element has it.
    bool Attribute(const char* name, std::string_view* value) const;

private:
    const DomDocument* m_document = nullptr;
    const char* m_name = "";
    std::uint16_t m_flags = 0;
    std::uint32_t m_firstAttribute = 0;
    std::uint32_t m_attributeCount = 0;
};

class DomDocument final : public HtmlDocument {
public:
    explicit DomDocument(const QUrl& pageUrl) : m_base(pageUrl.toString(QUrl::FullyEncoded)) {
        m_baseOrigin = OriginOf(m_base);
    }
    ~DomDocument() override {
        if (m_dictionary)
            xmlDictFree(m_dictionary);
    }
    DomDocument(const DomDocument&) = delete;
    DomDocument& operator=(const DomDocument&) = delete;

    const std::vector<HtmlElement*>& links() const override { return m_links; }
    const std::vector<HtmlElement*>& all() const override { return m_all; }
    HtmlElement* documentElement() const override { return m_root; }

    // Element names point into the parser's dictionary, which the document keeps.
    void KeepDictionary(xmlDictPtr dictionary) {
        if (dictionary && xmlDictReference(dictionary) == 0)
            m_dictionary = dictionary;
    }
    // The text and names that libxml2 saw only as stand-ins; the text becomes the document's own.
    void TakeSource(NormalisedHtml& source) {
        m_source = std::move(source);
        m_chars = std::move(m_source.text);
    }

    DomElement* AddElement(DomNode* parent, const xmlChar* name, const xmlChar** attributes) {
        const char* text = RestoreName(reinterpret_cast<const char*>(name), m_source.names);
        // The only attribute the parser saw stands for the list of the tag's own.
        NormalisedHtml::Piece list{0, 0};
        if (attributes && attributes[0] && attributes[1])
            if (const NormalisedHtml::Piece* found =
                    AttributeListOf(reinterpret_cast<const char*>(attributes[1]), m_source))
                list = *found;
        DomElement* element = m_elementPool.Make();
        element->Set(this, text, Flags(text), list.offset, list.length);
        if (parent)
            Append(parent, element);
        else if (!m_root)
            m_root = element;
        m_all.push_back(element);
        std::string_view href;
        if (element->Flags() & LinkElement) {
            if (element->Attribute("href", &href))
                m_links.push_back(element);
        } else if ((element->Flags() & BaseElement) && !m_baseSeen && element->Attribute("href", &href)) {
            m_baseSeen = true;
            const QString written = TrimUrl(href);
            m_base = m_base.isEmpty() ? written : ResolveLinkTarget(m_base, written);
            m_baseOrigin = OriginOf(m_base);
        }
        return element;
    }

    // Text or a comment as libxml2 reports it: a stand-in for a piece of the page's text, or white
    // space as it stands.
    void AddCharacters(DomNode* parent, const char* written, std::size_t length, NodeKind kind) {
        std::uint32_t offset = 0;
        std::uint32_t size = 0;
        if (const NormalisedHtml::Piece* piece = PieceOf(written, length, m_source.pieces)) {
            offset = piece->offset;
            size = piece->length;
        } else if (length > 0) {
            offset = std::uint32_t(m_chars.size());
            size = std::uint32_t(length);
            m_chars.append(written, length);
        } else if (kind == NodeKind::Text) {
            return;
        }
        // Text that comes in pieces is one node, as the page has it.
        if (kind == NodeKind::Text && parent->lastChild && parent->lastChild->kind == NodeKind::Text) {
            auto* last = static_cast<DomCharacters*>(parent->lastChild);
            if (last->offset + last->length != offset) {
                // Rare: text behind an end tag the parser ignored. The two are joined at the end.
                const std::string joined =
                    std::string(Chars(last->offset, last->length)) + std::string(Chars(offset, size));
                last->offset = std::uint32_t(m_chars.size());
                last->length = 0;
                m_chars += joined;
                size = std::uint32_t(joined.size());
            }
            last->length += size;
            return;
        }
        DomCharacters* node = m_charactersPool.Make();
        node->kind = kind;
        node->offset = offset;
        node->length = size;
        Append(parent, node);
    }

    DomElement* Root() const { return m_root; }
    std::string_view Chars(std::uint32_t offset, std::uint32_t length) const {
        return std::string_view(m_chars).substr(offset, length);
    }
    std::string_view AttributeNameAt(std::uint32_t index) const {
        return m_source.attributeNames[m_source.attributes[index].name];
    }
    std::string_view AttributeValueAt(std::uint32_t index) const {
        const NormalisedHtml::Piece& value = m_source.attributes[index].value;
        return Chars(value.offset, value.length);
    }
    const QString& Base() const { return m_base; }
    const QString& BaseOrigin() const { return m_baseOrigin; }

    // A browser strips blanks and controls at both ends of an address.
    static std::string_view TrimmedUrl(std::string_view href) {
        while (!href.empty() && static_cast<unsigned char>(href.front()) <= 0x20)
            href.remove_prefix(1);
        while (!href.empty() && static_cast<unsigned char>(href.back()) <= 0x20)
            href.remove_suffix(1);
        return href;
    }
    static QString TrimUrl(std::string_view href) {
        href = TrimmedUrl(href);
        return QString::fromUtf8(href.data(), qsizetype(href.size()));
    }

private:
    static void Append(DomNode* parent, DomNode* child) {
        child->parent = parent;
        if (parent->lastChild)
            parent->lastChild->next = child;
        else
            parent->firstChild = child;
        parent->lastChild = child;
    }

    std::uint16_t Flags(const char* name) {
        for (const auto& [known, flags] : m_flagCache)
            if (known == name)
                return flags;
        const std::uint16_t flags = FlagsOfName(name);
        m_flagCache.emplace_back(name, flags);
        return flags;
    }

    std::string m_chars;
    NodePool<DomElement> m_elementPool;
    NodePool<DomCharacters> m_charactersPool;
    std::vector<HtmlElement*> m_all;
    std::vector<HtmlElement*> m_links;
    DomElement* m_root = nullptr;
    QString m_base;
    QString m_baseOrigin;
    bool m_baseSeen = false;
    xmlDictPtr m_dictionary = nullptr;
    std::vector<std::pair<const char*, std::uint16_t>> m_flagCache;
    NormalisedHtml m_source;
};

bool DomElement::Attribute(const char* name, std::string_view* value) const {
    for (std::uint32_t i = 0; i < m_attributeCount; ++i) {
        if (m_document->AttributeNameAt(m_firstAttribute + i) == name) {
            *value = m_document->AttributeValueAt(m_firstAttribute + i);
            return true;
        }
    }
    return false;
}

// Pre-order walk of root's descendants without recursion. enter(node) returns whether to go into
// the node's children; leave(node) follows every enter, after the children. A walk ends early when
// enter or leave has set `stop`.
template <class Enter, class Leave>
void WalkChildren(const DomNode* root, Enter&& enter, Leave&& leave, const bool& stop) {
    const DomNode* node = root->firstChild;
    while (node && !stop) {
        if (enter(node) && node->firstChild) {
            node = node->firstChild;
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

void AppendUpper(QByteArray& out, const char* name) {
    const auto length = qsizetype(std::strlen(name));
    const qsizetype at = out.size();
    out.resize(at + length);
    char* to = out.data() + at;
    for (qsizetype i = 0; i < length; ++i)
        to[i] = (name[i] >= 'a' && name[i] <= 'z') ? char(name[i] - 'a' + 'A') : name[i];
}

// The escapes of the fragment serialization; the text is UTF-8, where a no-break space is C2 A0.
void AppendEscaped(QByteArray& out, std::string_view text, bool attributeMode) {
    const char* p = text.data();
    const char* end = p + text.size();
    while (p < end) {
        const char* run = p;
        while (p < end && *p != '&' && *p != '"' && *p != '<' && *p != '>' && *p != '\xC2')
            ++p;
        out.append(run, p - run);
        if (p >= end)
            break;
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
        default:
            if (p + 1 < end && p[1] == '\xA0') {
                out.append("&nbsp;");
                ++p;
            } else {
                out.append(*p);
            }
        }
        ++p;
    }
}

// With a limit, the attributes are left out once the name reaches it.
void AppendStartTag(QByteArray& out, const DomElement* element, const DomDocument& document,
                    qsizetype limit = -1) {
    out.append('<');
    AppendUpper(out, element->Name());
    if (limit >= 0 && out.size() >= limit)
        return;
    for (std::uint32_t i = 0; i < element->AttributeCount(); ++i) {
        const std::string_view name = document.AttributeNameAt(element->FirstAttribute() + i);
        out.append(' ');
        out.append(name.data(), qsizetype(name.size()));
        out.append("=\"");
        AppendEscaped(out, document.AttributeValueAt(element->FirstAttribute() + i), true);
        out.append('"');
    }
    out.append('>');
}

void AppendEndTag(QByteArray& out, const DomElement* element) {
    out.append("</");
    AppendUpper(out, element->Name());
    out.append('>');
}

// The markup inside `root`; with a limit, it stops once that many bytes are written.
void SerializeChildren(const DomNode* root, const DomDocument& document, QByteArray& out,
                       qsizetype limit = -1) {
    bool stop = false;
    WalkChildren(
        root,
        [&](const DomNode* node) {
            bool enter = false;
            if (node->kind == NodeKind::Element) {
                const auto* element = static_cast<const DomElement*>(node);
                AppendStartTag(out, element, document, limit);
                enter = !(element->Flags() & VoidElement);
            } else {
                const auto* characters = static_cast<const DomCharacters*>(node);
                const std::string_view text = document.Chars(characters->offset, characters->length);
                if (node->kind == NodeKind::Comment) {
                    out.append("<!--");
                    out.append(text.data(), qsizetype(text.size()));
                    out.append("-->");
                } else if (node->parent->kind == NodeKind::Element &&
                           (static_cast<const DomElement*>(node->parent)->Flags() & RawTextElement)) {
                    out.append(text.data(), qsizetype(text.size()));
                } else {
                    AppendEscaped(out, text, false);
                }
            }
            stop = limit >= 0 && out.size() >= limit;
            return enter;
        },
        [&](const DomNode* node) {
            if (node->kind == NodeKind::Element &&
                !(static_cast<const DomElement*>(node)->Flags() & VoidElement))
                AppendEndTag(out, static_cast<const DomElement*>(node));
            stop = stop || (limit >= 0 && out.size() >= limit);
        },
        stop);
}

bool IsHtmlSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// The rendered text: runs of white space fold to one blank, a <br> is a line break, a block element
// starts and ends a line, cells are parted by a blank. Lines end in "\r\n", as the platform's
// browser gives them. A no-break space is kept as the character it is. Script, style and the head
// are no rendered text.
QString InnerText(const DomNode* root, const DomDocument& document) {
    QByteArray out;
    bool pendingSpace = false;
    bool blockBreak = false;
    int forcedBreaks = 0;
    auto appendText = [&](std::string_view text) {
        for (const char c : text) {
            if (IsHtmlSpace(c)) {
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
            out.append(c);
        }
    };
    const bool stop = false;
    WalkChildren(
        root,
        [&](const DomNode* node) {
            if (node->kind == NodeKind::Text) {
                const auto* characters = static_cast<const DomCharacters*>(node);
                appendText(document.Chars(characters->offset, characters->length));
                return false;
            }
            if (node->kind != NodeKind::Element)
                return false;
            const std::uint16_t flags = static_cast<const DomElement*>(node)->Flags();
            if (flags & HiddenElement)
                return false;
            if (flags & BreakElement)
                ++forcedBreaks;
            else if (flags & BlockElement)
                blockBreak = true;
            else if (flags & CellElement)
                pendingSpace = true;
            return true;
        },
        [&](const DomNode* node) {
            if (node->kind == NodeKind::Element &&
                (static_cast<const DomElement*>(node)->Flags() & BlockElement))
                blockBreak = true;
        },
        stop);
    return QString::fromUtf8(out);
}

QString DomElement::DefaultValue() const {
    std::string_view href;
    if (!(m_flags & LinkElement) || !Attribute("href", &href))
        return QStringLiteral("[object]");
    const QString written = DomDocument::TrimUrl(href);
    if (m_document->Base().isEmpty() || HasScheme(written))
        return written;
    return ResolveLinkTarget(m_document->Base(), written);
}

// Whether an href as written (UTF-8) begins with a scheme, as HasScheme says of a QString.
bool NamesScheme(std::string_view href) {
    const auto alpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    if (href.empty() || !alpha(href.front()))
        return false;
    for (const char c : href.substr(1)) {
        if (c == ':')
            return true;
        if (!alpha(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.')
            return false;
    }
    return false;
}

bool DomElement::DefaultValueStartsWith(QStringView prefix) const {
    std::string_view href;
    if (!(m_flags & LinkElement) || !Attribute("href", &href))
        return QStringView(u"[object]").startsWith(prefix);
    href = DomDocument::TrimmedUrl(href);
    // The href as written decides whenever it names a scheme, and a relative one whenever the
    // base's scheme and host decide; only the rest is resolved.
    if (NamesScheme(href)) {
        for (qsizetype i = 0; i < prefix.size(); ++i) {
            const char16_t c = prefix[i].unicode();
            if (c >= 0x80)
                return DefaultValue().startsWith(prefix);
            if (i >= qsizetype(href.size()) || static_cast<unsigned char>(href[std::size_t(i)]) != c)
                return false;
        }
        return true;
    }
    const QString& origin = m_document->BaseOrigin();
    const bool networkPath =
        href.size() >= 2 && (href[0] == '/' || href[0] == '\\') && (href[1] == '/' || href[1] == '\\');
    if (!origin.isEmpty() && !networkPath && href.find_first_of("\t\n\r") == std::string_view::npos) {
        if (prefix.size() <= origin.size())
            return QStringView(origin).startsWith(prefix);
        if (!prefix.startsWith(origin))
            return false;
    }
    return DefaultValue().startsWith(prefix);
}

QString DomElement::innerHTML() const {
    QByteArray out;
    if (!(m_flags & VoidElement))
        SerializeChildren(this, *m_document, out);
    return QString::fromUtf8(out);
}

bool DomElement::InnerHtmlStartsWith(QStringView prefix) const {
    // The first child decides alone in the common cases: text never starts its markup with '<',
    // an element starts it with '<' and its name in capitals.
    const DomNode* first = (m_flags & VoidElement) ? nullptr : firstChild;
    if (prefix.isEmpty())
        return true;
    if (!first)
        return false;
    if (first->kind == NodeKind::Text && prefix.front() == u'<')
        return false;
    if (first->kind == NodeKind::Element) {
        const char* name = static_cast<const DomElement*>(first)->Name();
        const auto length = qsizetype(std::strlen(name));
        const bool ascii = std::all_of(name, name + length, [](char c) { return c > 0; });
        if (ascii && prefix.size() <= 1 + length) {
            if (prefix.front() != u'<')
                return false;
            for (qsizetype i = 1; i < prefix.size(); ++i) {
                const char c = name[i - 1];
                if (prefix[i] != QChar::fromLatin1((c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c))
                    return false;
            }
            return true;
        }
    }
    // Each UTF-16 unit takes at most three bytes of UTF-8, a pair of them four.
    QByteArray out;
    if (!(m_flags & VoidElement))
        SerializeChildren(this, *m_document, out, 3 * prefix.size() + 4);
    return QString::fromUtf8(out).startsWith(prefix);
}

QString DomElement::outerHTML() const {
    QByteArray out;
    AppendStartTag(out, this, *m_document);
    if (!(m_flags & VoidElement)) {
        SerializeChildren(this, *m_document, out);
        AppendEndTag(out, this);
    }
    return QString::fromUtf8(out);
}

QString DomElement::innerText() const {
    return InnerText(this, *m_document);
}

QString DomElement::tagName() const {
    QByteArray name;
    AppendUpper(name, m_name);
    return QString::fromLatin1(name);
}

// Builds the element tree from the parser's events. Its stack of open elements mirrors the
// parser's own; where the tree closes an element at once (past the depth cap), the parser is made
// to forget it too, so its stack, and the cost of each end tag it looks up there, stay bounded.
class TreeBuilder {
public:
    TreeBuilder(DomDocument& document, htmlParserCtxtPtr parser) : m_document(document), m_parser(parser) {}

    void StartElement(const xmlChar* name, const xmlChar** attributes) {
        DropFlattened(true);
        // The parser has pushed the new element already.
        Sync(std::size_t(std::max(m_parser->nameNr - 1, 0)));
        const bool anchor = std::strcmp(reinterpret_cast<const char*>(name), "a") == 0;
        if (anchor && m_openLinks > 0)
            EndOpenLink();
        DomNode* parent = m_open.empty() ? m_document.Root() : m_open.back();
        DomElement* element = m_document.AddElement(parent, name, attributes);
        const std::size_t depth = m_open.size() + 1;
        // While a link is open, what it holds may lie deeper than the cap; a link itself may open
        // just past it.
        const std::size_t limit = HtmlMaxTreeDepth + (m_openLinks > 0 ? HtmlMaxDepthInLink : 0);
        if (depth > limit && !(anchor && m_openLinks == 0)) {
            m_flattenedIndex = m_parser->nameNr - 1;
            m_flattenedName = name;
            return;
        }
        m_open.push_back(element);
        if (anchor)
            ++m_openLinks;
    }

    void EndElement() {
        // The parser ends the element on top of its stack, then pops it.
        if (m_flattenedIndex >= 0 && m_parser->nameNr - 1 == m_flattenedIndex &&
            m_parser->nameTab[m_flattenedIndex] == m_flattenedName) {
            m_flattenedIndex = -1;
            return;
        }
        DropFlattened(false);
        Sync(std::size_t(m_parser->nameNr));
        if (!m_open.empty())
            Pop();
    }

    void Characters(const xmlChar* text, int length, NodeKind kind) {
        // An element closed at once may still be on the parser's stack; what it holds goes to the
        // element at the cap all the same.
        Sync(std::size_t(m_parser->nameNr));
        DomNode* parent = m_open.empty() ? m_document.Root() : m_open.back();
        if (parent)
            m_document.AddCharacters(parent, reinterpret_cast<const char*>(text),
                                     std::size_t(std::max(length, 0)), kind);
    }

private:
    // An element closed at once stays on the parser's stack until the next tag, so that its own end
    // tag finds it on top; then it is taken off, unless the parser has ended it itself (an empty
    // element) or dropped it.
    void DropFlattened(bool starting) {
        if (m_flattenedIndex < 0)
            return;
        const int index = m_flattenedIndex;
        m_flattenedIndex = -1;
        const int top = m_parser->nameNr - 1 - (starting ? 1 : 0);
        if (top != index || m_parser->nameTab[index] != m_flattenedName)
            return;
        for (int i = index; i < m_parser->nameNr - 1; ++i)
            m_parser->nameTab[i] = m_parser->nameTab[i + 1];
        --m_parser->nameNr;
        m_parser->nameTab[m_parser->nameNr] = nullptr;
        m_parser->name = m_parser->nameNr > 0 ? m_parser->nameTab[m_parser->nameNr - 1] : nullptr;
    }

    // A link never holds another, as in a browser: an open link ends where the next one begins,
    // and with it what was opened inside it, in the tree and on the parser's stack, under which the
    // new link lies.
    void EndOpenLink() {
        std::size_t at = m_open.size();
        while (at > 0 && !(m_open[at - 1]->Flags() & (AnchorElement | ScopeElement)))
            --at;
        if (at == 0 || !(m_open[at - 1]->Flags() & AnchorElement))
            return;
        const int from = int(at - 1);
        const int top = m_parser->nameNr - 1;
        m_parser->nameTab[from] = m_parser->nameTab[top];
        for (int i = from + 1; i <= top; ++i)
            m_parser->nameTab[i] = nullptr;
        m_parser->nameNr = from + 1;
        while (m_open.size() > at - 1)
            Pop();
    }

    // Ends the elements the parser has dropped without an event.
    void Sync(std::size_t depth) {
        while (m_open.size() > depth)
            Pop();
    }

    void Pop() {
        if (m_open.back()->Flags() & AnchorElement)
            --m_openLinks;
        m_open.pop_back();
    }

    DomDocument& m_document;
    htmlParserCtxtPtr m_parser;
    std::vector<DomElement*> m_open;
    int m_flattenedIndex = -1;
    const xmlChar* m_flattenedName = nullptr;
    int m_openLinks = 0;
};

TreeBuilder& BuilderOf(void* context) {
    return *static_cast<TreeBuilder*>(static_cast<htmlParserCtxtPtr>(context)->_private);
}

void OnStartElement(void* context, const xmlChar* name, const xmlChar** attributes) {
    BuilderOf(context).StartElement(name, attributes);
}

void OnEndElement(void* context, const xmlChar*) {
    BuilderOf(context).EndElement();
}

void OnCharacters(void* context, const xmlChar* text, int length) {
    BuilderOf(context).Characters(text, length, NodeKind::Text);
}

void OnComment(void* context, const xmlChar* text) {
    BuilderOf(context).Characters(text, int(std::strlen(reinterpret_cast<const char*>(text))),
                                  NodeKind::Comment);
}

void NoMessage(void*, const char*, ...) {}

void NoError(void*, xmlErrorPtr) {}

// libxml2 sends some diagnostics to its process-wide handlers whatever the parser is told; they are
// silenced for the length of a parse.
class QuietDiagnostics {
public:
    QuietDiagnostics()
        : m_generic(xmlGenericError), m_genericContext(xmlGenericErrorContext),
          m_structured(xmlStructuredError), m_structuredContext(xmlStructuredErrorContext) {
        xmlSetGenericErrorFunc(nullptr, &NoMessage);
        xmlSetStructuredErrorFunc(nullptr, &NoError);
    }
    ~QuietDiagnostics() {
        xmlSetGenericErrorFunc(m_genericContext, m_generic);
        xmlSetStructuredErrorFunc(m_structuredContext, m_structured);
    }
    QuietDiagnostics(const QuietDiagnostics&) = delete;
    QuietDiagnostics& operator=(const QuietDiagnostics&) = delete;

private:
    xmlGenericErrorFunc m_generic;
    void* m_genericContext;
    xmlStructuredErrorFunc m_structured;
    void* m_structuredContext;
};

} // namespace

std::unique_ptr<HtmlDocument> EmptyHtmlDocument() {
    return std::make_unique<DomDocument>(QUrl());
}

std::unique_ptr<HtmlDocument> ParseHtmlDocument(const QByteArray& body, const QString& httpCharset,
                                                const QUrl& pageUrl) {
    auto document = std::make_unique<DomDocument>(pageUrl);
    if (body.isEmpty())
        return document;
    NormalisedHtml normalised = NormaliseHtml(DecodePageText(body, httpCharset));
    const std::string markup = std::move(normalised.markup);
    document->TakeSource(normalised);

    QuietDiagnostics quiet;
    htmlParserCtxtPtr parser = htmlNewParserCtxt();
    if (!parser)
        return document;
    htmlSAXHandler& sax = *parser->sax;
    sax = htmlSAXHandler{};
    sax.startElement = OnStartElement;
    sax.endElement = OnEndElement;
    sax.characters = OnCharacters;
    sax.ignorableWhitespace = OnCharacters;
    sax.cdataBlock = OnCharacters;
    sax.comment = OnComment;
    sax.warning = NoMessage;
    sax.error = NoMessage;
    sax.fatalError = NoMessage;
    sax.serror = NoError;
    sax.initialized = XML_SAX2_MAGIC;
    TreeBuilder builder(*document, parser);
    parser->_private = &builder;
    htmlCtxtReadMemory(parser, markup.data(), int(std::min<std::size_t>(markup.size(), INT_MAX)), nullptr,
                       "UTF-8",
                       HTML_PARSE_RECOVER | HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING |
                           HTML_PARSE_NODEFDTD | HTML_PARSE_IGNORE_ENC);
    document->KeepDictionary(parser->dict);
    htmlFreeParserCtxt(parser);
    return document;
}
