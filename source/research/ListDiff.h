#pragma once

#include "ResultRows.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

// A word list read back from a file, in the file's order: the command-line tool's csv (RFC 4180
// fields, an optional third titles field) or json, or the window's results file (word,count
// lines, a word that holds commas unquoted). Nothing, with the reason, for anything else.
std::optional<std::vector<ResultRow>> ReadResultList(const QByteArray& bytes, QString& error);

enum class WordChange { Rose, Fell, New, Gone, Same };
QString WordChangeName(WordChange change);

// One word of two lists. Ranks count from 1 in each list's order; 0 where the word is missing.
struct DiffRow {
    QString word;
    WordChange change = WordChange::Same;
    qsizetype rankA = 0;
    qint64 countA = 0;
    qsizetype rankB = 0;
    qint64 countB = 0;
};

// Every word of either list: those that rose (the largest rise first), fell (the largest fall
// first), are new (in B's order), are gone (in A's order), then those that stayed (in B's
// order); equal changes in B's order, or A's for a fall. A word met twice in one list counts
// where it first stands.
std::vector<DiffRow> DiffLists(const std::vector<ResultRow>& a, const std::vector<ResultRow>& b);

// One word on two sites: its count on each and its share of that site's total count, in percent.
struct SiteRow {
    QString word;
    qint64 countA = 0;
    double shareA = 0;
    qint64 countB = 0;
    double shareB = 0;
};

// The words of both lists by the sum of their two shares, highest first; equal sums in the
// order met, A's list before B's.
std::vector<SiteRow> CompareSites(const std::vector<ResultRow>& a, const std::vector<ResultRow>& b);
