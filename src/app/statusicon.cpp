// SPDX-License-Identifier: MIT
#include "statusicon.h"

#include "glyphimage.h"

#include <QIconEngine>
#include <QPainter>
#include <QPixmap>
#include <algorithm>
#include <cmath>

namespace {

// Of the picture's side: the dot is big enough to read at 16 pixels (7 of them) and leaves most
// of the camera in sight.
constexpr qreal dotShare = 0.42;
constexpr qreal ringShare = 0.08;

// Draws the picture at exactly the size asked for, so every tray gets a sharp square.
class StatusIconEngine : public QIconEngine {
public:
    StatusIconEngine(bool recording, const QColor &ink, bool waiting)
        : m_recording(recording)
        , m_ink(ink)
        , m_waiting(waiting) {}

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode, QIcon::State) override {
        const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
        const int side = std::min(rect.width(), rect.height());
        QImage picture = StatusIcon::image(m_recording, m_ink, int(std::lround(side * ratio)), m_waiting);
        picture.setDevicePixelRatio(ratio);
        const QPointF corner(rect.x() + (rect.width() - side) / 2.0,
                             rect.y() + (rect.height() - side) / 2.0);
        painter->drawImage(QRectF(corner, QSizeF(side, side)), picture);
    }

    QSize actualSize(const QSize &size, QIcon::Mode, QIcon::State) override {
        const int side = std::min(size.width(), size.height());
        return {side, side};
    }

    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override {
        return QPixmap::fromImage(
            StatusIcon::image(m_recording, m_ink, actualSize(size, mode, state).width(), m_waiting));
    }

    // `size` is already in device pixels here; `scale` only says how many there are to a
    // logical one.
    QPixmap scaledPixmap(const QSize &size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override {
        QPixmap picture = pixmap(size, mode, state);
        picture.setDevicePixelRatio(scale);
        return picture;
    }

    // The sizes trays that take a list of pictures (StatusNotifierItem) are sent.
    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
        QList<QSize> sizes;
        for (const int side : {16, 22, 24, 32, 48, 64, 128})
            sizes.append(QSize(side, side));
        return sizes;
    }

    QIconEngine *clone() const override {
        return new StatusIconEngine(m_recording, m_ink, m_waiting);
    }
    QString key() const override { return QStringLiteral("QuillmereStatusIcon"); }

private:
    const bool m_recording;
    const QColor m_ink;
    const bool m_waiting;
};

} // namespace

QColor StatusIcon::dotColor() {
    return QColor(0xFF, 0x3B, 0x30);
}

QColor StatusIcon::waitingDotColor() {
    return QColor(0xFF, 0x95, 0x00);
}

QRectF StatusIcon::dotRect(int pixels) {
    const qreal diameter = pixels * dotShare;
    return {pixels - diameter, pixels - diameter, diameter, diameter};
}

QRectF StatusIcon::ringRect(int pixels) {
    const qreal ring = std::max(1.0, pixels * ringShare);
    return dotRect(pixels).adjusted(-ring, -ring, ring, ring);
}

QImage StatusIcon::image(bool recording, const QColor &ink, int pixels, bool waiting) {
    if (pixels <= 0)
        return {};
    QImage image = GlyphImage::render(QStringLiteral("camera.fill"), QSize(pixels, pixels), ink);
    if (!recording && !waiting)
        return image;
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.setBrush(Qt::black);
    painter.drawEllipse(ringRect(pixels));
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setBrush(waiting ? waitingDotColor() : dotColor());
    painter.drawEllipse(dotRect(pixels));
    return image;
}

QIcon StatusIcon::icon(bool recording, const QColor &ink, bool templateImage, bool waiting) {
    QIcon icon(new StatusIconEngine(recording, ink, waiting));
    icon.setIsMask(templateImage && !recording && !waiting);
    return icon;
}
