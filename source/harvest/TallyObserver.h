#pragma once

#include <QtGlobal>

class QString;

// Whoever watches the tally word by word: the title snapshot and the share and phrase counts.
// Told from inside TallyTitle, so every title that reaches the tally passes it, whichever scan
// handed it over. It only listens; the tally's rules and its table stay its own.
class TallyObserver {
public:
    virtual ~TallyObserver() = default;
    // A title handed to the tally, before its first piece; an empty title too.
    virtual void TitleStarted(const QString& title) = 0;
    // A piece of the current title, in order: the column of the entry it was counted to, or 0
    // when the rules dropped it. Empty pieces (two blanks in a row) and a bold tag standing alone
    // are no word and are not told.
    virtual void PieceTallied(qsizetype column) = 0;
};

// None by default.
void SetTallyObserver(TallyObserver* observer);
TallyObserver* CurrentTallyObserver();
