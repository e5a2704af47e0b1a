// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqml.h>

// The system clipboard for the screens, as plain text.
class Clipboard : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    explicit Clipboard(QObject *parent = nullptr);

    // Empties the clipboard first, so nothing of an earlier copy (another format) stays.
    Q_INVOKABLE void setText(const QString &text);
    Q_INVOKABLE QString text() const;
};
