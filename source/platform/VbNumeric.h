#pragma once

#include <QLocale>
#include <QStringView>
#include <cstdint>
#include <optional>

// The old platform's numeric rules: what its IsNumeric accepts and how it turns text into a 16-bit
// integer, under a locale's symbols. Accepted: digits with the locale's decimal separator and
// digit grouping; a sign before or after the number; a number in parentheses (negative); the
// locale's currency symbol before or after; an exponent with E or D; &H hexadecimal and &O (or a
// bare &) octal; blanks and tabs around and between the tokens.

// The locale of every numeric rule: the process's default locale, or US English when the process
// has none (C or POSIX), since the C locale knows no currency and no grouping and the rules were
// made for US English.
QLocale NumericLocale();

// The value of the text, or nothing when the text is not a number (or beyond a double's range).
std::optional<double> ParseVbNumber(QStringView text, const QLocale& locale = NumericLocale());

bool IsNumeric(QStringView text, const QLocale& locale = NumericLocale());

enum class ConversionStatus { Ok, TypeMismatch, Overflow };

struct Int16Conversion {
    ConversionStatus status = ConversionStatus::TypeMismatch;
    std::int16_t value = 0;
};

// The text as a 16-bit integer: a fraction rounds to the nearest even integer; a value outside
// -32768..32767 after rounding is an overflow, reported and never wrapped. &H and &O numbers of up
// to four hex (six octal) digits are 16-bit patterns, so &HFFFF is -1; longer ones are 32-bit.
Int16Conversion ToInt16(QStringView text, const QLocale& locale = NumericLocale());
