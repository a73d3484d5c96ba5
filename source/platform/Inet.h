#pragma once

#include <QString>

// The connectivity probe: one GET of the URL, returning the body as text. An error, a time-out
// or an answer outside 2xx counts as an empty answer, which the search takes as "not online".
// Blocks the caller while the event loop runs, so the window stays painted.
QString OpenURL(const QString& url, int transferTimeoutMs = 60000);
