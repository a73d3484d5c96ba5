#include "modMain.h"

#include <QHashFunctions>

HarvestRecord HarvestState;

QString ItemPagePrefix(const QString& siteLabel) {
    return QStringLiteral("http://cgi.") + siteLabel + QLatin1Char('/');
}

QString ListingsBaseUrl(const QString& siteLabel) {
    return QStringLiteral("http://listings.") + siteLabel + QLatin1Char('/');
}

void KeywordGrid::Reset() {
    // Assigning empty containers hands the memory of a large search back.
    m_words = QString();
    m_upperWords = QString();
    m_wordEnds = {0};
    m_upperEnds = {0};
    m_counts = {0};
    m_slots = std::vector<Slot>(16);
    m_singleCell = true;
}

QStringView KeywordGrid::entryOf(const QString& text, const std::vector<qsizetype>& ends, qsizetype column) {
    const qsizetype start = column > 0 ? ends[size_t(column - 1)] : 0;
    return QStringView(text).mid(start, ends[size_t(column)] - start);
}

QString KeywordGrid::Count(qsizetype column) const {
    return column > 0 ? QString::number(m_counts[size_t(column)]) : QString();
}

QString KeywordGrid::Word(qsizetype column) const {
    return entryOf(m_words, m_wordEnds, column).toString();
}

void KeywordGrid::insertSlot(std::uint32_t hash, std::uint32_t column) {
    const size_t mask = m_slots.size() - 1;
    size_t i = hash & mask;
    while (m_slots[i].column != 0)
        i = (i + 1) & mask;
    m_slots[i] = {hash, column};
}

qsizetype KeywordGrid::Add(const QString& word, const QString& upperWord) {
    m_singleCell = false;
    m_words.append(word);
    m_wordEnds.push_back(m_words.size());
    m_upperWords.append(upperWord);
    m_upperEnds.push_back(m_upperWords.size());
    m_counts.push_back(1);
    const qsizetype column = LastEntry();
    if (size_t(column) * 2 > m_slots.size()) {
        std::vector<Slot> old(m_slots.size() * 2);
        old.swap(m_slots);
        for (const Slot& slot : old)
            if (slot.column != 0)
                insertSlot(slot.hash, slot.column);
    }
    insertSlot(std::uint32_t(qHash(QStringView(upperWord))), std::uint32_t(column));
    return column;
}

qsizetype KeywordGrid::Find(QStringView upperWord) const {
    const auto hash = std::uint32_t(qHash(upperWord));
    const size_t mask = m_slots.size() - 1;
    for (size_t i = hash & mask; m_slots[i].column != 0; i = (i + 1) & mask) {
        const Slot& slot = m_slots[i];
        if (slot.hash == hash && entryOf(m_upperWords, m_upperEnds, slot.column) == upperWord)
            return slot.column;
    }
    return 0;
}
