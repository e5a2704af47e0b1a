// SPDX-License-Identifier: MIT
#include "clipboard.h"

#include <QClipboard>
#include <QGuiApplication>

Clipboard::Clipboard(QObject *parent)
    : QObject(parent) {}

void Clipboard::setText(const QString &text) {
    QClipboard *clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(text);
}

QString Clipboard::text() const {
    return QGuiApplication::clipboard()->text();
}
