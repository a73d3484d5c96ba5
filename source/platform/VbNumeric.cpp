#include "VbNumeric.h"

#include <QString>
#include <cmath>
#include <limits>

namespace {

bool isBlank(QChar c) {
    return c == u' ' || c == u'\t';
}

int digitValue(QChar c) {
    const char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9')
        return u - u'0';
    if (u >= u'a' && u <= u'f')
        return u - u'a' + 10;
    if (u >= u'A' && u <= u'F')
        return u - u'A' + 10;
    return -1;
}

// Reads &H / &O / & numbers. Returns nothing when the text is not of that form.
std::optional<double> parseRadix(QStringView text) {
    if (text.size() < 2 || text[0] != u'&')
        return std::nullopt;
    int base = 8;
    qsizetype pos = 1;
    const QChar marker = text[1].toUpper();
    if (marker == u'H') {
        base = 16;
        pos = 2;
    } else if (marker == u'O') {
        pos = 2;
    }
    if (pos >= text.size())
        return std::nullopt;
    std::uint64_t value = 0;
    qsizetype digits = 0;
    for (; pos < text.size(); ++pos) {
        const int d = digitValue(text[pos]);
        if (d < 0 || d >= base)
            return std::nullopt;
        value = value * std::uint64_t(base) + std::uint64_t(d);
        ++digits;
        if (value > 0xFFFFFFFFull)
            return std::nullopt;
    }
    // Short forms are 16-bit patterns and longer ones 32-bit, as the platform types them.
    const bool sixteenBit = base == 16 ? digits <= 4 : value <= 0xFFFF && digits <= 6;
    if (sixteenBit)
        return double(std::int16_t(std::uint16_t(value)));
    return double(std::int32_t(std::uint32_t(value)));
}

bool startsWithAt(QStringView text, qsizetype pos, const QString& token) {
    return !token.isEmpty() && text.mid(pos).startsWith(token);
}

struct LocaleSymbols {
    QString decimal;
    QString group;
    QString currency;
    QString minus;
    QString plus;
};

// The tally asks about every word of every title, and a locale makes each symbol anew when asked,
// so the symbols of the last locale asked about are kept until another one is.
const LocaleSymbols& SymbolsOf(const QLocale& locale) {
    thread_local std::optional<QLocale> cachedLocale;
    thread_local LocaleSymbols symbols;
    if (!cachedLocale || *cachedLocale != locale) {
        symbols = {locale.decimalPoint(), locale.groupSeparator(),
                   locale.currencySymbol(QLocale::CurrencySymbol), locale.negativeSign(),
                   locale.positiveSign()};
        cachedLocale = locale;
    }
    return symbols;
}

} // namespace

QLocale NumericLocale() {
    const QLocale locale;
    if (locale.language() == QLocale::C)
        return QLocale(QLocale::English, QLocale::UnitedStates);
    return locale;
}

std::optional<double> ParseVbNumber(QStringView text, const QLocale& locale) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text[begin]))
        ++begin;
    while (end > begin && isBlank(text[end - 1]))
        --end;
    text = text.mid(begin, end - begin);
    if (text.isEmpty())
        return std::nullopt;
    if (text[0] == u'&')
        return parseRadix(text);

    const LocaleSymbols& symbols = SymbolsOf(locale);
    const QString& decimal = symbols.decimal;
    const QString& group = symbols.group;
    const QString& currency = symbols.currency;
    const QString& minus = symbols.minus;
    const QString& plus = symbols.plus;

    bool negative = false;
    bool haveSign = false;
    bool haveCurrency = false;
    bool openParen = false;
    qsizetype pos = 0;
    auto skipBlanks = [&] {
        while (pos < text.size() && isBlank(text[pos]))
            ++pos;
    };
    // Prefix tokens: a sign, an opening parenthesis and the currency symbol, each once, any order.
    for (bool progress = true; progress;) {
        progress = false;
        skipBlanks();
        if (!haveSign && !openParen && (startsWithAt(text, pos, minus) || startsWithAt(text, pos, plus))) {
            negative = startsWithAt(text, pos, minus);
            pos += negative ? minus.size() : plus.size();
            haveSign = progress = true;
        } else if (!openParen && !haveSign && text.mid(pos).startsWith(u'(')) {
            ++pos;
            openParen = progress = true;
        } else if (!haveCurrency && startsWithAt(text, pos, currency)) {
            pos += currency.size();
            haveCurrency = progress = true;
        }
    }

    // The mantissa in a canonical form the C locale reads.
    QByteArray canonical;
    qsizetype intDigits = 0;
    qsizetype fracDigits = 0;
    while (pos < text.size()) {
        if (text[pos].isDigit() && text[pos] <= u'9') {
            canonical += char(text[pos].unicode());
            ++intDigits;
            ++pos;
        } else if (intDigits > 0 && startsWithAt(text, pos, group)) {
            pos += group.size();
        } else {
            break;
        }
    }
    if (startsWithAt(text, pos, decimal)) {
        pos += decimal.size();
        canonical += '.';
        while (pos < text.size() && text[pos].isDigit() && text[pos] <= u'9') {
            canonical += char(text[pos].unicode());
            ++fracDigits;
            ++pos;
        }
    }
    if (intDigits + fracDigits == 0)
        return std::nullopt;
    if (pos < text.size()) {
        const QChar e = text[pos].toUpper();
        if (e == u'E' || e == u'D') {
            qsizetype p = pos + 1;
            QByteArray exponent = "e";
            if (p < text.size() && (text[p] == u'+' || text[p] == u'-'))
                exponent += char(text[p++].unicode());
            qsizetype expDigits = 0;
            while (p < text.size() && text[p].isDigit() && text[p] <= u'9') {
                exponent += char(text[p++].unicode());
                ++expDigits;
            }
            if (expDigits == 0)
                return std::nullopt;
            canonical += exponent;
            pos = p;
        }
    }

    // Suffix tokens: the currency symbol, a trailing sign, the closing parenthesis.
    bool closeParen = false;
    for (bool progress = true; progress;) {
        progress = false;
        skipBlanks();
        if (!haveCurrency && startsWithAt(text, pos, currency)) {
            pos += currency.size();
            haveCurrency = progress = true;
        } else if (!haveSign && !openParen &&
                   (startsWithAt(text, pos, minus) || startsWithAt(text, pos, plus))) {
            negative = startsWithAt(text, pos, minus);
            pos += negative ? minus.size() : plus.size();
            haveSign = progress = true;
        } else if (openParen && !closeParen && text.mid(pos).startsWith(u')')) {
            ++pos;
            closeParen = progress = true;
        }
    }
    if (pos != text.size() || openParen != closeParen)
        return std::nullopt;

    double value = 0;
    if (fracDigits == 0 && canonical.size() == intDigits && intDigits <= 15) {
        // Whole numbers below 10^15 are exact in a double, so they need no general reader.
        std::int64_t whole = 0;
        for (const char digit : canonical)
            whole = whole * 10 + (digit - '0');
        value = double(whole);
        return negative || openParen ? -value : value;
    }
    bool ok = false;
    value = QLocale::c().toDouble(QLatin1StringView(canonical), &ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    if (negative || openParen)
        value = -value;
    return value;
}

bool IsNumeric(QStringView text, const QLocale& locale) {
    return ParseVbNumber(text, locale).has_value();
}

Int16Conversion ToInt16(QStringView text, const QLocale& locale) {
    const std::optional<double> value = ParseVbNumber(text, locale);
    if (!value)
        return {ConversionStatus::TypeMismatch, 0};
    // nearbyint rounds a half to the even neighbour in the default rounding mode.
    const double rounded = std::nearbyint(*value);
    if (rounded < std::numeric_limits<std::int16_t>::min() ||
        rounded > std::numeric_limits<std::int16_t>::max())
        return {ConversionStatus::Overflow, 0};
    return {ConversionStatus::Ok, std::int16_t(rounded)};
}
