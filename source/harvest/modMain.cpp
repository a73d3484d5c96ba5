#include "modMain.h"

HarvestRecord HarvestState;

QString ItemPagePrefix(const QString& siteLabel) {
    return QStringLiteral("http://cgi.") + siteLabel + QLatin1Char('/');
}

QString ListingsBaseUrl(const QString& siteLabel) {
    return QStringLiteral("http://listings.") + siteLabel + QLatin1Char('/');
}

void KeywordGrid::Reset() {
    m_counts.assign(1, QString());
    m_words.assign(1, QString());
    m_index.clear();
    m_singleCell = true;
}

qsizetype KeywordGrid::Add(const QString& word, const QString& upperWord) {
    m_singleCell = false;
    m_counts.push_back(QStringLiteral("1"));
    m_words.push_back(word);
    const qsizetype column = LastEntry();
    m_index.insert(upperWord, column);
    return column;
}
