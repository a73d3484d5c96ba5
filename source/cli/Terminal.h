#pragma once

#include <QString>

// The hooks of a host without windows: messages to standard error, the progress line through
// ShowProgress.
void InstallHostHooks(const QString& site);

// The progress line (lblMainTotal's caption) is drawn on standard error only when that is a
// terminal and --quiet was not given, at most ten times a second.
void SetProgressShown(bool shown);
void ShowProgress(const QString& caption);
// Draws the last caption if a newer one was held back, and ends the line.
void EndProgress();

// Ctrl-C is a confirmed Stop: the run ends at its next test of StopRequested and what it found is
// still written. A second Ctrl-C ends the program at once.
void InstallInterrupt();
bool Interrupted();
