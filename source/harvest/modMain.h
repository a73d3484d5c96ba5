#pragma once

#include "SubstringIndex.h"

#include <QString>
#include <QStringView>
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
// A search of a hostile page meets millions of words, so the cells are not kept as texts of their
// own: the words lie end to end in one text, the counts are 32-bit numbers (each text is made
// when asked for), and an index from the upper-cased word to its column finds a word met before
// without walking the table.
class KeywordGrid {
public:
    KeywordGrid() { Reset(); }

    // Back to the single cell of row 0, column 0.
    void Reset();
    // The highest column number: the number of the last entry, 0 when there is none.
    qsizetype LastEntry() const { return qsizetype(m_counts.size()) - 1; }
    // Whether the table is still the single cell of a reset (one row, one column).
    bool IsSingleCell() const { return m_singleCell; }

    // Column 0 gives empty texts.
    QString Count(qsizetype column) const;
    QString Word(qsizetype column) const;
    std::int32_t CountValue(qsizetype column) const { return m_counts[size_t(column)]; }
    void SetCount(qsizetype column, std::int32_t count) { m_counts[size_t(column)] = count; }

    // Appends an entry with the count 1; returns its column. upperWord must have no entry yet.
    qsizetype Add(const QString& word, const QString& upperWord);
    // The column whose word, upper-cased, equals upperWord; 0 when none does.
    qsizetype Find(QStringView upperWord) const;

private:
    // Entry n of a joined text runs from the end of entry n - 1 to its own end.
    static QStringView entryOf(const QString& text, const std::vector<qsizetype>& ends, qsizetype column);
    void insertSlot(std::uint32_t hash, std::uint32_t column);

    // Open addressing, linear probing; column 0 marks a free slot. The table is kept at most half
    // full, so a probe ends after a step or two.
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t column = 0;
    };
    QString m_words;
    QString m_upperWords;
    std::vector<qsizetype> m_wordEnds;
    std::vector<qsizetype> m_upperEnds;
    std::vector<std::int32_t> m_counts;
    std::vector<Slot> m_slots;
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

    // An upper-cased mirror of ExclusionText, kept in step with it, so that the exclusion test of
    // each word costs the length of the word and not the length of the text.
    SubstringIndex ExclusionIndex;
};

extern HarvestRecord HarvestState;
