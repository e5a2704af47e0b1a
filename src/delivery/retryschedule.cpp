// SPDX-License-Identifier: MIT
#include "retryschedule.h"

#include <QRandomGenerator>

#include <algorithm>

std::chrono::milliseconds RetrySchedule::next()
{
    const int doublings = std::min(m_rounds, 10);
    ++m_rounds;
    const qint64 base = std::min<qint64>(first.count() << doublings, longest.count());
    // Between three quarters and five quarters of the base.
    const qint64 jitter = QRandomGenerator::global()->bounded(base / 2 + 1) - base / 4;
    return std::chrono::milliseconds(base + jitter);
}
