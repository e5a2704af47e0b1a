// SPDX-License-Identifier: MIT
#include "mainthreadwatch.h"

#include <algorithm>

MainThreadWatch::MainThreadWatch()
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(tickMs);
    connect(&m_timer, &QTimer::timeout, this, &MainThreadWatch::tick);
    m_clock.start();
    m_timer.start();
}

void MainThreadWatch::tick()
{
    const qint64 now = m_clock.elapsed();
    const qint64 gap = now - m_last - tickMs;
    m_last = now;
    m_longest = std::max(m_longest, gap);
    if (gap > blockedMs)
        ++m_blocked;
}
