// SPDX-License-Identifier: MIT
#include "traypanel.h"

#include "panelplacement.h"
#include "trayplatform.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
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
    window->installEventFilter(this);
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

void TrayPanel::setMode(Mode mode) {
    if (mode == m_mode || !m_window)
        return;
    m_window->hide();
    m_mode = mode;
    applyWindowFlags();
}

bool TrayPanel::eventFilter(QObject *watched, QEvent *event) {
    if (watched != m_window)
        return QObject::eventFilter(watched, event);
    if (m_mode == Mode::standalone && event->type() == QEvent::Close) {
        // Without a tray this window is the program: closing it must not end a recording, so
        // it goes to the taskbar, from where it comes back.
        event->ignore();
        m_window->showMinimized();
        return true;
    }
    // What the screen has open (a QR code) is closed by Escape first, by the screen itself.
    if (m_mode == Mode::underTrayIcon && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape &&
        !m_window->property("holdsEscape").toBool()) {
        hide();
        return true;
    }
    return QObject::eventFilter(watched, event);
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
    // On Wayland the pointer is known only over our own windows, so the click on the tray says
    // nothing of where the icon is; without the icon's rectangle, the compositor decides.
    m_placeable = !isWayland() || !iconGeometry.isEmpty();
    m_anchor = PanelPlacement::anchor(iconGeometry, QCursor::pos());
    place();
    m_window->show();
    m_window->raise();
    TrayPlatform::activate(*m_window);
}

void TrayPanel::showStandalone() {
    // Back from the taskbar too, where closing it put it.
    if (m_window->visibility() == QWindow::Minimized)
        m_window->showNormal();
    else
        m_window->show();
    m_window->raise();
    TrayPlatform::activate(*m_window);
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
    // A Wayland compositor may still place the window where it sees fit: what it allows is
    // all a client gets there.
    QQuickWindow *window = m_window.data();
    if (!window || !m_placeable)
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
