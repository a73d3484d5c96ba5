// The numeric rules under locales with other separators, signs and currencies. Any text is judged
// without a fault, blanks around it change nothing, and a 16-bit number as the locale writes it,
// whole or with two decimals, reads back as that number.
#include "FuzzTarget.h"
#include "VbNumeric.h"

#include <cmath>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    static const QLocale locales[] = {
        QLocale(QLocale::English, QLocale::UnitedStates), QLocale(QLocale::German, QLocale::Germany),
        QLocale(QLocale::French, QLocale::France),        QLocale(QLocale::German, QLocale::Switzerland),
        QLocale(QLocale::English, QLocale::India),        QLocale(QLocale::Swedish, QLocale::Sweden)};
    if (size < 3)
        return 0;
    const QLocale& locale = locales[data[0] % 6];
    const auto number = std::int16_t(data[1] | data[2] << 8);
    const QString text = QString::fromUtf8(FuzzBytes(data + 3, size - 3));
    FUZZ_CHECK(IsNumeric(text, locale) == IsNumeric(QStringLiteral(" \t") + text + u' ', locale));
    ToInt16(text, locale);
    const Int16Conversion whole = ToInt16(locale.toString(number), locale);
    FUZZ_CHECK(whole.status == ConversionStatus::Ok && whole.value == number);
    const Int16Conversion hundredths = ToInt16(locale.toString(number / 100.0, 'f', 2), locale);
    FUZZ_CHECK(hundredths.status == ConversionStatus::Ok &&
               hundredths.value == std::nearbyint(number / 100.0));
    return 0;
}
