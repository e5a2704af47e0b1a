// SPDX-License-Identifier: MIT
#include "freedesktopnotifications.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

// The freedesktop.org notification service's interface (version 1.2): Notify(app_name,
// replaces_id, app_icon, summary, body, actions, hints, expire_timeout) returns the id; the
// signals ActionInvoked(id, action_key) and NotificationClosed(id, reason). The action
// "default" is the click on the notification itself.
namespace {
const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString interface = QStringLiteral("org.freedesktop.Notifications");
const QString appId = QStringLiteral("live.quillmere.QuillmereLive");
} // namespace

FreedesktopNotifications::FreedesktopNotifications(QObject *parent)
    : QObject(parent) {}

FreedesktopNotifications::~FreedesktopNotifications() = default;

void FreedesktopNotifications::listen() {
    // Only once there is something to say: a program with nothing to tell never touches the
    // bus.
    if (m_listening)
        return;
    m_listening = true;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(service, path, interface, QStringLiteral("ActionInvoked"), this,
                SLOT(actionInvoked(uint, QString)));
    bus.connect(service, path, interface, QStringLiteral("NotificationClosed"), this,
                SLOT(notificationClosed(uint, uint)));
}

void FreedesktopNotifications::show(int topic, const QString &summary, const QString &body) {
    listen();
    const auto earlier = m_shown.find(topic);
    const uint replaces = earlier == m_shown.end() ? 0 : earlier->second;
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Notify"));
    const QStringList actions{QStringLiteral("default"), QStringLiteral("Abrir")};
    // The desktop entry lets the desktop show our name and icon, and group our notifications.
    const QVariantMap hints{{QStringLiteral("desktop-entry"), appId},
                            {QStringLiteral("urgency"), QVariant::fromValue(uchar(1))}};
    call << QStringLiteral("Quillmere Live") << replaces << appId << summary << body << actions
         << hints << -1;
    QDBusPendingCallWatcher *watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, topic](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                const QDBusPendingReply<uint> reply = *finished;
                if (reply.isError()) {
                    Q_EMIT failed(reply.error().message());
                    return;
                }
                m_shown[topic] = reply.value();
            });
}

void FreedesktopNotifications::actionInvoked(uint id, const QString &action) {
    if (action != QLatin1String("default"))
        return;
    for (const auto &shown : m_shown) {
        if (shown.second == id) {
            Q_EMIT activated();
            return;
        }
    }
}

void FreedesktopNotifications::notificationClosed(uint id, uint) {
    // Gone: the next of its topic is a new notification, not a replacement of nothing.
    for (auto shown = m_shown.begin(); shown != m_shown.end(); ++shown) {
        if (shown->second == id) {
            m_shown.erase(shown);
            return;
        }
    }
}
