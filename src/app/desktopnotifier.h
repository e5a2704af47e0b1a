// SPDX-License-Identifier: MIT
#pragma once

#include "deliveryalerts.h"

#include <QObject>
#include <QPointer>

class FreedesktopNotifications;
class QSystemTrayIcon;
class SessionViewModel;

// Tells the desktop what the photographer must know about delivery while the panel is hidden
// (DeliveryAlerts says when), in the desktop's own notifications. On Linux and the BSDs through
// the freedesktop.org service on the session bus, tray or no tray, X11 or Wayland; on macOS and
// Windows through the tray icon, which Qt hands to the system's notification centre. A click on
// one asks for the panel.
class DesktopNotifier : public QObject {
    Q_OBJECT

public:
    explicit DesktopNotifier(SessionViewModel &viewModel, DeliveryAlerts::Timing timing = {},
                             QObject *parent = nullptr);
    ~DesktopNotifier() override;

    // The tray icon, where there is one: the way to the system's notifications on macOS and
    // Windows. Null where there is none.
    void setTrayIcon(QSystemTrayIcon *icon);

Q_SIGNALS:
    void openRequested();

private:
    void follow();
    void tell(const DeliveryAlerts::Alert &alert);

    SessionViewModel &m_viewModel;
    DeliveryAlerts m_alerts;
    bool m_stopped = false; // the session on screen is a stopped one
    DeliveryAlerts::Alert m_last;
    FreedesktopNotifications *m_freedesktop = nullptr;
    QPointer<QSystemTrayIcon> m_tray;
};
