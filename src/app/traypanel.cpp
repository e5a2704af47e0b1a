// SPDX-License-Identifier: MIT
#include "traypanel.h"

#include "panelplacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>

namespace {

// A click on the tray icon first takes the focus from the open panel (which hides it) and
// only then reaches the icon; a toggle this soon after is that same click.
constexpr qint64 sameClickMs = 400;

bool isWayland() {
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}
bool isMacOS() {
    return QGuiApplication::platformName() == QLatin1String("cocoa");
}

} // namespace

TrayPanel::TrayPanel(QQuickWindow *window, Mode mode, QObject *parent)
    : QObject(parent)
    , m_window(window)
    , m_mode(mode) {
    applyWindowFlags();
    connect(window, &QWindow::activeChanged, this, &TrayPanel::handleActiveChanged);
    // The height follows the screen shown; a panel standing above a bottom bar must grow
    // upwards to stay against it.
    connect(window, &QWindow::heightChanged, this, [this] {
        if (m_mode == Mode::underTrayIcon && isShown())
            place();
    });
}

TrayPanel::~TrayPanel() = default;

bool TrayPanel::isShown() const {
    return m_window && m_window->isVisible();
}

void TrayPanel::applyWindowFlags() {
    if (m_mode == Mode::standalone) {
        m_window->setFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                           Qt::WindowMinimizeButtonHint);
        return;
    }
    // A tool window: no taskbar entry, no frame. On macOS it must also float above ordinary
    // windows, as a status item's panel does.
    Qt::WindowFlags flags = Qt::Tool | Qt::FramelessWindowHint;
    if (isMacOS())
        flags |= Qt::WindowStaysOnTopHint;
    m_window->setFlags(flags);
}

void TrayPanel::toggle(const QRect &iconGeometry) {
    if (isShown()) {
        hide();
        return;
    }
    if (m_sinceFocusLoss.isValid() && m_sinceFocusLoss.elapsed() < sameClickMs)
        return;
    showUnder(iconGeometry);
}

void TrayPanel::showUnder(const QRect &iconGeometry) {
    m_anchor = PanelPlacement::anchor(iconGeometry, QCursor::pos());
    place();
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
}

void TrayPanel::showStandalone() {
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
}

void TrayPanel::hide() {
    if (m_window)
        m_window->hide();
}

void TrayPanel::setHeld(bool held) {
    m_held = held;
    if (!held && isShown())
        m_window->requestActivate();
}

void TrayPanel::place() {
    // Wayland compositors place client windows themselves and ignore positions.
    QQuickWindow *window = m_window.data();
    if (!window || isWayland())
        return;
    const QScreen *screen = QGuiApplication::screenAt(m_anchor.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    window->setPosition(
        PanelPlacement::position(m_anchor, screen->availableGeometry(), window->size()));
}

void TrayPanel::handleActiveChanged() {
    if (m_mode != Mode::underTrayIcon || m_held || !m_window || m_window->isActive() ||
        !m_window->isVisible())
        return;
    m_sinceFocusLoss.start();
    m_window->hide();
}
