#pragma once

// The screen's mouse pointer over every window of the program: 11 the wait cursor, 0 the
// default. It stays as set until set again.
class ScreenPointer final {
public:
    static constexpr int Default = 0;
    static constexpr int Wait = 11;

    static void Set(int pointer);
    static int Current();
};
