#pragma once

#include "SubstringIndex.h"

#include <QHash>
#include <QString>
#include <cstdint>
#include <vector>

// A flag of the system's records: -1 true, 0 false; every test compares with -1.
using Flag = std::int16_t;
constexpr Flag FlagTrue = -1;
constexpr Flag FlagFalse = 0;

// Which part of the tree a run walks, from the depth of the selected node.
using SearchScope = std::int16_t;
constexpr SearchScope ScopeAllCategories = 1;
constexpr SearchScope ScopeMainCategory = 2;
constexpr SearchScope ScopeSubCategory = 3;

// No auction limit. Negative, so that no limit a user can give (1 and up) ever reads as none.
constexpr std::int32_t NoAuctionLimit = -1;

// Site constants. The program knows only the real sites' addresses; the sample site answers
// for them as an HTTP proxy.
inline const QString USSiteLabel = QStringLiteral("ebay.com");
inline const QString UKSiteLabel = QStringLiteral("ebay.co.uk");
inline const QString ProbeUrl = QStringLiteral("http://www.ebay.com/");
QString ItemPagePrefix(const QString& siteLabel);
QString ListingsBaseUrl(const QString& siteLabel);

// The table of a search: two rows (0 the count as decimal text, 1 the word as first met) and
// one column per distinct word. Column 0 exists and stays empty; entries are numbered from 1.
// Beside the cells it keeps an index from the upper-cased word to its column, so that a word
// met before is found without walking the table.
class KeywordGrid {
public:
    KeywordGrid() { Reset(); }

    // Back to the single cell of row 0, column 0.
    void Reset();
    // The highest column number: the number of the last entry, 0 when there is none.
    qsizetype LastEntry() const { return qsizetype(m_words.size()) - 1; }
    // Whether the table is still the single cell of a reset (one row, one column).
    bool IsSingleCell() const { return m_singleCell; }

    const QString& Count(qsizetype column) const { return m_counts[size_t(column)]; }
    const QString& Word(qsizetype column) const { return m_words[size_t(column)]; }
    void SetCount(qsizetype column, const QString& count) { m_counts[size_t(column)] = count; }

    // Appends an entry with the count "1"; returns its column.
    qsizetype Add(const QString& word, const QString& upperWord);
    // The column whose word, upper-cased, equals upperWord; 0 when none does.
    qsizetype Find(const QString& upperWord) const { return m_index.value(upperWord, 0); }

private:
    std::vector<QString> m_counts;
    std::vector<QString> m_words;
    QHash<QString, qsizetype> m_index;
    bool m_singleCell = true;
};

// The one run-wide record of the process. Every part of the harvest, the stop command, the
// refresh and the summary read and write these fields directly.
struct HarvestRecord {
    std::int32_t MaxAuctions = 0;
    std::int32_t AuctionsScanned = 0;
    std::int16_t PageCount = 0;
    std::int32_t KeywordsFound = 0;
    Flag StopRequested = FlagFalse;
    Flag ScanHalted = FlagFalse;
    QString SelectedPath;

    // The tally's fields. ExclusionText and SeenKeywords only grow for the life of the process.
    QString ExclusionText;
    QString SeenKeywords;
    KeywordGrid KeywordTable;

    // Upper-cased mirrors of the two texts above, kept in step with them, so that the substring
    // tests of the tally cost the length of the word and not the length of the text.
    SubstringIndex ExclusionIndex;
    SubstringIndex SeenIndex;
};

extern HarvestRecord HarvestState;
