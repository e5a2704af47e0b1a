// SPDX-License-Identifier: MIT
#include "theme.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <QStyleHints>

Theme::Theme(QObject *parent)
    : QObject(parent)
    , m_appearance(requestedAppearance()) {
    if (QCoreApplication *application = QCoreApplication::instance())
        application->installEventFilter(this);
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    connect(QGuiApplication::styleHints(), &QStyleHints::colorSchemeChanged, this, [this] {
        if (m_appearance == Appearance::System)
            Q_EMIT colorsChanged();
    });
#endif
}

void Theme::setAppearance(Appearance appearance) {
    if (m_appearance == appearance)
        return;
    m_appearance = appearance;
    Q_EMIT appearanceChanged();
    Q_EMIT colorsChanged();
}

bool Theme::dark() const {
    switch (m_appearance) {
    case Appearance::Light:
        return false;
    case Appearance::Dark:
        return true;
    case Appearance::System:
        break;
    }
    return desktopIsDark();
}

Theme::Appearance Theme::requestedAppearance() {
#if QUILLMERE_TEST_SWITCHES
    const QByteArray requested = qgetenv("QUILLMERE_APPEARANCE").toLower();
    if (requested == "light")
        return Appearance::Light;
    if (requested == "dark")
        return Appearance::Dark;
#endif
    return Appearance::System;
}

bool Theme::desktopIsDark() {
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    switch (QGuiApplication::styleHints()->colorScheme()) {
    case Qt::ColorScheme::Dark:
        return true;
    case Qt::ColorScheme::Light:
        return false;
    case Qt::ColorScheme::Unknown:
        break;
    }
#endif
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return false;
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
}

bool Theme::eventFilter(QObject *watched, QEvent *event) {
    if (watched == QCoreApplication::instance() &&
        event->type() == QEvent::ApplicationPaletteChange && m_appearance == Appearance::System)
        Q_EMIT colorsChanged();
    return QObject::eventFilter(watched, event);
}

// The named system colours of the platform the screens were first drawn for, in its light and
// dark appearance, so the panel reads the same on every desktop. The label colours are black
// or white with the platform's opacities, so they sit well on either background.
QColor Theme::primary() const {
    return pick(QColor(0, 0, 0, 217), QColor(255, 255, 255, 217));
}

QColor Theme::secondary() const {
    return pick(QColor(0, 0, 0, 128), QColor(255, 255, 255, 140));
}

QColor Theme::tertiaryLabelColor() const {
    return pick(QColor(0, 0, 0, 66), QColor(255, 255, 255, 64));
}

QColor Theme::red() const {
    return pick(QColor(0xFF, 0x3B, 0x30), QColor(0xFF, 0x45, 0x3A));
}

QColor Theme::orange() const {
    return pick(QColor(0xFF, 0x95, 0x00), QColor(0xFF, 0x9F, 0x0A));
}

QColor Theme::green() const {
    return pick(QColor(0x28, 0xCD, 0x41), QColor(0x32, 0xD7, 0x4B));
}

QColor Theme::blue() const {
    return pick(QColor(0x00, 0x7A, 0xFF), QColor(0x0A, 0x84, 0xFF));
}

QColor Theme::windowBackgroundColor() const {
    return pick(QColor(0xEC, 0xEC, 0xEC), QColor(0x32, 0x32, 0x32));
}

QColor Theme::controlBackgroundColor() const {
    return pick(QColor(0xFF, 0xFF, 0xFF), QColor(0x1E, 0x1E, 0x1E));
}

QColor Theme::separatorColor() const {
    return pick(QColor(0, 0, 0, 26), QColor(255, 255, 255, 26));
}

QColor Theme::accentColor() const {
    return blue();
}

QColor Theme::progressTrackColor() const {
    return pick(QColor(0, 0, 0, 20), QColor(255, 255, 255, 31));
}
