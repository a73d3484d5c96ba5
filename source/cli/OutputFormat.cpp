#include "OutputFormat.h"

#include <QJsonArray>
#include <QJsonDocument>

std::optional<OutputFormat> OutputFormatNamed(const QString& name) {
    if (name == u"csv")
        return OutputFormat::Csv;
    if (name == u"tsv")
        return OutputFormat::Tsv;
    if (name == u"json")
        return OutputFormat::Json;
    return std::nullopt;
}

QString CsvField(const QString& text) {
    for (const QChar c : text) {
        if (c == u',' || c == u'"' || c == u'\n' || c == u'\r')
            return u'"' + QString(text).replace(u'"', QStringLiteral("\"\"")) + u'"';
    }
    return text;
}

QString TsvField(const QString& text) {
    QString field;
    field.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'\t':
            field += QStringLiteral("\\t");
            break;
        case u'\n':
            field += QStringLiteral("\\n");
            break;
        case u'\r':
            field += QStringLiteral("\\r");
            break;
        case u'\\':
            field += QStringLiteral("\\\\");
            break;
        default:
            field += c;
        }
    }
    return field;
}

QByteArray FormatWords(OutputFormat format, const std::vector<ResultRow>& rows, const QJsonObject& about) {
    if (format == OutputFormat::Json) {
        QJsonArray words;
        for (const ResultRow& row : rows)
            words.append(QJsonObject{{QStringLiteral("word"), row.word},
                                     {QStringLiteral("count"), row.count.toLongLong()}});
        QJsonObject object = about;
        object.insert(QStringLiteral("words"), words);
        return QJsonDocument(object).toJson(QJsonDocument::Indented);
    }
    QString text;
    for (const ResultRow& row : rows) {
        if (format == OutputFormat::Csv)
            text += CsvField(row.word) + u',' + row.count + u'\n';
        else
            text += TsvField(row.word) + u'\t' + row.count + u'\n';
    }
    return text.toUtf8();
}
