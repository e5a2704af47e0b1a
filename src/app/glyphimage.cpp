// SPDX-License-Identifier: MIT
#include "glyphimage.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

QString GlyphImage::resourcePath(const QString &name) {
    return QStringLiteral(":/qt/qml/Quillmere/Live/icons/%1.svg").arg(name);
}

bool GlyphImage::exists(const QString &name) {
    return QFile::exists(resourcePath(name));
}

QImage GlyphImage::render(const QString &name, const QSize &pixelSize, const QColor &color) {
    if (pixelSize.isEmpty())
        return {};
    QSvgRenderer renderer(resourcePath(name));
    if (!renderer.isValid())
        return {};
    renderer.setAspectRatioMode(Qt::KeepAspectRatio);

    QImage image(pixelSize, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    // The drawing's coverage, filled with the colour: one glyph file serves every tint.
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), color);
    return image;
}
