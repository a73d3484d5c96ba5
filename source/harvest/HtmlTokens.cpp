#include "HtmlTokens.h"

#include "HtmlEntities.h"
#include "PageText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>
#include <unordered_map>

namespace {

bool IsAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsAlnum(char c) {
    return IsAlpha(c) || IsDigit(c);
}

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r';
}

char Lower(char c) {
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

int HexValue(char c) {
    if (IsDigit(c))
        return c - '0';
    const char lower = Lower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

void AppendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

const char Replacement[] = "\xEF\xBF\xBD";

// The table entry named by exactly `length` bytes at `key`, or null.
const NamedReference* FindNamed(const char* key, std::size_t length) {
    const auto compare = [key, length](const char* name) {
        for (std::size_t i = 0; i < length; ++i) {
            if (name[i] == '\0')
                return -1;
            if (name[i] != key[i])
                return static_cast<unsigned char>(name[i]) < static_cast<unsigned char>(key[i]) ? -1 : 1;
        }
        return name[length] == '\0' ? 0 : 1;
    };
    const NamedReference* last = NamedReferences + NamedReferenceCount;
    const NamedReference* found =
        std::lower_bound(NamedReferences, last, 0,
                         [&compare](const NamedReference& entry, int) { return compare(entry.name) < 0; });
    return found != last && compare(found->name) == 0 ? found : nullptr;
}

// libxml2 reads a name only of these characters, and no longer than this.
bool LibxmlReadsName(std::string_view name) {
    if (name.empty() || name.size() >= 100 || !IsAlpha(name.front()))
        return false;
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return IsAlnum(c) || c == '_' || c == ':' || c == '.' || c == '-'; });
}

enum class Content { Markup, Script, RawText, ReplaceableText, PlainText };

struct TagTraits {
    Content content = Content::Markup;
    // Empty to a browser, but libxml2 would let it hold what follows.
    bool closeAtOnce = false;
    // A browser drops a line break right behind the start tag.
    bool dropsLeadingBreak = false;
};

TagTraits TraitsOf(std::string_view name) {
    struct Entry {
        std::string_view name;
        TagTraits traits;
    };
    static const Entry entries[] = {
        {"script", {Content::Script}},
        {"style", {Content::Script}},
        {"xmp", {Content::RawText}},
        {"iframe", {Content::RawText}},
        {"noembed", {Content::RawText}},
        {"noframes", {Content::RawText}},
        {"title", {Content::ReplaceableText}},
        {"textarea", {Content::ReplaceableText, false, true}},
        {"plaintext", {Content::PlainText}},
        {"pre", {Content::Markup, false, true}},
        {"listing", {Content::Markup, false, true}},
        {"embed", {Content::Markup, true}},
        {"source", {Content::Markup, true}},
        {"track", {Content::Markup, true}},
        {"wbr", {Content::Markup, true}},
        {"keygen", {Content::Markup, true}},
        {"bgsound", {Content::Markup, true}},
    };
    for (const Entry& entry : entries)
        if (entry.name == name)
            return entry.traits;
    return {};
}

// A map from names to what the tokenizer keeps about them, found fast for the names of up to eight
// bytes, which are nearly all of them: a name holds no NUL, so its bytes padded with zeros are its
// key.
template <class T> class NameTable {
public:
    // The entry for the name, made when it is new. Only making an entry moves the others.
    T& operator[](const std::string& name) {
        if (name.empty() || name.size() > 8)
            return m_long[name];
        std::uint64_t key = 0;
        std::memcpy(&key, name.data(), name.size());
        if (!m_slots.empty()) {
            Slot& slot = Find(key);
            if (slot.key == key)
                return slot.value;
        }
        if (2 * (m_used + 1) > m_slots.size())
            Grow();
        Slot& slot = Find(key);
        slot.key = key;
        ++m_used;
        return slot.value;
    }

private:
    struct Slot {
        std::uint64_t key = 0;
        T value{};
    };

    // The slot of the key, or the empty one where it would go.
    Slot& Find(std::uint64_t key) {
        const std::size_t mask = m_slots.size() - 1;
        std::size_t i = std::size_t((key * 0x9E3779B97F4A7C15u) >> 40) & mask;
        while (m_slots[i].key != key && m_slots[i].key != 0)
            i = (i + 1) & mask;
        return m_slots[i];
    }

    void Grow() {
        std::vector<Slot> old(std::max<std::size_t>(64, 2 * m_slots.size()));
        old.swap(m_slots);
        for (Slot& slot : old)
            if (slot.key != 0)
                Find(slot.key) = std::move(slot);
    }

    std::vector<Slot> m_slots;
    std::size_t m_used = 0;
    std::unordered_map<std::string, T> m_long;
};

class Normaliser {
public:
    Normaliser(const QByteArray& in, NormalisedHtml& out)
        : m_p(in.constData()), m_end(in.constData() + in.size()), m_result(out), m_markup(out.markup),
          m_text(out.text) {}

    void Run() {
        static const auto special = [] {
            std::array<bool, 256> table{};
            table['<'] = table['&'] = table['\0'] = true;
            return table;
        }();
        while (m_p < m_end) {
            const char* run = m_p;
            while (m_p < m_end && !special[static_cast<unsigned char>(*m_p)])
                ++m_p;
            m_text.append(run, std::size_t(m_p - run));
            if (m_p >= m_end)
                break;
            if (*m_p == '&')
                m_p = Reference(m_p, false);
            else if (*m_p == '<')
                Markup();
            else
                ++m_p; // a browser drops NUL from text
        }
        FlushText();
    }

private:
    struct Attribute {
        std::string name;
        std::string value;
    };

    // A character reference, or the '&' as it stands.
    const char* Reference(const char* at, bool inAttribute, std::string* into = nullptr) {
        std::string& out = into ? *into : m_text;
        const char* behind = DecodeCharacterReference(at, m_end, inAttribute, out);
        if (behind != at)
            return behind;
        out += '&';
        return at + 1;
    }

    // The text gathered since the last markup: white space goes to libxml2 as it is, anything else
    // as a stand-in for its piece.
    void FlushText() {
        const std::size_t length = m_text.size() - m_runStart;
        if (length == 0)
            return;
        const char* run = m_text.data() + m_runStart;
        if (std::all_of(run, run + length, IsSpace)) {
            m_markup.append(run, length);
            m_text.resize(m_runStart);
            return;
        }
        AppendPiece(m_runStart);
    }

    // The text from `start` to the end of the text is one piece, written as its stand-in.
    void AppendPiece(std::size_t start) {
        m_markup += '~';
        AppendNumber(m_result.pieces.size());
        m_result.pieces.push_back({std::uint32_t(start), std::uint32_t(m_text.size() - start)});
        m_runStart = m_text.size();
    }

    void AppendNumber(std::size_t n) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, n).ptr;
        m_markup.append(digits, std::size_t(end - digits));
    }

    // A name libxml2 reads goes as it is; another by its place in the list of such names. Every
    // name that begins as those stand-ins do is one, so they are never mistaken.
    struct TagName {
        bool known = false;
        bool readable = false;
        TagTraits traits;
        // Start tags less end tags handed on.
        int opened = 0;
    };

    TagName& Tag(const std::string& name) {
        TagName& tag = m_tags[name];
        if (!tag.known) {
            tag.known = true;
            tag.readable = LibxmlReadsName(name) && name.compare(0, 3, "m--") != 0;
            tag.traits = TraitsOf(name);
        }
        return tag;
    }

    void AppendName(const std::string& name) {
        if (Tag(name).readable) {
            m_markup += name;
            return;
        }
        auto& names = m_result.names;
        const auto index = std::size_t(std::find(names.begin(), names.end(), name) - names.begin());
        if (index == names.size())
            names.push_back(name);
        m_markup += "m--";
        AppendNumber(index);
    }

    std::uint32_t AttributeName(const std::string& name) {
        std::uint32_t& place = m_attributeNames[name];
        if (place == 0) {
            m_result.attributeNames.push_back(name);
            place = std::uint32_t(m_result.attributeNames.size());
        }
        return place - 1;
    }

    void Markup() {
        const char next = m_p + 1 < m_end ? m_p[1] : '\0';
        if (IsAlpha(next)) {
            ++m_p;
            StartTag();
        } else if (next == '/') {
            const char after = m_p + 2 < m_end ? m_p[2] : '\0';
            if (IsAlpha(after)) {
                m_p += 2;
                EndTag();
            } else if (after == '>') {
                m_p += 3;
            } else if (m_p + 2 >= m_end) {
                m_text.append("</");
                m_p = m_end;
            } else {
                m_p += 2;
                BogusComment();
            }
        } else if (next == '!') {
            m_p += 2;
            Declaration();
        } else if (next == '?') {
            ++m_p;
            BogusComment();
        } else {
            m_text += '<';
            ++m_p;
        }
    }

    // Reads a tag or attribute name up to a blank, '/', '>' (and '=' when `stopAtEquals`), in
    // small letters, NUL made U+FFFD.
    void ReadName(std::string& name, bool stopAtEquals) {
        const char* run = m_p;
        while (m_p < m_end && !IsSpace(*m_p) && *m_p != '/' && *m_p != '>' && (!stopAtEquals || *m_p != '='))
            ++m_p;
        for (const char* c = run; c < m_p; ++c) {
            if (*c == '\0')
                name.append(Replacement);
            else
                name += Lower(*c);
        }
    }

    // The name and attributes of a tag up to its '>', from its name on; false when the page ends
    // first, and then the tag is nothing.
    bool ReadTag() {
        m_name.clear();
        m_count = 0;
        ReadName(m_name, false);
        for (;;) {
            while (m_p < m_end && IsSpace(*m_p))
                ++m_p;
            if (m_p >= m_end)
                return false;
            if (*m_p == '>') {
                ++m_p;
                return true;
            }
            if (*m_p == '/') {
                // A browser ignores the mark of an empty element: "<a/>" opens an a.
                ++m_p;
                continue;
            }
            if (m_count == m_attributes.size())
                m_attributes.emplace_back();
            Attribute& attribute = m_attributes[m_count++];
            attribute.name.clear();
            attribute.value.clear();
            // A first '=' belongs to the name.
            attribute.name += Lower(*m_p == '\0' ? '?' : *m_p);
            ++m_p;
            ReadName(attribute.name, true);
            while (m_p < m_end && IsSpace(*m_p))
                ++m_p;
            if (m_p >= m_end)
                return false;
            if (*m_p != '=')
                continue;
            ++m_p;
            while (m_p < m_end && IsSpace(*m_p))
                ++m_p;
            if (m_p >= m_end)
                return false;
            if (*m_p == '"' || *m_p == '\'') {
                const char quote = *m_p++;
                // Most values hold no reference and no NUL, and are taken whole.
                const auto* close =
                    static_cast<const char*>(std::memchr(m_p, quote, std::size_t(m_end - m_p)));
                const std::size_t length = std::size_t((close ? close : m_end) - m_p);
                if (close && !std::memchr(m_p, '&', length) && !std::memchr(m_p, '\0', length)) {
                    attribute.value.assign(m_p, length);
                    m_p = close + 1;
                    continue;
                }
                if (!ReadValue(attribute.value, [quote](char c) { return c == quote; }))
                    return false;
                ++m_p;
            } else if (!ReadValue(attribute.value, [](char c) { return IsSpace(c) || c == '>'; })) {
                return false;
            }
        }
    }

    template <class Stop> bool ReadValue(std::string& value, Stop stop) {
        while (m_p < m_end && !stop(*m_p)) {
            const char* run = m_p;
            while (m_p < m_end && !stop(*m_p) && *m_p != '&' && *m_p != '\0')
                ++m_p;
            value.append(run, std::size_t(m_p - run));
            if (m_p >= m_end || stop(*m_p))
                break;
            if (*m_p == '&') {
                m_p = Reference(m_p, true, &value);
            } else {
                value.append(Replacement);
                ++m_p;
            }
        }
        return m_p < m_end;
    }

    void StartTag() {
        if (!ReadTag()) {
            m_p = m_end;
            return;
        }
        if (m_name == "image")
            m_name = "img";
        FlushText();
        m_markup += '<';
        AppendName(m_name);
        if (m_count > 0) {
            const auto first = std::uint32_t(m_result.attributes.size());
            for (std::size_t i = 0; i < m_count; ++i) {
                const Attribute& attribute = m_attributes[i];
                // The first of two attributes of one name counts, as in a browser.
                const bool repeated =
                    std::any_of(m_attributes.begin(), m_attributes.begin() + std::ptrdiff_t(i),
                                [&attribute](const Attribute& a) { return a.name == attribute.name; });
                if (repeated)
                    continue;
                const auto offset = std::uint32_t(m_text.size());
                m_text += attribute.value;
                m_result.attributes.push_back(
                    {AttributeName(attribute.name), {offset, std::uint32_t(attribute.value.size())}});
            }
            m_runStart = m_text.size();
            m_markup += " a=";
            AppendNumber(m_result.attributeLists.size());
            m_result.attributeLists.push_back({first, std::uint32_t(m_result.attributes.size()) - first});
        }
        m_markup += '>';
        TagName& tag = Tag(m_name);
        const TagTraits traits = tag.traits;
        if (traits.closeAtOnce) {
            AppendEndTag(m_name);
            return;
        }
        if (traits.dropsLeadingBreak && m_p < m_end && *m_p == '\n')
            ++m_p;
        if (traits.content != Content::Markup)
            TextContent(traits.content);
        else
            ++tag.opened;
    }

    void AppendEndTag(const std::string& name) {
        m_markup += "</";
        AppendName(name);
        m_markup += '>';
    }

    void EndTag() {
        if (!ReadTag()) {
            m_p = m_end;
            return;
        }
        // A browser reads "</br>" as "<br>", and "</body>" and "</html>" close nothing: what comes
        // behind them still goes into the elements left open.
        if (m_name == "br") {
            FlushText();
            m_markup += "<br>";
            return;
        }
        if (m_name == "body" || m_name == "html")
            return;
        // An end tag with no start tag of its name left over can close nothing; libxml2 would only
        // look through every element open for it, which hostile soup makes a long look each time.
        // The head is the one element libxml2 opens unasked and a page may close.
        if (m_name != "head") {
            TagName& tag = Tag(m_name);
            if (tag.opened <= 0)
                return;
            --tag.opened;
        }
        FlushText();
        AppendEndTag(m_name);
    }

    // The end tag that ends the text of the element just opened: its name in any capitals, followed
    // by a blank, '/' or '>'. Returns its '<', or the end of the page.
    const char* FindEndTag(const std::string& name) const {
        for (const char* p = m_p; p < m_end; ++p) {
            p = static_cast<const char*>(std::memchr(p, '<', std::size_t(m_end - p)));
            if (!p)
                return m_end;
            const char* q = p + 2;
            if (p + 1 >= m_end || p[1] != '/' || m_end - q <= std::ptrdiff_t(name.size()))
                continue;
            bool same = true;
            for (std::size_t i = 0; i < name.size() && same; ++i)
                same = Lower(q[i]) == name[i];
            const char after = q[name.size()];
            if (same && (IsSpace(after) || after == '/' || after == '>'))
                return p;
        }
        return m_end;
    }

    // Appends text as it stands, NUL as U+FFFD.
    void AppendVerbatim(const char* from, const char* to) {
        while (from < to) {
            const char* nul = static_cast<const char*>(std::memchr(from, '\0', std::size_t(to - from)));
            const char* stop = nul ? nul : to;
            m_text.append(from, std::size_t(stop - from));
            if (!nul)
                break;
            m_text.append(Replacement);
            from = nul + 1;
        }
    }

    void TextContent(Content content) {
        const std::string name = m_name;
        const char* close = content == Content::PlainText ? m_end : FindEndTag(name);
        if (content == Content::ReplaceableText) {
            while (m_p < close) {
                const char* run = m_p;
                while (m_p < close && *m_p != '&')
                    ++m_p;
                AppendVerbatim(run, m_p);
                if (m_p < close)
                    m_p = Reference(m_p, false);
            }
        } else {
            AppendVerbatim(m_p, close);
        }
        m_p = close;
        if (m_text.size() > m_runStart)
            AppendPiece(m_runStart);
        if (m_p >= m_end)
            return;
        m_p += 2;
        if (!ReadTag()) {
            m_p = m_end;
            return;
        }
        AppendEndTag(name);
    }

    void AppendComment(const char* data, const char* end) {
        FlushText();
        m_markup += "<!--";
        const std::size_t start = m_text.size();
        AppendVerbatim(data, end);
        if (m_text.size() > start)
            AppendPiece(start);
        m_markup += "-->";
    }

    void Declaration() {
        const auto startsWith = [this](std::string_view text, bool anyCase) {
            if (std::size_t(m_end - m_p) < text.size())
                return false;
            for (std::size_t i = 0; i < text.size(); ++i)
                if ((anyCase ? Lower(m_p[i]) : m_p[i]) != text[i])
                    return false;
            return true;
        };
        if (startsWith("--", false)) {
            m_p += 2;
            Comment();
        } else if (startsWith("doctype", true)) {
            // The tree has no place for it; a browser only takes its mode from it.
            const char* close = static_cast<const char*>(std::memchr(m_p, '>', std::size_t(m_end - m_p)));
            m_p = close ? close + 1 : m_end;
        } else {
            BogusComment();
        }
    }

    void Comment() {
        if (m_p < m_end && *m_p == '>') {
            ++m_p;
            AppendComment(m_p, m_p);
            return;
        }
        if (m_end - m_p >= 2 && m_p[0] == '-' && m_p[1] == '>') {
            m_p += 2;
            AppendComment(m_p, m_p);
            return;
        }
        const char* data = m_p;
        for (const char* q = m_p; q < m_end; ++q) {
            if (*q != '-' || m_end - q < 3 || q[1] != '-')
                continue;
            if (q[2] == '>' || (q[2] == '!' && m_end - q >= 4 && q[3] == '>')) {
                m_p = q + (q[2] == '>' ? 3 : 4);
                AppendComment(data, q);
                return;
            }
        }
        m_p = m_end;
        AppendComment(data, m_end);
    }

    void BogusComment() {
        const char* data = m_p;
        const char* close = static_cast<const char*>(std::memchr(m_p, '>', std::size_t(m_end - m_p)));
        m_p = close ? close + 1 : m_end;
        AppendComment(data, close ? close : m_end);
    }

    const char* m_p;
    const char* m_end;
    NormalisedHtml& m_result;
    std::string& m_markup;
    std::string& m_text;
    // Where the text gathered since the last markup begins.
    std::size_t m_runStart = 0;
    std::string m_name;
    std::vector<Attribute> m_attributes;
    std::size_t m_count = 0;
    NameTable<TagName> m_tags;
    // One more than the name's place in the list of attribute names; 0 for a name not seen yet.
    NameTable<std::uint32_t> m_attributeNames;
};

} // namespace

const char* DecodeCharacterReference(const char* from, const char* end, bool inAttribute, std::string& out) {
    const char* p = from + 1;
    if (p >= end)
        return from;
    if (*p == '#') {
        const char* q = p + 1;
        const bool hex = q < end && (*q == 'x' || *q == 'X');
        if (hex)
            ++q;
        const char* digits = q;
        char32_t value = 0;
        for (; q < end && (hex ? HexValue(*q) >= 0 : IsDigit(*q)); ++q)
            value = std::min<char32_t>(value * (hex ? 16 : 10) + char32_t(hex ? HexValue(*q) : *q - '0'),
                                       0x110000);
        if (q == digits)
            return from;
        if (q < end && *q == ';')
            ++q;
        if (value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            value = 0xFFFD;
        else if (value >= 0x80 && value < 0xA0)
            value = Windows1252Character(static_cast<unsigned char>(value));
        AppendUtf8(out, value);
        return q;
    }
    if (!IsAlnum(*p))
        return from;
    const char* q = p;
    while (q < end && IsAlnum(*q) && q - p < 64)
        ++q;
    const auto run = std::size_t(q - p);
    if (q < end && *q == ';') {
        if (const NamedReference* named = FindNamed(p, run + 1)) {
            out += named->utf8;
            return q + 1;
        }
    }
    // The longest legacy name at the start of the run; none is longer than six letters.
    for (std::size_t n = std::min<std::size_t>(run, 6); n >= 2; --n) {
        const NamedReference* named = FindNamed(p, n);
        if (!named)
            continue;
        const char* after = p + n;
        if (inAttribute && after < end && (*after == '=' || IsAlnum(*after)))
            return from;
        out += named->utf8;
        return after;
    }
    return from;
}

NormalisedHtml NormaliseHtml(const QByteArray& utf8) {
    NormalisedHtml result;
    result.markup.reserve(std::size_t(utf8.size() / 2 + 64));
    result.text.reserve(std::size_t(utf8.size()));
    Normaliser(utf8, result).Run();
    return result;
}

const NormalisedHtml::Piece* PieceOf(const char* written, std::size_t length,
                                     const std::vector<NormalisedHtml::Piece>& pieces) {
    if (length < 2 || written[0] != '~')
        return nullptr;
    std::size_t index = 0;
    const auto [end, error] = std::from_chars(written + 1, written + length, index);
    if (error != std::errc() || end != written + length || index >= pieces.size())
        return nullptr;
    return &pieces[index];
}

const NormalisedHtml::Piece* AttributeListOf(const char* written, const NormalisedHtml& source) {
    std::size_t index = 0;
    const char* end = written + std::strlen(written);
    const auto [stop, error] = std::from_chars(written, end, index);
    if (error != std::errc() || stop != end || index >= source.attributeLists.size())
        return nullptr;
    return &source.attributeLists[index];
}

const char* RestoreName(const char* name, const std::vector<std::string>& names) {
    if (std::strncmp(name, "m--", 3) != 0)
        return name;
    std::size_t index = 0;
    const char* end = name + std::strlen(name);
    const auto [stop, error] = std::from_chars(name + 3, end, index);
    if (error != std::errc() || stop != end || index >= names.size())
        return name;
    return names[index].c_str();
}
