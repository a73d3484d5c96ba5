#include "PageText.h"

#include <array>
#include <cctype>
#include <cerrno>
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

void AppendReplacement(QByteArray& out) {
    out.append("\xEF\xBF\xBD", 3);
}

// One byte of ASCII as a browser's input stream has it: CR LF and CR made LF.
// Returns how many input bytes it took.
qsizetype AppendAscii(QByteArray& out, const char* p, const char* end) {
    if (*p == '\r') {
        out.append('\n');
        if (p + 1 < end && p[1] == '\n')
            return 2;
    } else {
        out.append(*p);
    }
    return 1;
}

// The decoder of the encoding standard: each ill-formed sequence, as far as it goes, is one U+FFFD.
void DecodeUtf8(const char* p, const char* end, QByteArray& out) {
    while (p < end) {
        const auto lead = static_cast<unsigned char>(*p);
        if (lead < 0x80) {
            const char* run = p;
            while (p < end && static_cast<unsigned char>(*p) >= 0x20 && static_cast<unsigned char>(*p) < 0x80)
                ++p;
            out.append(run, p - run);
            if (p < end && static_cast<unsigned char>(*p) < 0x20)
                p += AppendAscii(out, p, end);
            continue;
        }
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
            AppendReplacement(out);
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
            out.append(p, q - p);
        else
            AppendReplacement(out);
        p = q;
    }
}

// windows-1252's bytes 0x80..0x9F; the five it leaves undefined map to the C1 controls.
constexpr std::array<char16_t, 32> Cp1252High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void AppendUtf8(QByteArray& out, char32_t c) {
    if (c < 0x80) {
        out.append(char(c));
    } else if (c < 0x800) {
        out.append(char(0xC0 | (c >> 6)));
        out.append(char(0x80 | (c & 0x3F)));
    } else {
        out.append(char(0xE0 | (c >> 12)));
        out.append(char(0x80 | ((c >> 6) & 0x3F)));
        out.append(char(0x80 | (c & 0x3F)));
    }
}

void DecodeCp1252(const char* p, const char* end, QByteArray& out) {
    while (p < end) {
        const auto byte = static_cast<unsigned char>(*p);
        if (byte < 0x20) {
            p += AppendAscii(out, p, end);
            continue;
        }
        if (byte < 0x80)
            out.append(*p);
        else
            AppendUtf8(out, Windows1252Character(byte));
        ++p;
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
    out.reserve(converted.size());
    const char* c = converted.constData();
    const char* cEnd = c + converted.size();
    while (c < cEnd) {
        if (static_cast<unsigned char>(*c) < 0x20)
            c += AppendAscii(out, c, cEnd);
        else
            out.append(*c++);
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
    QByteArray out;
    out.reserve(body.size() + body.size() / 16 + 16);
    if (charset.codec == Codec::Utf8)
        DecodeUtf8(p, end, out);
    else if (charset.codec != Codec::Iconv || !DecodeIconv(charset.iconvName, p, end, out))
        DecodeCp1252(p, end, out);
    return out;
}
