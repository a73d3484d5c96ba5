// Draws the program's logo, a price tag beside the name, as a 151 x 43 PNG.
//   marquill-logo OUTPUT.png
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <cstdio>

int main(int argc, char* argv[]) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: marquill-logo OUTPUT.png\n");
        return 2;
    }

    QImage image(151, 43, QImage::Format_ARGB32_Premultiplied);
    image.fill(QColor(240, 240, 233));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);

    // The tag: a pointed card with a punched hole, turned a little.
    p.save();
    p.translate(21, 22);
    p.rotate(-18);
    QPainterPath tag;
    tag.moveTo(-13, -9);
    tag.lineTo(6, -9);
    tag.lineTo(15, 0);
    tag.lineTo(6, 9);
    tag.lineTo(-13, 9);
    tag.closeSubpath();
    QPainterPath hole;
    hole.addEllipse(QPointF(7, 0), 2.6, 2.6);
    p.fillPath(tag.subtracted(hole), QColor(102, 110, 140));
    p.setPen(QPen(QColor(210, 200, 181), 1.2));
    p.drawPath(tag);
    QFont tagFont(QStringLiteral("DejaVu Sans"));
    tagFont.setPixelSize(12);
    tagFont.setBold(true);
    p.setFont(tagFont);
    p.setPen(Qt::white);
    p.drawText(QRectF(-13, -9, 18, 18), Qt::AlignCenter, QStringLiteral("M"));
    p.restore();

    // The name, with a thin rule under it in the panel's colour.
    QFont nameFont(QStringLiteral("DejaVu Sans"));
    nameFont.setPixelSize(19);
    nameFont.setBold(true);
    p.setFont(nameFont);
    p.setPen(QColor(60, 66, 90));
    p.drawText(QRectF(40, 4, 110, 26), Qt::AlignLeft | Qt::AlignVCenter, QStringLiteral("Marquill"));
    p.fillRect(QRectF(41, 31, 106, 1.5), QColor(210, 200, 181));
    QFont lineFont(QStringLiteral("DejaVu Sans"));
    lineFont.setPixelSize(8);
    p.setFont(lineFont);
    p.setPen(QColor(102, 110, 140));
    p.drawText(QRectF(41, 33, 110, 10), Qt::AlignLeft | Qt::AlignVCenter,
               QStringLiteral("keywords that sell"));
    p.end();

    return image.save(QString::fromLocal8Bit(argv[1]), "PNG") ? 0 : 1;
}
