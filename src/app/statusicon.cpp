// SPDX-License-Identifier: MIT
#include "statusicon.h"

#include "glyphimage.h"

#include <QPainter>
#include <QPixmap>
#include <cmath>

QSize StatusIcon::logicalSize(bool recording) {
    return {recording ? glyphSize + spacing + dotSize : glyphSize, glyphSize};
}

QColor StatusIcon::dotColor() {
    return QColor(0xFF, 0x3B, 0x30);
}

QImage StatusIcon::image(bool recording, const QColor &ink, qreal scale) {
    const QSize logical = logicalSize(recording);
    QImage image(int(std::ceil(logical.width() * scale)), int(std::ceil(logical.height() * scale)),
                 QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);

    const int glyphPixels = int(std::round(glyphSize * scale));
    painter.drawImage(QPoint(0, 0), GlyphImage::render(QStringLiteral("camera.fill"),
                                                       QSize(glyphPixels, glyphPixels), ink));
    if (recording) {
        const qreal diameter = dotSize * scale;
        const QRectF dot((glyphSize + spacing) * scale, (glyphSize - dotSize) * scale / 2.0,
                         diameter, diameter);
        painter.setPen(Qt::NoPen);
        painter.setBrush(dotColor());
        painter.drawEllipse(dot);
    }
    return image;
}

QIcon StatusIcon::icon(bool recording, const QColor &ink, bool templateImage) {
    QIcon icon;
    for (const int height : {16, 22, 24, 32, 44, 48, 64}) {
        const qreal scale = qreal(height) / glyphSize;
        icon.addPixmap(QPixmap::fromImage(image(recording, ink, scale)));
    }
    icon.setIsMask(templateImage && !recording);
    return icon;
}
