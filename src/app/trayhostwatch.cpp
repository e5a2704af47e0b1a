// SPDX-License-Identifier: MIT
#include "trayhostwatch.h"

#include <QSystemTrayIcon>

TrayHostWatch::TrayHostWatch(std::chrono::milliseconds interval, Probe probe, QObject *parent)
    : QObject(parent)
    , m_probe(probe ? std::move(probe) : Probe(&QSystemTrayIcon::isSystemTrayAvailable))
    , m_available(m_probe()) {
    // Lateness of a second does not matter here; letting the system batch this wake-up with
    // others does.
    m_timer.setTimerType(Qt::VeryCoarseTimer);
    m_timer.setInterval(interval);
    connect(&m_timer, &QTimer::timeout, this, &TrayHostWatch::look);
    m_timer.start();
}

TrayHostWatch::~TrayHostWatch() = default;

void TrayHostWatch::look() {
    const bool available = m_probe();
    if (available == m_available)
        return;
    m_available = available;
    Q_EMIT availableChanged(available);
}
