#pragma once

#include "ResultRows.h"
#include "TallyObserver.h"
#include "modMain.h"

#include <vector>

// Beside the tally, and by its rules: how many distinct titles hold each word, and the two-word
// phrases of adjacent kept words. A word "held" by a title is one counted at least once in it; a
// dropped word breaks a phrase, a double blank does not.
class ShareTally final : public TallyObserver {
public:
    void TitleStarted(const QString& title) override;
    void PieceTallied(qsizetype column) override;
    // Closes the last title; call once the tally has ended.
    void Finish();

    // The distinct titles holding the word of a KeywordTable entry.
    qint64 TitlesHolding(qsizetype column) const;
    // The phrases, counted as the tally counts words: case aside, first spelling kept.
    const KeywordGrid& Phrases() const { return m_phrases; }
    qint64 TitlesHoldingPhrase(qsizetype column) const;

private:
    static void CloseTitle(std::vector<qsizetype>& held, std::vector<qint64>& titles);

    std::vector<qint64> m_wordTitles;
    std::vector<qsizetype> m_wordsOfTitle;
    KeywordGrid m_phrases;
    std::vector<qint64> m_phraseTitles;
    std::vector<qsizetype> m_phrasesOfTitle;
    // The previous piece's entry while it was kept, 0 after a drop or at a title's start.
    qsizetype m_previous = 0;
};

// Several watchers of the tally at once.
class TallyObserverFan final : public TallyObserver {
public:
    void Add(TallyObserver* observer) { m_observers.push_back(observer); }
    void TitleStarted(const QString& title) override;
    void PieceTallied(qsizetype column) override;

private:
    std::vector<TallyObserver*> m_observers;
};

// A list's rows with the titles column filled in from the share tally; phrases when asked.
std::vector<ResultRow> WordRows(const ShareTally* shares);
std::vector<ResultRow> PhraseRows(const ShareTally& shares);
