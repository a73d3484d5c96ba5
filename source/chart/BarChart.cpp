#include "BarChart.h"

#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QSaveFile>
#include <QSvgGenerator>
#include <algorithm>
#include <cmath>

namespace {

constexpr int Width = 800;
constexpr int Margin = 16;
constexpr int TitleHeight = 64;
constexpr int RowHeight = 22;
constexpr int LabelWidth = 200;
constexpr int ValueWidth = 70;

const QColor Background(255, 255, 255);
const QColor Ink(40, 40, 40);
const QColor Rising(58, 126, 190);
const QColor Falling(200, 80, 60);
const QColor Axis(150, 150, 150);

void Paint(QPainter& painter, const QString& title, const QString& subtitle,
           const std::vector<ChartBar>& bars) {
    const QSize size = BarChartSize(qsizetype(bars.size()));
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(QRect(QPoint(0, 0), size), Background);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(17);
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(Ink);
    painter.drawText(QRect(Margin, Margin, Width - 2 * Margin, 24), Qt::AlignLeft | Qt::AlignVCenter, title);
    font.setPixelSize(13);
    font.setBold(false);
    painter.setFont(font);
    painter.drawText(QRect(Margin, Margin + 26, Width - 2 * Margin, 20), Qt::AlignLeft | Qt::AlignVCenter,
                     subtitle);

    double most = 0;
    double least = 0;
    for (const ChartBar& bar : bars) {
        most = std::max(most, bar.value);
        least = std::min(least, bar.value);
    }
    const double span = most - least > 0 ? most - least : 1;
    const int plotLeft = Margin + LabelWidth + (least < 0 ? ValueWidth : 0);
    const int plotWidth = Width - plotLeft - Margin - ValueWidth;
    const int axis = plotLeft + int(std::lround(-least / span * plotWidth));
    const QFontMetrics metrics(font);
    int y = Margin + TitleHeight;
    for (const ChartBar& bar : bars) {
        const QRect row(Margin, y, LabelWidth - 8, RowHeight);
        painter.setPen(Ink);
        painter.drawText(row, Qt::AlignRight | Qt::AlignVCenter,
                         metrics.elidedText(bar.label, Qt::ElideRight, row.width()));
        const int length = int(std::lround(std::abs(bar.value) / span * plotWidth));
        const int left = bar.value < 0 ? axis - length : axis;
        painter.fillRect(QRect(left, y + 3, std::max(length, 1), RowHeight - 6),
                         bar.value < 0 ? Falling : Rising);
        const QRect value = bar.value < 0 ? QRect(left - ValueWidth - 4, y, ValueWidth, RowHeight)
                                          : QRect(left + length + 4, y, ValueWidth, RowHeight);
        painter.drawText(value, (bar.value < 0 ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter,
                         bar.valueText);
        y += RowHeight;
    }
    painter.setPen(Axis);
    painter.drawLine(axis, Margin + TitleHeight, axis, y);
}

} // namespace

QSize BarChartSize(qsizetype bars) {
    return {Width, Margin + TitleHeight + int(bars) * RowHeight + Margin};
}

bool DrawBarChart(const QString& path, const QString& title, const QString& subtitle,
                  const std::vector<ChartBar>& bars, QString& error) {
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix != u"svg" && suffix != u"png") {
        error = QStringLiteral("a chart is an .svg or a .png file");
        return false;
    }
    // Written whole or not at all, as every other output of the tool.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        error = file.errorString();
        return false;
    }
    const QSize size = BarChartSize(qsizetype(bars.size()));
    if (suffix == u"svg") {
        QSvgGenerator svg;
        svg.setOutputDevice(&file);
        svg.setSize(size);
        // The size is stored in millimetres; at the resolution that viewers assume it reads back
        // as the same pixels as the PNG.
        svg.setResolution(96);
        svg.setViewBox(QRect(QPoint(0, 0), size));
        svg.setTitle(title);
        svg.setDescription(subtitle);
        QPainter painter;
        if (!painter.begin(&svg)) {
            error = QStringLiteral("cannot draw the chart");
            return false;
        }
        Paint(painter, title, subtitle, bars);
        painter.end();
    } else {
        QImage image(size, QImage::Format_RGB32);
        QPainter painter(&image);
        Paint(painter, title, subtitle, bars);
        painter.end();
        if (!image.save(&file, "PNG")) {
            error = QStringLiteral("cannot encode the picture");
            return false;
        }
    }
    if (!file.commit()) {
        error = file.errorString();
        return false;
    }
    return true;
}
