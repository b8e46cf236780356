#include "app_icon.h"

#include <QPainter>
#include <QPainterPath>

namespace tavrin {

QImage paintAppIcon(int size) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / 256.0, size / 256.0);

    // The document: a sheet with a folded corner and lines of text.
    QPainterPath sheet;
    sheet.moveTo(40, 16);
    sheet.lineTo(152, 16);
    sheet.lineTo(200, 64);
    sheet.lineTo(200, 224);
    sheet.lineTo(40, 224);
    sheet.closeSubpath();
    p.setPen(QPen(QColor("#5b6b7f"), 8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(QColor("#f4f7fb"));
    p.drawPath(sheet);
    QPainterPath fold;
    fold.moveTo(152, 16);
    fold.lineTo(152, 64);
    fold.lineTo(200, 64);
    p.setBrush(QColor("#d5dde8"));
    p.drawPath(fold);
    p.setPen(QPen(QColor("#a9b6c6"), 10, Qt::SolidLine, Qt::RoundCap));
    for (int y : {96, 124, 152}) p.drawLine(72, y, 128, y);

    // The shield, over the lower right.
    QPainterPath shield;
    shield.moveTo(172, 100);
    shield.cubicTo(196, 114, 216, 118, 240, 118);
    shield.lineTo(240, 168);
    shield.cubicTo(240, 206, 212, 232, 172, 248);
    shield.cubicTo(132, 232, 104, 206, 104, 168);
    shield.lineTo(104, 118);
    shield.cubicTo(128, 118, 148, 114, 172, 100);
    shield.closeSubpath();
    p.setPen(QPen(QColor("#0d4f3c"), 8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    QLinearGradient fill(172, 100, 172, 248);
    fill.setColorAt(0, QColor("#2fb67c"));
    fill.setColorAt(1, QColor("#168a5b"));
    p.setBrush(fill);
    p.drawPath(shield);
    p.setPen(QPen(Qt::white, 16, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    QPainterPath check;
    check.moveTo(140, 170);
    check.lineTo(164, 194);
    check.lineTo(206, 146);
    p.drawPath(check);
    return image;
}

QIcon appIcon() {
    QIcon fallback;
    for (int size : {16, 24, 32, 48, 64, 128, 256}) fallback.addPixmap(QPixmap::fromImage(paintAppIcon(size)));
    return QIcon::fromTheme("com.tavrin.Tavrin", fallback);
}

}  // namespace tavrin
