// SPDX-License-Identifier: MIT
#include "notificationserver.h"

#include <QDBusMessage>

namespace {
const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
} // namespace

NotificationServer::~NotificationServer() {
    if (!m_connectionName.isEmpty())
        QDBusConnection::disconnectFromBus(m_connectionName);
}

bool NotificationServer::start(const QString &address) {
    m_clock.start();
    m_connectionName = QStringLiteral("notification-server");
    QDBusConnection bus = QDBusConnection::connectToBus(address, m_connectionName);
    if (!bus.isConnected()) {
        m_error = QStringLiteral("cannot connect to the bus: ") + bus.lastError().message();
        return false;
    }
    if (!bus.registerObject(path, this, QDBusConnection::ExportScriptableSlots) ||
        !bus.registerService(service)) {
        m_error = QStringLiteral("cannot take the notification service's name: ") +
                  bus.lastError().message();
        return false;
    }
    return true;
}

uint NotificationServer::Notify(const QString &appName, uint replacesId, const QString &appIcon,
                                const QString &summary, const QString &body,
                                const QStringList &actions, const QVariantMap &hints,
                                int expireTimeout) {
    // As notification servers do: a replacement keeps the id of what it replaces.
    const uint id = replacesId != 0 ? replacesId : ++m_lastId;
    m_received.append({appName, replacesId, appIcon, summary, body, actions, hints, expireTimeout,
                       id, m_clock.elapsed()});
    return id;
}

QString NotificationServer::transcript() const {
    QStringList lines;
    for (const Received &one : m_received)
        lines << QStringLiteral("%1 ms #%2 (replaces %3) %4 | %5")
                     .arg(one.atMs)
                     .arg(one.id)
                     .arg(one.replacesId)
                     .arg(one.summary, one.body);
    return lines.join(QLatin1Char('\n'));
}

QStringList NotificationServer::GetCapabilities() {
    return {QStringLiteral("actions"), QStringLiteral("body")};
}

void NotificationServer::CloseNotification(uint) {}

QString NotificationServer::GetServerInformation(QString &vendor, QString &version,
                                                 QString &specVersion) {
    vendor = QStringLiteral("Quillmere tests");
    version = QStringLiteral("1");
    specVersion = QStringLiteral("1.2");
    return QStringLiteral("test notification server");
}

void NotificationServer::click(uint id) {
    QDBusMessage signal =
        QDBusMessage::createSignal(path, service, QStringLiteral("ActionInvoked"));
    signal << id << QStringLiteral("default");
    QDBusConnection(m_connectionName).send(signal);
}
