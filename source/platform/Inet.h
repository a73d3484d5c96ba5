#pragma once

#include <QString>

// The probe's bound: it ends after this long in all, however the server drips its answer.
constexpr int ProbeTimeoutMs = 60000;

// The connectivity probe: one GET of the URL, returning the body of whatever HTTP answer came,
// an error status's page included. No answer (a refused or broken connection, a proxy that cannot
// reach the site, the time-out) gives the empty text. Waits in the event loop through the hooks.
QString OpenURL(const QString& url, int timeoutMs = ProbeTimeoutMs);

// Whether a probe's answer means "not online": empty, or nothing but spaces. Tabs and line breaks
// are content.
bool ProbeAnswerIsEmpty(const QString& answer);
