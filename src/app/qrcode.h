// SPDX-License-Identifier: MIT
#pragma once

#include "qrmatrix.h"

#include <QQuickPaintedItem>
#include <QString>
#include <QtQml/qqml.h>

// A web address as a QR code for a phone to read off the screen: dark modules on white, with the
// quiet zone, whatever the appearance. Each module is a whole number of the screen's own pixels,
// drawn as rectangles at the window's pixel density and shown without smoothing, so the code is
// sharp at every scale factor. The largest code that fits the item, centred in it.
class QrCode : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    // Whether the text could be encoded; the item draws nothing otherwise.
    Q_PROPERTY(bool valid READ valid NOTIFY textChanged)

public:
    explicit QrCode(QQuickItem *parent = nullptr);

    QString text() const { return m_text; }
    void setText(const QString &text);
    bool valid() const { return !m_matrix.isEmpty(); }

    void paint(QPainter *painter) override;

Q_SIGNALS:
    void textChanged();

protected:
    void itemChange(ItemChange change, const ItemChangeData &data) override;

private:
    QString m_text;
    QrMatrix m_matrix;
};
