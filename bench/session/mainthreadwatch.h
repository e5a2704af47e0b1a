// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

// How long the main thread was kept from its event loop: a precise timer that asks to be woken
// every few milliseconds, and the longest gap between two of its wakes beyond what it asked
// for. Nothing the program does shows up as long as its event loop turns.
class MainThreadWatch : public QObject {
public:
    static constexpr int tickMs = 5;
    static constexpr qint64 blockedMs = 50;

    MainThreadWatch();

    qint64 longestGapMs() const { return m_longest; }
    // Gaps longer than blockedMs.
    int blockedTimes() const { return m_blocked; }

private:
    void tick();

    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0;
    qint64 m_longest = 0;
    int m_blocked = 0;
};
