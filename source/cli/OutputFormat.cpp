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

QByteArray FormatWords(OutputFormat format, const std::vector<ResultRow>& rows, const QJsonObject& about,
                       const QString& listName) {
    if (format == OutputFormat::Json) {
        QJsonArray words;
        for (const ResultRow& row : rows) {
            QJsonObject word{{QStringLiteral("word"), row.word},
                             {QStringLiteral("count"), row.count.toLongLong()}};
            if (row.titles >= 0)
                word.insert(QStringLiteral("titles"), row.titles);
            words.append(word);
        }
        QJsonObject object = about;
        object.insert(listName, words);
        return QJsonDocument(object).toJson(QJsonDocument::Indented);
    }
    QString text;
    for (const ResultRow& row : rows) {
        const QChar separator = format == OutputFormat::Csv ? u',' : u'\t';
        text +=
            (format == OutputFormat::Csv ? CsvField(row.word) : TsvField(row.word)) + separator + row.count;
        if (row.titles >= 0)
            text += separator + QString::number(row.titles);
        text += u'\n';
    }
    return text.toUtf8();
}
