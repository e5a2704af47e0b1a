// SPDX-License-Identifier: MIT
#include "qrcode.h"

#include <QPainter>
#include <QQuickWindow>
#include <algorithm>
#include <cmath>

QrCode::QrCode(QQuickItem *parent)
    : QQuickPaintedItem(parent) {
    // Nearest-neighbour wherever the texture lands: a module's edge never blurs.
    setSmooth(false);
    setAntialiasing(false);
}

void QrCode::setText(const QString &text) {
    if (m_text == text)
        return;
    m_text = text;
    m_matrix = QrMatrix::encode(text);
    if (m_matrix.isEmpty() && !text.isEmpty())
        qWarning("QrCode: \"%s\" gives no QR code: %s", qPrintable(text),
                 qPrintable(m_matrix.errorString()));
    Q_EMIT textChanged();
    update();
}

void QrCode::paint(QPainter *painter) {
    if (m_matrix.isEmpty())
        return;
    const qreal ratio = window() ? window()->effectiveDevicePixelRatio() : 1.0;
    // In the screen's own pixels from here on.
    const int available = int(std::floor(std::min(width(), height()) * ratio));
    const int side = m_matrix.side();
    const int module = available / side;
    if (module < 1)
        return;
    const int drawn = module * side;
    const int left = int(std::floor((width() * ratio - drawn) / 2));
    const int top = int(std::floor((height() * ratio - drawn) / 2));

    painter->save();
    painter->scale(1 / ratio, 1 / ratio);
    painter->setRenderHint(QPainter::Antialiasing, false);
    painter->fillRect(QRect(left, top, drawn, drawn), Qt::white);
    for (int row = 0; row < side; ++row) {
        for (int column = 0; column < side; ++column) {
            if (m_matrix.isDark(column, row))
                painter->fillRect(QRect(left + column * module, top + row * module, module, module),
                                  Qt::black);
        }
    }
    painter->restore();
}

void QrCode::itemChange(ItemChange change, const ItemChangeData &data) {
    if (change == ItemDevicePixelRatioHasChanged)
        update();
    QQuickPaintedItem::itemChange(change, data);
}
