#include "PageText.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iconv.h>

namespace {

enum class Codec { Utf8, Cp1252, Iconv, Unknown };

struct Charset {
    Codec codec = Codec::Unknown;
    QByteArray iconvName;
};

bool IsHtmlSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

bool IconvKnows(const QByteArray& name) {
    const iconv_t cd = iconv_open("UTF-8", name.constData());
    if (cd == iconv_t(-1))
        return false;
    iconv_close(cd);
    return true;
}

// The labels a browser reads as UTF-8 or as windows-1252; every other name goes to iconv.
Charset Classify(const QString& label) {
    const QByteArray name = label.trimmed().toLower().toLatin1();
    if (name.isEmpty())
        return {};
    static const char* const utf8[] = {"utf-8",         "utf8",          "unicode-1-1-utf-8",
                                       "unicode11utf8", "unicode20utf8", "x-unicode20utf8"};
    for (const char* known : utf8)
        if (name == known)
            return {Codec::Utf8, {}};
    // Latin-1 and ASCII pages are read as windows-1252, their superset, as browsers do.
    static const char* const cp1252[] = {
        "windows-1252",   "cp1252",          "x-cp1252", "iso-8859-1",  "iso8859-1", "iso88591",
        "iso_8859-1",     "iso_8859-1:1987", "latin1",   "l1",          "us-ascii",  "ascii",
        "ansi_x3.4-1968", "cp819",           "ibm819",   "csisolatin1", "iso-ir-100"};
    for (const char* known : cp1252)
        if (name == known)
            return {Codec::Cp1252, {}};
    if (IconvKnows(name))
        return {Codec::Iconv, name};
    return {};
}

// Skips bytes below 0x80 other than CR, eight at a time where it can.
const char* SkipPlain(const char* p, const char* end) {
    constexpr std::uint64_t ones = 0x0101010101010101u;
    constexpr std::uint64_t highs = 0x8080808080808080u;
    while (end - p >= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        const std::uint64_t cr = word ^ (0x0D * ones);
        if (((word | ((cr - ones) & ~cr)) & highs) != 0)
            break;
        p += 8;
    }
    while (p < end && static_cast<unsigned char>(*p) < 0x80 && *p != '\r')
        ++p;
    return p;
}

// Writes the decoded text into a buffer made large enough beforehand: no byte of the page becomes
// more than three, and a byte below 0x80 stays one.
class Writer {
public:
    Writer(QByteArray& out, const char* p, const char* end) : m_out(out) {
        qsizetype high = 0;
        for (const char* q = SkipPlain(p, end); q < end; q = SkipPlain(q + 1, end))
            high += static_cast<unsigned char>(*q) >= 0x80;
        m_start = out.size();
        out.resize(m_start + (end - p) + 2 * high);
        m_w = out.data() + m_start;
    }
    ~Writer() { m_out.truncate(m_w - m_out.constData()); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void Put(char c) { *m_w++ = c; }
    void Put(const char* from, qsizetype n) {
        std::memcpy(m_w, from, std::size_t(n));
        m_w += n;
    }
    void Replacement() { Put("\xEF\xBF\xBD", 3); }
    void Utf8(char32_t c) {
        if (c < 0x80) {
            Put(char(c));
        } else if (c < 0x800) {
            Put(char(0xC0 | (c >> 6)));
            Put(char(0x80 | (c & 0x3F)));
        } else {
            Put(char(0xE0 | (c >> 12)));
            Put(char(0x80 | ((c >> 6) & 0x3F)));
            Put(char(0x80 | (c & 0x3F)));
        }
    }
    // A run of ASCII as a browser's input stream has it: CR LF and CR made LF. Stops at the first
    // byte of 0x80 or more; returns where.
    const char* Ascii(const char* p, const char* end) {
        while (p < end) {
            const char* run = p;
            p = SkipPlain(p, end);
            Put(run, p - run);
            if (p >= end || *p != '\r')
                break;
            Put('\n');
            p += (p + 1 < end && p[1] == '\n') ? 2 : 1;
        }
        return p;
    }

private:
    QByteArray& m_out;
    qsizetype m_start = 0;
    char* m_w = nullptr;
};

// The decoder of the encoding standard: each ill-formed sequence, as far as it goes, is one U+FFFD.
void DecodeUtf8(const char* p, const char* end, QByteArray& out) {
    Writer w(out, p, end);
    while (p < end) {
        p = w.Ascii(p, end);
        if (p >= end)
            break;
        const auto lead = static_cast<unsigned char>(*p);
        int needed = 0;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            needed = 1;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            needed = 2;
            low = lead == 0xE0 ? 0xA0 : 0x80;
            high = lead == 0xED ? 0x9F : 0xBF;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            needed = 3;
            low = lead == 0xF0 ? 0x90 : 0x80;
            high = lead == 0xF4 ? 0x8F : 0xBF;
        }
        if (needed == 0) {
            w.Replacement();
            ++p;
            continue;
        }
        const char* q = p + 1;
        bool whole = true;
        for (int i = 0; i < needed; ++i, ++q) {
            const auto byte = q < end ? static_cast<unsigned char>(*q) : 0;
            if (q >= end || byte < low || byte > high) {
                whole = false;
                break;
            }
            low = 0x80;
            high = 0xBF;
        }
        if (whole)
            w.Put(p, q - p);
        else
            w.Replacement();
        p = q;
    }
}

// windows-1252's bytes 0x80..0x9F; the five it leaves undefined map to the C1 controls.
constexpr std::array<char16_t, 32> Cp1252High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void DecodeCp1252(const char* p, const char* end, QByteArray& out) {
    Writer w(out, p, end);
    while (p < end) {
        p = w.Ascii(p, end);
        if (p < end)
            w.Utf8(Windows1252Character(static_cast<unsigned char>(*p++)));
    }
}

// iconv stops at the first byte its charset does not allow; the page goes on behind it.
bool DecodeIconv(const QByteArray& charset, const char* p, const char* end, QByteArray& out) {
    const iconv_t cd = iconv_open("UTF-8", charset.constData());
    if (cd == iconv_t(-1))
        return false;
    QByteArray converted;
    converted.resize(4 * (end - p) + 16);
    char* in = const_cast<char*>(p);
    size_t inLeft = size_t(end - p);
    char* to = converted.data();
    size_t toLeft = size_t(converted.size());
    while (inLeft > 0) {
        if (iconv(cd, &in, &inLeft, &to, &toLeft) != size_t(-1))
            break;
        if (errno == E2BIG) {
            const qsizetype used = to - converted.data();
            converted.resize(converted.size() * 2);
            to = converted.data() + used;
            toLeft = size_t(converted.size() - used);
            continue;
        }
        if (toLeft < 3) {
            const qsizetype used = to - converted.data();
            converted.resize(converted.size() + 64);
            to = converted.data() + used;
            toLeft = size_t(converted.size() - used);
        }
        std::memcpy(to, "\xEF\xBF\xBD", 3);
        to += 3;
        toLeft -= 3;
        // A sequence cut off by the end of the page is one replacement; a bad byte is skipped.
        if (errno != EILSEQ)
            break;
        ++in;
        --inLeft;
    }
    iconv_close(cd);
    converted.truncate(to - converted.data());
    // What came out is UTF-8; it still needs the input stream's line-end rule.
    Writer w(out, converted.constData(), converted.constData() + converted.size());
    const char* c = converted.constData();
    const char* cEnd = c + converted.size();
    while (c < cEnd) {
        c = w.Ascii(c, cEnd);
        if (c < cEnd)
            w.Put(*c++);
    }
    return true;
}

} // namespace

char32_t Windows1252Character(unsigned char byte) {
    return byte >= 0x80 && byte < 0xA0 ? Cp1252High[byte - 0x80] : char32_t(byte);
}

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

QByteArray DecodePageText(const QByteArray& body, const QString& httpCharset) {
    const char* p = body.constData();
    const char* end = p + body.size();
    Charset charset;
    if (body.startsWith("\xEF\xBB\xBF")) {
        charset.codec = Codec::Utf8;
        p += 3;
    } else if (body.startsWith("\xFE\xFF") || body.startsWith("\xFF\xFE")) {
        charset = {Codec::Iconv, body.startsWith("\xFE\xFF") ? "UTF-16BE" : "UTF-16LE"};
        p += 2;
    } else {
        charset = Classify(httpCharset);
        if (charset.codec == Codec::Unknown) {
            charset = Classify(MetaCharset(body));
            // A page that can say so in ASCII is no UTF-16 page, whatever it says.
            if (charset.iconvName.startsWith("utf-16"))
                charset = {Codec::Utf8, {}};
        }
    }
    // Plain ASCII without a carriage return is its own text in an ASCII-compatible charset.
    if (charset.codec != Codec::Iconv && p == body.constData() && SkipPlain(p, end) == end)
        return body;
    QByteArray out;
    if (charset.codec == Codec::Utf8)
        DecodeUtf8(p, end, out);
    else if (charset.codec != Codec::Iconv || !DecodeIconv(charset.iconvName, p, end, out))
        DecodeCp1252(p, end, out);
    return out;
}
