#pragma once

#include <QFont>
#include <QString>

class QLabel;

// The font of a form's text by the face the form names ("Tahoma", "MS Sans Serif", "Trebuchet MS").
// The machine's own face comes first; where it lacks Tahoma or MS Sans Serif, the free faces with
// their metrics that Debian's fonts-wine ships are loaded from the program; past those, a sans
// whose widths come close, so that no caption is cut off.
QFont FormFont(const QString& face, qreal points, bool bold = false);

// A fixed label whose caption runs wider than the form measured it (a fallback face, or the
// face's own rounding at this screen's resolution) grows to the right rather than clip.
void WidenToCaption(QLabel* label);
