#pragma once

// What the fuzz targets and their replayer share: a host that neither prints nor waits, a folder
// for the files a target writes, and a check that ends the run as a crash does.
#include "HostHooks.h"

#include <QLocale>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition) ((condition) ? void() : FuzzFailed(#condition, __FILE__, __LINE__))

[[noreturn]] inline void FuzzFailed(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
    std::abort();
}

// Returns the folder; the first call sets the process up.
inline QString FuzzSetUp() {
    static QTemporaryDir folder;
    static const bool ready = [] {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        Hooks().Yield = [] {};
        Hooks().WaitForEvents = [] {};
        Hooks().MsgBox = [](const QString&, int, const QString&) { return 1; };
        Hooks().ExclusionFileUnreadable = [](const QString&) {};
        SetProgramFolder(folder.path());
        return folder.isValid();
    }();
    FUZZ_CHECK(ready);
    return folder.path();
}

inline QByteArray FuzzBytes(const std::uint8_t* data, size_t size) {
    return QByteArray(reinterpret_cast<const char*>(data), qsizetype(size));
}
