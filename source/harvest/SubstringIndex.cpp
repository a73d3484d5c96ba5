#include "SubstringIndex.h"

void SubstringIndex::Clear() {
    m_states.clear();
    m_states.emplace_back();
    m_last = 0;
    m_length = 0;
}

int SubstringIndex::transition(int state, char16_t c) const {
    for (const auto& [ch, target] : m_states[size_t(state)].next)
        if (ch == c)
            return target;
    return -1;
}

void SubstringIndex::setTransition(int state, char16_t c, int target) {
    for (auto& edge : m_states[size_t(state)].next) {
        if (edge.first == c) {
            edge.second = target;
            return;
        }
    }
    m_states[size_t(state)].next.emplace_back(c, target);
}

void SubstringIndex::Append(QStringView text) {
    for (QChar c : text)
        extend(c.unicode());
    m_length += text.size();
}

void SubstringIndex::extend(char16_t c) {
    const int current = int(m_states.size());
    m_states.emplace_back();
    m_states.back().length = m_states[size_t(m_last)].length + 1;
    int p = m_last;
    while (p != -1 && transition(p, c) == -1) {
        setTransition(p, c, current);
        p = m_states[size_t(p)].link;
    }
    if (p == -1) {
        m_states[size_t(current)].link = 0;
    } else {
        const int q = transition(p, c);
        if (m_states[size_t(p)].length + 1 == m_states[size_t(q)].length) {
            m_states[size_t(current)].link = q;
        } else {
            const int clone = int(m_states.size());
            State copy = m_states[size_t(q)];
            copy.length = m_states[size_t(p)].length + 1;
            m_states.push_back(std::move(copy));
            while (p != -1 && transition(p, c) == q) {
                setTransition(p, c, clone);
                p = m_states[size_t(p)].link;
            }
            m_states[size_t(q)].link = clone;
            m_states[size_t(current)].link = clone;
        }
    }
    m_last = current;
}

bool SubstringIndex::Contains(QStringView needle) const {
    int state = 0;
    for (QChar c : needle) {
        state = transition(state, c.unicode());
        if (state == -1)
            return false;
    }
    return true;
}
