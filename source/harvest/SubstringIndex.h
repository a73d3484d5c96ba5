#pragma once

#include <QString>
#include <QStringView>

#include <utility>
#include <vector>

// Answers "does this text occur anywhere in the text so far?" in time proportional to the length
// of the question, while the text keeps growing at its end. It is a suffix automaton built online:
// the tally asks it for every word, against texts that reach hundreds of kilobytes.
class SubstringIndex final {
public:
    SubstringIndex() { Clear(); }

    void Clear();
    void Append(QStringView text);
    // True for an empty needle, as a substring search from the first character finds it.
    bool Contains(QStringView needle) const;
    qsizetype TextLength() const { return m_length; }

private:
    struct State {
        int length = 0;
        int link = -1;
        std::vector<std::pair<char16_t, int>> next;
    };
    int transition(int state, char16_t c) const;
    void setTransition(int state, char16_t c, int target);
    void extend(char16_t c);

    std::vector<State> m_states;
    int m_last = 0;
    qsizetype m_length = 0;
};
