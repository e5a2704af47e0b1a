// SPDX-License-Identifier: MIT
#include "glyph.h"

#include "glyphimage.h"

#include <QPainter>
#include <QQuickWindow>
#include <cmath>

Glyph::Glyph(QQuickItem *parent)
    : QQuickPaintedItem(parent) {}

void Glyph::setName(const QString &name) {
    if (m_name == name)
        return;
    m_name = name;
    Q_EMIT nameChanged();
    update();
}

void Glyph::setColor(const QColor &color) {
    if (m_color == color)
        return;
    m_color = color;
    Q_EMIT colorChanged();
    update();
}

void Glyph::paint(QPainter *painter) {
    const qreal ratio = window() ? window()->effectiveDevicePixelRatio() : 1.0;
    const QSize pixels(int(std::ceil(width() * ratio)), int(std::ceil(height() * ratio)));
    QImage image = GlyphImage::render(m_name, pixels, m_color);
    if (image.isNull())
        return;
    image.setDevicePixelRatio(ratio);
    painter->drawImage(QPointF(0, 0), image);
}

void Glyph::itemChange(ItemChange change, const ItemChangeData &data) {
    if (change == ItemDevicePixelRatioHasChanged)
        update();
    QQuickPaintedItem::itemChange(change, data);
}
