#pragma once

#include "ResultRows.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <optional>
#include <vector>

enum class OutputFormat { Csv, Tsv, Json };

// "csv", "tsv" or "json"; nothing for any other name.
std::optional<OutputFormat> OutputFormatNamed(const QString& name);

// A CSV field (RFC 4180): quoted, with its quotes doubled, when it holds a comma, a quote or a
// line break; else as it is, so an ordinary word,count line is the results file's.
QString CsvField(const QString& text);
// A TSV field: no quoting; a tab, a line break, a carriage return and a backslash are written
// \t, \n, \r and \\, so that every field reads back to the word it was.
QString TsvField(const QString& text);

// The words of a search in one of the formats, UTF-8: one word,count line per row (csv and tsv,
// no header line), or for json one object that is `about` with "words": [{"word", "count"}]
// added. Rows that know their titles get a third field ("titles" in json); a list of phrases
// goes under its own name.
QByteArray FormatWords(OutputFormat format, const std::vector<ResultRow>& rows, const QJsonObject& about,
                       const QString& listName = QStringLiteral("words"));
