#include "TitleSnapshot.h"

#include "modMain.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

const QString SnapshotKind = QStringLiteral("marquill titles");

QByteArray Line(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

const QRegularExpression& PageKey() {
    static const QRegularExpression key(QStringLiteral("QQlopgZ(\\d+)"),
                                        QRegularExpression::CaseInsensitiveOption);
    return key;
}

} // namespace

QByteArray SnapshotToJsonLines(const TitleSnapshot& snapshot) {
    QByteArray bytes = Line({
        {QStringLiteral("kind"), SnapshotKind},
        {QStringLiteral("site"), snapshot.site},
        {QStringLiteral("node"), snapshot.node},
        {QStringLiteral("limit"),
         snapshot.limit == NoAuctionLimit ? QJsonValue() : QJsonValue(snapshot.limit)},
        {QStringLiteral("time"), snapshot.time.toUTC().toString(Qt::ISODate)},
        {QStringLiteral("version"), snapshot.version},
        {QStringLiteral("locale"), snapshot.locale},
        {QStringLiteral("titles"), qint64(snapshot.titles.size())},
    });
    for (const SnapshotTitle& title : snapshot.titles)
        bytes += Line({{QStringLiteral("site"), title.site},
                       {QStringLiteral("node"), title.node},
                       {QStringLiteral("page_url"), title.pageUrl},
                       {QStringLiteral("page"), title.page},
                       {QStringLiteral("title"), title.title}});
    return bytes;
}

std::optional<TitleSnapshot> ReadSnapshot(const QByteArray& bytes, QString& error) {
    TitleSnapshot snapshot;
    qsizetype start = 0;
    int lineNumber = 0;
    bool header = true;
    while (start < bytes.size()) {
        qsizetype end = bytes.indexOf('\n', start);
        if (end < 0)
            end = bytes.size();
        const QByteArray line = bytes.mid(start, end - start).trimmed();
        start = end + 1;
        ++lineNumber;
        if (line.isEmpty())
            continue;
        QJsonParseError parse;
        const QJsonDocument document = QJsonDocument::fromJson(line, &parse);
        const QJsonObject object = document.object();
        if (parse.error != QJsonParseError::NoError || !document.isObject()) {
            error = QStringLiteral("line %1 is no JSON object").arg(lineNumber);
            return std::nullopt;
        }
        if (header) {
            if (object.value(QStringLiteral("kind")).toString() != SnapshotKind) {
                error = QStringLiteral("line 1 is no header of a title snapshot");
                return std::nullopt;
            }
            snapshot.site = object.value(QStringLiteral("site")).toString();
            snapshot.node = object.value(QStringLiteral("node")).toString();
            const QJsonValue limit = object.value(QStringLiteral("limit"));
            snapshot.limit = limit.isDouble() ? std::int32_t(limit.toInteger()) : NoAuctionLimit;
            snapshot.time =
                QDateTime::fromString(object.value(QStringLiteral("time")).toString(), Qt::ISODate);
            snapshot.version = object.value(QStringLiteral("version")).toString();
            snapshot.locale = object.value(QStringLiteral("locale")).toString();
            header = false;
            continue;
        }
        const QJsonValue title = object.value(QStringLiteral("title"));
        if (!title.isString()) {
            error = QStringLiteral("line %1 has no title").arg(lineNumber);
            return std::nullopt;
        }
        snapshot.titles.push_back({object.value(QStringLiteral("site")).toString(),
                                   object.value(QStringLiteral("node")).toString(),
                                   object.value(QStringLiteral("page_url")).toString(),
                                   object.value(QStringLiteral("page")).toInt(), title.toString()});
    }
    if (header) {
        error = QStringLiteral("the file is empty");
        return std::nullopt;
    }
    return snapshot;
}

int PageNumberOfUrl(const QString& url) {
    const QRegularExpressionMatch match = PageKey().match(url);
    return match.hasMatch() ? match.captured(1).toInt() : 1;
}

QString FirstPageUrl(const QString& url) {
    return QString(url).remove(PageKey());
}

SnapshotRecorder::SnapshotRecorder(TitleSnapshot& snapshot, std::function<QString(const QString&)> nodeOfUrl,
                                   HarvestObserver* next)
    : m_snapshot(snapshot), m_nodeOfUrl(std::move(nodeOfUrl)), m_next(next) {}

void SnapshotRecorder::TitleStarted(const QString& title) {
    // Until its page is reported, a title stands under the searched node; a run stopped inside a
    // page still keeps it so.
    m_snapshot.titles.push_back({m_snapshot.site, m_snapshot.node, QString(), 0, title});
}

void SnapshotRecorder::PagesAhead(const QStringList& urls) {
    if (m_next)
        m_next->PagesAhead(urls);
}

void SnapshotRecorder::PageScanned(const ScannedPage& page) {
    // The page is reported after its walk, so the titles since the last report are its own.
    const QString node = m_nodeOfUrl ? m_nodeOfUrl(FirstPageUrl(page.url)) : QString();
    const int number = PageNumberOfUrl(page.url);
    for (size_t i = m_firstPending; i < m_snapshot.titles.size(); ++i) {
        SnapshotTitle& title = m_snapshot.titles[i];
        title.pageUrl = page.url;
        title.page = number;
        if (!node.isEmpty())
            title.node = node;
    }
    m_firstPending = m_snapshot.titles.size();
    if (m_next)
        m_next->PageScanned(page);
}
