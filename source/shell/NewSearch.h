#pragma once

#include <QString>
#include <functional>

class QWidget;

// The program lies in one folder under two names, and a new search is a fresh process started
// under the other name. Starting a program and ending this process go through these seams so
// that tests can watch them without either happening.
struct ProcessSeams {
    // Starts the program at the path, without waiting; false when it could not be started.
    std::function<bool(const QString& program)> StartDetached;
    // Ends this process.
    std::function<void()> EndProcess;
    // The name of the running program file, without the platform's executable suffix.
    std::function<QString()> RunningName;
};

ProcessSeams& ProcessControl();
void ResetProcessControl();

// The platform's executable suffix: ".exe" on Windows, nothing elsewhere.
QString ExecutableSuffix();
// The name the program was started under, without the executable suffix.
QString RunningProgramName();
// What a new search starts: "Marquillb" when this copy runs as "Marquill" (exactly, capitals
// counted), else "Marquill", in the given folder, with the executable suffix.
QString NewSearchTarget(const QString& folder, const QString& runningName);

// Starts the other program file. When it is missing or does not start, the user is told
// "Cannot start " + path and false comes back, so the caller stays as it was.
bool StartNewSearch(QWidget* parent);
