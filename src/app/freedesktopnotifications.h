// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <map>

// The desktop's notification service where desktops follow freedesktop.org (Linux, the BSDs):
// org.freedesktop.Notifications on the session bus. Every such desktop runs one, with a tray
// or without, on X11 and on Wayland alike; Qt's own tray messages need a tray icon, cannot
// replace an earlier message, and on a tray without StatusNotifierItem draw a balloon of their
// own. Calls are never waited for: the service may be slow or absent, and the panel must not be.
class FreedesktopNotifications : public QObject {
    Q_OBJECT

public:
    explicit FreedesktopNotifications(QObject *parent = nullptr);
    ~FreedesktopNotifications() override;

    // Shows a notification in place of the last one of the same `topic`, if it is still up.
    void show(int topic, const QString &summary, const QString &body);

Q_SIGNALS:
    // One of ours was clicked.
    void activated();
    // The service could not be reached or refused the notification.
    void failed(const QString &why);

private Q_SLOTS:
    void actionInvoked(uint id, const QString &action);
    void notificationClosed(uint id, uint reason);

private:
    void listen();

    bool m_listening = false;
    std::map<int, uint> m_shown; // topic to the id the service gave its latest notification
};
