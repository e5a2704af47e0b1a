// SPDX-License-Identifier: MIT
#pragma once

#include "deliverystatus.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <map>

// When the photographer, whose eyes are on the camera and not on the panel, is told through the
// desktop: photos that have waited longer than a minute (how many, and why), a photo refused for
// good, all of them sent after such a wait, and the originals of a stopped session all in.
// Nothing while all is well, never two within a minute (what comes meanwhile is told at the
// minute's end, as it then stands), and each topic's latest alert stands for the earlier ones.
// Main thread only.
class DeliveryAlerts : public QObject {
    Q_OBJECT
public:
    // What an alert is about: a newer one of the same topic takes the place of the older. In
    // the order of what presses most, when several are held back.
    enum class Topic { refused, waiting, originals };
    Q_ENUM(Topic)

    struct Alert {
        Topic topic = Topic::waiting;
        QString title;
        QString text;
        // A waiting alert that says the wait is over: all sent.
        bool waitOver = false;
    };

    struct Timing {
        std::chrono::milliseconds waitingFor{std::chrono::minutes(1)};
        std::chrono::milliseconds between{std::chrono::minutes(1)};
    };

    explicit DeliveryAlerts(QObject *parent = nullptr);
    explicit DeliveryAlerts(Timing timing, QObject *parent = nullptr);

    // The photos waiting now and why; 0 when none wait.
    void setWaiting(int count, DeliveryStatus::Reason reason);
    // How many photos a refusal ended, and the line that names them.
    void setRefused(int count, const QString &notice);
    // A session was stopped with `owed` of its photos not yet wholly delivered: when they are
    // all in, that is told, whatever session the photographer has gone on to.
    void sessionStopped(qint64 folderId, const QString &client, int owed);
    // The sessions stopped with photos owed whose originals are not all in yet.
    QList<qint64> stoppedSessionsOwed() const;
    // How many photos of such a session are still owed now.
    void setOwed(qint64 folderId, int owed);

Q_SIGNALS:
    void alert(const DeliveryAlerts::Alert &alert);

private:
    void waitedLongEnough();
    void queue(Alert alert);
    void flush();
    Alert waitingAlert() const;

    Timing m_timing;
    QTimer m_waitTimer;
    QTimer m_gapTimer;
    QElapsedTimer m_sinceLast;
    std::map<Topic, Alert> m_pending;

    int m_waiting = 0;
    DeliveryStatus::Reason m_reason = DeliveryStatus::Reason::none;
    bool m_waitedLong = false; // the photos of this wait have waited long enough to be told of
    bool m_toldWaiting = false;  // a waiting alert of this wait is queued or shown
    bool m_shownWaiting = false; // and has been shown
    int m_toldCount = 0;
    DeliveryStatus::Reason m_toldReason = DeliveryStatus::Reason::none;
    int m_peak = 0;

    int m_refused = 0;

    struct Stopped {
        QString client;
        int owedAtStop = 0;
    };
    std::map<qint64, Stopped> m_stopped;
};

Q_DECLARE_METATYPE(DeliveryAlerts::Alert)
