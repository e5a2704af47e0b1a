// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusConnection>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

// The desktop's notification service as a test sees it: org.freedesktop.Notifications on a bus
// (a PrivateSessionBus), which writes down every notification it is sent, when it came and what
// it replaced, and clicks one when asked, as a person would.
class NotificationServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Received {
        QString appName;
        uint replacesId = 0;
        QString appIcon;
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
        int expireTimeout = 0;
        uint id = 0;     // the one this server gave it
        qint64 atMs = 0; // when it came, on the server's own steady clock
    };

    NotificationServer() = default;
    ~NotificationServer() override;

    // Takes the service's name on the bus at `address`. False, with errorString(), when it can't.
    bool start(const QString &address);
    QString errorString() const { return m_error; }

    const QList<Received> &received() const { return m_received; }
    // Every notification so far, a line each, for a failure message.
    QString transcript() const;
    // The server's clock, which `Received::atMs` is read on.
    qint64 now() const { return m_clock.elapsed(); }
    // The notification was clicked: the service's signal for the action "default".
    void click(uint id);

public Q_SLOTS:
    Q_SCRIPTABLE uint Notify(const QString &appName, uint replacesId, const QString &appIcon,
                             const QString &summary, const QString &body,
                             const QStringList &actions, const QVariantMap &hints,
                             int expireTimeout);
    Q_SCRIPTABLE QStringList GetCapabilities();
    Q_SCRIPTABLE void CloseNotification(uint id);
    Q_SCRIPTABLE QString GetServerInformation(QString &vendor, QString &version,
                                              QString &specVersion);

private:
    QString m_connectionName;
    QList<Received> m_received;
    QElapsedTimer m_clock;
    uint m_lastId = 0;
    QString m_error;
};
