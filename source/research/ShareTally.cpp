#include "ShareTally.h"

#include <algorithm>
#include <limits>

void ShareTally::CloseTitle(std::vector<qsizetype>& held, std::vector<qint64>& titles) {
    std::sort(held.begin(), held.end());
    held.erase(std::unique(held.begin(), held.end()), held.end());
    for (const qsizetype column : held) {
        if (titles.size() <= size_t(column))
            titles.resize(size_t(column) + 1, 0);
        ++titles[size_t(column)];
    }
    held.clear();
}

void ShareTally::Finish() {
    CloseTitle(m_wordsOfTitle, m_wordTitles);
    CloseTitle(m_phrasesOfTitle, m_phraseTitles);
    m_previous = 0;
}

void ShareTally::TitleStarted(const QString&) {
    Finish();
}

void ShareTally::PieceTallied(qsizetype column) {
    if (column <= 0) {
        m_previous = 0;
        return;
    }
    m_wordsOfTitle.push_back(column);
    if (m_previous > 0) {
        const KeywordGrid& words = HarvestState.KeywordTable;
        const QString phrase = words.Word(m_previous) + u' ' + words.Word(column);
        const QString upper = phrase.toUpper();
        qsizetype entry = m_phrases.Find(upper);
        if (entry > 0) {
            const qint64 count = qint64(m_phrases.CountValue(entry)) + 1;
            m_phrases.SetCount(
                entry, std::int32_t(std::min<qint64>(count, std::numeric_limits<std::int32_t>::max())));
        } else {
            entry = m_phrases.Add(phrase, upper);
        }
        m_phrasesOfTitle.push_back(entry);
    }
    m_previous = column;
}

qint64 ShareTally::TitlesHolding(qsizetype column) const {
    return size_t(column) < m_wordTitles.size() ? m_wordTitles[size_t(column)] : 0;
}

qint64 ShareTally::TitlesHoldingPhrase(qsizetype column) const {
    return size_t(column) < m_phraseTitles.size() ? m_phraseTitles[size_t(column)] : 0;
}

void TallyObserverFan::TitleStarted(const QString& title) {
    for (TallyObserver* observer : m_observers)
        observer->TitleStarted(title);
}

void TallyObserverFan::PieceTallied(qsizetype column) {
    for (TallyObserver* observer : m_observers)
        observer->PieceTallied(column);
}

std::vector<ResultRow> WordRows(const ShareTally* shares) {
    const KeywordGrid& table = HarvestState.KeywordTable;
    std::vector<ResultRow> rows;
    for (const qsizetype n : EntriesInListOrder(table))
        rows.push_back({table.Word(n).toLower(), table.Count(n), shares ? shares->TitlesHolding(n) : -1});
    return rows;
}

std::vector<ResultRow> PhraseRows(const ShareTally& shares) {
    const KeywordGrid& table = shares.Phrases();
    std::vector<ResultRow> rows;
    for (const qsizetype n : EntriesInListOrder(table))
        rows.push_back({table.Word(n).toLower(), table.Count(n), shares.TitlesHoldingPhrase(n)});
    return rows;
}
