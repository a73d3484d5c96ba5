#include "HtmlTokens.h"

#include "HtmlEntities.h"
#include "PageText.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

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

void AppendUtf8(QByteArray& out, char32_t c) {
    if (c < 0x80) {
        out.append(char(c));
    } else if (c < 0x800) {
        out.append(char(0xC0 | (c >> 6)));
        out.append(char(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.append(char(0xE0 | (c >> 12)));
        out.append(char(0x80 | ((c >> 6) & 0x3F)));
        out.append(char(0x80 | (c & 0x3F)));
    } else {
        out.append(char(0xF0 | (c >> 18)));
        out.append(char(0x80 | ((c >> 12) & 0x3F)));
        out.append(char(0x80 | ((c >> 6) & 0x3F)));
        out.append(char(0x80 | (c & 0x3F)));
    }
}

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
    const NamedReference* first = NamedReferences;
    const NamedReference* last = NamedReferences + NamedReferenceCount;
    const NamedReference* found = std::lower_bound(
        first, last, 0, [&compare](const NamedReference& entry, int) { return compare(entry.name) < 0; });
    return found != last && compare(found->name) == 0 ? found : nullptr;
}

// libxml2 reads a name only of these characters, and no longer than this; others it drops in pieces.
bool LibxmlReadsName(const std::string& name) {
    if (name.empty() || name.size() >= 100)
        return false;
    const char first = name.front();
    if (!IsAlpha(first) && first != '_' && first != ':')
        return false;
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return IsAlnum(c) || c == '_' || c == ':' || c == '.' || c == '-'; });
}

bool NameIn(const std::string& name, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(), [&name](const char* known) { return name == known; });
}

enum class Content { Markup, Script, RawText, ReplaceableText, PlainText };

Content ContentOf(const std::string& name) {
    if (name == "script" || name == "style")
        return Content::Script;
    if (NameIn(name, {"xmp", "iframe", "noembed", "noframes"}))
        return Content::RawText;
    if (name == "title" || name == "textarea")
        return Content::ReplaceableText;
    if (name == "plaintext")
        return Content::PlainText;
    return Content::Markup;
}

class Normaliser {
public:
    Normaliser(const QByteArray& in, NormalisedHtml& out)
        : m_p(in.constData()), m_end(in.constData() + in.size()), m_result(out), m_out(out.markup) {}

    void Run() {
        while (m_p < m_end) {
            const char* run = m_p;
            while (m_p < m_end && !IsSpecial(*m_p))
                ++m_p;
            m_out.append(run, m_p - run);
            if (m_p >= m_end)
                break;
            if (*m_p == '&') {
                TextReference();
            } else if (*m_p == '<') {
                Markup();
            } else if (*m_p == '\0') {
                ++m_p; // a browser drops NUL from text
            } else {
                const qsizetype length = CharLength(m_p);
                AppendChars(m_p, length, Escape::Text);
                m_p += length;
            }
        }
    }

private:
    struct Attribute {
        std::string name;
        std::string value;
    };

    enum class Escape { Text, Attribute, None };

    // The bytes that need more than a copy: markup, NUL, controls and the lead byte of U+FFFE and
    // U+FFFF.
    static bool IsSpecial(char c) {
        const auto byte = static_cast<unsigned char>(c);
        return c == '<' || c == '&' || (byte < 0x20 && c != '\n' && c != '\t') || byte == 0xEF;
    }

    qsizetype CharLength(const char* p) const {
        return static_cast<unsigned char>(*p) == 0xEF && m_end - p >= 3 ? 3 : 1;
    }

    // Copies text for libxml2: markup characters as references (in text '&' and '<', in attributes
    // also quotes and '>'), NUL as U+FFFD, and what XML does not allow as its stand-in.
    void AppendChars(const char* text, qsizetype length, Escape escape) {
        const char* end = text + length;
        for (const char* p = text; p < end; ++p) {
            const auto byte = static_cast<unsigned char>(*p);
            if (byte >= 0x20 && byte != 0xEF && *p != '&' && *p != '<' && *p != '"' && *p != '>') {
                m_out.append(*p);
            } else if (*p == '&' && escape != Escape::None) {
                m_out.append("&#38;");
            } else if (*p == '<' && escape != Escape::None) {
                m_out.append("&#60;");
            } else if (*p == '"' && escape == Escape::Attribute) {
                m_out.append("&#34;");
            } else if (*p == '>' && escape == Escape::Attribute) {
                m_out.append("&#62;");
            } else if (*p == '\0') {
                m_out.append("\xEF\xBF\xBD");
            } else if (byte < 0x20 && *p != '\n' && *p != '\t') {
                AppendStandIn(byte);
            } else if (byte == 0xEF && end - p >= 3 && p[1] == '\xBF' && (p[2] == '\xBE' || p[2] == '\xBF')) {
                AppendStandIn(p[2] == '\xBE' ? 0xFE : 0xFF);
                p += 2;
            } else {
                m_out.append(*p);
            }
        }
    }

    // U+F700 plus the control, or U+F7FE and U+F7FF for U+FFFE and U+FFFF.
    void AppendStandIn(unsigned char low) {
        m_result.standIns = true;
        m_out.append(low < 0x20 ? "\xEF\x9C" : "\xEF\x9F");
        m_out.append(char(low < 0x20 ? 0x80 + low : 0xBE + (low - 0xFE)));
    }

    void AppendText(const char* text, qsizetype length) { AppendChars(text, length, Escape::Text); }

    // A name libxml2 reads goes as it is; another by its place in the list of such names.
    void AppendName(const std::string& name) {
        // Every name that begins as the stand-ins do is one, so the builder can tell them apart.
        if (LibxmlReadsName(name) && name.compare(0, 3, "m--") != 0) {
            m_out.append(name.data(), qsizetype(name.size()));
            return;
        }
        auto& names = m_result.names;
        const auto found = std::find(names.begin(), names.end(), name);
        const auto index = std::size_t(found - names.begin());
        if (found == names.end())
            names.push_back(name);
        m_out.append("m--");
        m_out.append(QByteArray::number(qulonglong(index)));
    }

    void TextReference() {
        const char* behind = m_p;
        const QByteArray text = DecodeCharacterReference(m_p, m_end, false, &behind);
        if (behind == m_p) {
            m_out.append("&#38;");
            ++m_p;
            return;
        }
        AppendText(text.constData(), text.size());
        m_p = behind;
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
                m_out.append("&#60;/");
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
            m_out.append("&#60;");
            ++m_p;
        }
    }

    // The name and attributes of a tag up to its '>', from its name on; false when the page ends
    // first, and then the tag is nothing.
    bool ReadTag() {
        m_name.clear();
        m_count = 0;
        while (m_p < m_end && !IsSpace(*m_p) && *m_p != '/' && *m_p != '>')
            AppendNameChar(m_name, *m_p++);
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
                ++m_p;
                // A browser ignores the mark of an empty element, "<a/>" opens an a.
                if (m_p < m_end && *m_p == '>') {
                    ++m_p;
                    return true;
                }
                continue;
            }
            if (m_count == m_attributes.size())
                m_attributes.emplace_back();
            Attribute& attribute = m_attributes[m_count++];
            attribute.name.clear();
            attribute.value.clear();
            // A first '=' belongs to the name.
            AppendNameChar(attribute.name, *m_p++);
            while (m_p < m_end && !IsSpace(*m_p) && *m_p != '/' && *m_p != '>' && *m_p != '=')
                AppendNameChar(attribute.name, *m_p++);
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
                if (!ReadValue(attribute.value, [quote](char c) { return c == quote; }))
                    return false;
                ++m_p;
            } else if (!ReadValue(attribute.value, [](char c) { return IsSpace(c) || c == '>'; })) {
                return false;
            }
        }
    }

    static void AppendNameChar(std::string& name, char c) {
        if (c == '\0')
            name.append("\xEF\xBF\xBD");
        else
            name += Lower(c);
    }

    template <class Stop> bool ReadValue(std::string& value, Stop stop) {
        while (m_p < m_end && !stop(*m_p)) {
            if (*m_p == '&') {
                const char* behind = m_p;
                const QByteArray text = DecodeCharacterReference(m_p, m_end, true, &behind);
                if (behind != m_p) {
                    value.append(text.constData(), std::size_t(text.size()));
                    m_p = behind;
                    continue;
                }
            }
            value += *m_p++;
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
        m_out.append('<');
        AppendName(m_name);
        for (std::size_t i = 0; i < m_count; ++i) {
            const Attribute& attribute = m_attributes[i];
            // The first of two attributes of one name counts, as in a browser.
            const bool repeated =
                std::any_of(m_attributes.begin(), m_attributes.begin() + qsizetype(i),
                            [&attribute](const Attribute& a) { return a.name == attribute.name; });
            if (repeated)
                continue;
            m_out.append(' ');
            AppendName(attribute.name);
            m_out.append("=\"");
            AppendChars(attribute.value.data(), qsizetype(attribute.value.size()), Escape::Attribute);
            m_out.append('"');
        }
        m_out.append('>');
        // Elements a browser knows as empty that libxml2 would let hold what follows.
        if (NameIn(m_name, {"embed", "source", "track", "wbr", "keygen", "bgsound"})) {
            m_out.append("</");
            AppendName(m_name);
            m_out.append('>');
            return;
        }
        // A browser drops a line break that directly follows these start tags.
        if (NameIn(m_name, {"pre", "listing", "textarea"}) && m_p < m_end && *m_p == '\n')
            ++m_p;
        const Content content = ContentOf(m_name);
        if (content != Content::Markup)
            TextContent(content);
    }

    void EndTag() {
        if (!ReadTag()) {
            m_p = m_end;
            return;
        }
        // A browser reads "</br>" as "<br>", and "</body>" and "</html>" close nothing: what comes
        // behind them still goes into the elements left open.
        if (m_name == "br") {
            m_out.append("<br>");
            return;
        }
        if (m_name == "body" || m_name == "html")
            return;
        m_out.append("</");
        AppendName(m_name);
        m_out.append('>');
    }

    // The end tag that ends the text of the element just opened: its name in any capitals, followed
    // by a blank, '/' or '>'. Returns its '<', or the end of the page.
    const char* FindEndTag(const std::string& name) const {
        for (const char* p = m_p; p < m_end; ++p) {
            p = static_cast<const char*>(std::memchr(p, '<', std::size_t(m_end - p)));
            if (!p)
                return m_end;
            const char* q = p + 2;
            if (p + 1 >= m_end || p[1] != '/' || qsizetype(m_end - q) <= qsizetype(name.size()))
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

    void TextContent(Content content) {
        const std::string name = m_name;
        const char* close = content == Content::PlainText ? m_end : FindEndTag(name);
        if (content == Content::Script) {
            AppendChars(m_p, close - m_p, Escape::None);
            m_p = close;
        } else if (content == Content::ReplaceableText) {
            while (m_p < close) {
                if (*m_p == '&') {
                    TextReference();
                    continue;
                }
                const qsizetype length = std::min(CharLength(m_p), qsizetype(close - m_p));
                AppendText(m_p, length);
                m_p += length;
            }
        } else {
            AppendText(m_p, close - m_p);
            m_p = close;
        }
        if (m_p >= m_end)
            return;
        m_p += 2;
        if (!ReadTag()) {
            m_p = m_end;
            return;
        }
        m_out.append("</");
        AppendName(name);
        m_out.append('>');
    }

    // libxml2 ends a comment at the first "-->", which the text never holds.
    void AppendComment(const char* data, qsizetype length) {
        m_out.append("<!--");
        AppendChars(data, length, Escape::None);
        m_out.append("-->");
    }

    void Declaration() {
        const auto startsWith = [this](const char* text, bool anyCase) {
            const std::size_t n = std::strlen(text);
            if (std::size_t(m_end - m_p) < n)
                return false;
            for (std::size_t i = 0; i < n; ++i)
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
            AppendComment(m_p, 0);
            return;
        }
        if (m_end - m_p >= 2 && m_p[0] == '-' && m_p[1] == '>') {
            m_p += 2;
            AppendComment(m_p, 0);
            return;
        }
        const char* data = m_p;
        for (const char* q = m_p; q < m_end; ++q) {
            if (*q != '-' || m_end - q < 3 || q[1] != '-')
                continue;
            if (q[2] == '>' || (q[2] == '!' && m_end - q >= 4 && q[3] == '>')) {
                AppendComment(data, q - data);
                m_p = q + (q[2] == '>' ? 3 : 4);
                return;
            }
        }
        AppendComment(data, m_end - data);
        m_p = m_end;
    }

    void BogusComment() {
        const char* data = m_p;
        const char* close = static_cast<const char*>(std::memchr(m_p, '>', std::size_t(m_end - m_p)));
        m_p = close ? close + 1 : m_end;
        AppendComment(data, (close ? close : m_end) - data);
    }

    const char* m_p;
    const char* m_end;
    NormalisedHtml& m_result;
    QByteArray& m_out;
    std::string m_name;
    std::vector<Attribute> m_attributes;
    std::size_t m_count = 0;
};

} // namespace

QByteArray DecodeCharacterReference(const char* from, const char* end, bool inAttribute,
                                    const char** behind) {
    *behind = from;
    const char* p = from + 1;
    if (p >= end)
        return {};
    QByteArray text;
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
            return {};
        if (q < end && *q == ';')
            ++q;
        if (value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            value = 0xFFFD;
        else if (value >= 0x80 && value < 0xA0)
            value = Windows1252Character(static_cast<unsigned char>(value));
        AppendUtf8(text, value);
        *behind = q;
        return text;
    }
    if (!IsAlnum(*p))
        return {};
    const char* q = p;
    while (q < end && IsAlnum(*q) && q - p < 64)
        ++q;
    const auto run = std::size_t(q - p);
    if (q < end && *q == ';') {
        if (const NamedReference* named = FindNamed(p, run + 1)) {
            *behind = q + 1;
            return QByteArray(named->utf8);
        }
    }
    // The longest legacy name at the start of the run; none is longer than six letters.
    for (std::size_t n = std::min<std::size_t>(run, 6); n >= 2; --n) {
        const NamedReference* named = FindNamed(p, n);
        if (!named)
            continue;
        const char* after = p + n;
        if (inAttribute && after < end && (*after == '=' || IsAlnum(*after)))
            return {};
        *behind = after;
        return QByteArray(named->utf8);
    }
    return {};
}

NormalisedHtml NormaliseHtml(const QByteArray& utf8) {
    NormalisedHtml result;
    result.markup.reserve(utf8.size() + utf8.size() / 8 + 64);
    Normaliser(utf8, result).Run();
    return result;
}

const char* RestoreName(const char* name, const std::vector<std::string>& names) {
    if (name[0] != 'm' || name[1] != '-' || name[2] != '-' || !IsDigit(name[3]))
        return name;
    char* end = nullptr;
    const unsigned long index = std::strtoul(name + 3, &end, 10);
    if (*end != '\0' || index >= names.size())
        return name;
    return names[index].c_str();
}

void RestoreStandIns(const char* text, std::size_t length, std::string& out) {
    const char* end = text + length;
    for (const char* p = text; p < end; ++p) {
        if (*p == '\xEF' && end - p >= 3) {
            const auto second = static_cast<unsigned char>(p[1]);
            const auto third = static_cast<unsigned char>(p[2]);
            if (second == 0x9C && third >= 0x80 && third < 0xA0) {
                out += char(third - 0x80);
                p += 2;
                continue;
            }
            if (second == 0x9F && (third == 0xBE || third == 0xBF)) {
                out.append("\xEF\xBF");
                out += char(third);
                p += 2;
                continue;
            }
        }
        out += *p;
    }
}
