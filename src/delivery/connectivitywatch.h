// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

// Tells when the network may well be back: the platform reports it reachable again, or the
// machine has just woken from sleep (then the network usually comes back seconds later, on
// whatever Wi-Fi the laptop finds). Qt has no wake notification of its own, so a wake is read
// off the clocks: the wall clock runs on through a sleep while the monotonic one stands still
// (Linux CLOCK_MONOTONIC, macOS mach_absolute_time), and a periodic timer fires far too late.
class ConnectivityWatch : public QObject {
    Q_OBJECT
public:
    explicit ConnectivityWatch(QObject *parent = nullptr);

    // False only when the platform says for certain that there is no network.
    bool maybeOnline() const { return m_maybeOnline; }
    // The platform says the network holds connections until a sign-in in the browser.
    bool behindCaptivePortal() const { return m_behindCaptivePortal; }

Q_SIGNALS:
    void networkMayBeBack();
    void networkLost();
    void captivePortalChanged(bool behind);

private:
    void checkForWake();

    QTimer m_tick;
    QElapsedTimer m_monotonic;
    qint64 m_lastWallMs = 0;
    qint64 m_lastMonotonicMs = 0;
    bool m_maybeOnline = true;
    bool m_behindCaptivePortal = false;
};
