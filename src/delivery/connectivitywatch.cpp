// SPDX-License-Identifier: MIT
#include "connectivitywatch.h"

#include <QNetworkInformation>

#include <cstdlib>

namespace {
constexpr int tickMs = 5000;
// A tick this much later than asked for, on either clock, was a sleep (or a machine so stopped
// that it may as well have been one).
constexpr qint64 wakeGapMs = 15000;
} // namespace

ConnectivityWatch::ConnectivityWatch(QObject *parent)
    : QObject(parent)
{
    // The platform's own view where Qt has a backend for it (NetworkManager on Linux, the
    // system's reachability on macOS, Network List Manager on Windows); without one, failed
    // requests and probes tell the same, only later.
    if (QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability)) {
        QNetworkInformation *information = QNetworkInformation::instance();
        connect(information, &QNetworkInformation::reachabilityChanged, this,
                [this](QNetworkInformation::Reachability reachability) {
                    const bool online =
                        reachability != QNetworkInformation::Reachability::Disconnected;
                    if (online == m_maybeOnline)
                        return;
                    m_maybeOnline = online;
                    if (online)
                        Q_EMIT networkMayBeBack();
                    else
                        Q_EMIT networkLost();
                });
        // Venue Wi-Fi that wants a sign-in page first, where the backend can tell (NetworkManager's
        // connectivity check, the system's on macOS and Windows).
        if (information->supports(QNetworkInformation::Feature::CaptivePortal)) {
            m_behindCaptivePortal = information->isBehindCaptivePortal();
            connect(information, &QNetworkInformation::isBehindCaptivePortalChanged, this,
                    [this](bool behind) {
                        if (behind == m_behindCaptivePortal)
                            return;
                        m_behindCaptivePortal = behind;
                        Q_EMIT captivePortalChanged(behind);
                        // Signed in at last: what waited may go now.
                        if (!behind)
                            Q_EMIT networkMayBeBack();
                    });
        }
    }
    m_monotonic.start();
    m_lastWallMs = QDateTime::currentMSecsSinceEpoch();
    m_tick.setInterval(tickMs);
    connect(&m_tick, &QTimer::timeout, this, &ConnectivityWatch::checkForWake);
    m_tick.start();
}

void ConnectivityWatch::checkForWake()
{
    const qint64 wallMs = QDateTime::currentMSecsSinceEpoch();
    const qint64 monotonicMs = m_monotonic.elapsed();
    const qint64 wallGap = wallMs - m_lastWallMs;
    const qint64 monotonicGap = monotonicMs - m_lastMonotonicMs;
    m_lastWallMs = wallMs;
    m_lastMonotonicMs = monotonicMs;
    if (std::abs(wallGap - monotonicGap) > wakeGapMs || monotonicGap > tickMs + wakeGapMs)
        Q_EMIT networkMayBeBack();
}
