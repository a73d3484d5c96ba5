#pragma once

class QWidget;

// Places a window that is about to open with its frame centred on its owner's frame, and within
// the owner's screen. A window learns its frame from the window manager only once it shows, so
// its frame is taken to be as thick as its owner's.
void CentreOnOwner(QWidget* window, const QWidget* owner);
