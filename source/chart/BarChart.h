#pragma once

#include <QSize>
#include <QString>
#include <vector>

// One bar: its label, its length (negative to the left of the axis) and the text beside it.
struct ChartBar {
    QString label;
    double value = 0;
    QString valueText;
};

// The picture's size for a number of bars: a fixed width, a row per bar below the two title lines.
QSize BarChartSize(qsizetype bars);

// Draws a horizontal bar chart to an .svg or a .png file, chosen by the name's suffix. Needs a
// QGuiApplication for its text. False, with the reason, when the suffix is neither or the file
// cannot be written; a file written before is then left as it was.
bool DrawBarChart(const QString& path, const QString& title, const QString& subtitle,
                  const std::vector<ChartBar>& bars, QString& error);
