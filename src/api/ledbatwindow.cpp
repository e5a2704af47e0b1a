// SPDX-License-Identifier: MIT
#include "ledbatwindow.h"

#include <algorithm>
#include <cmath>

namespace {

// Past this the window is no longer what holds an upload back: a local network with no queue
// worth the name, where the system's own buffers take over.
constexpr qint64 largestWindow = 8 * 1024 * 1024;

} // namespace

void LedbatWindow::update(const Measurement &measurement, Clock::time_point now)
{
    using std::chrono::microseconds;
    if (measurement.segmentBytes > 0 && measurement.segmentBytes != m_segment) {
        // The first window counts in the path's own segments, as TCP's does.
        if (m_window == initialSegments * m_segment)
            m_window = initialSegments * measurement.segmentBytes;
        m_segment = measurement.segmentBytes;
        m_window = std::clamp(m_window, 2 * m_segment, largestWindow);
    }
    if (measurement.roundTrip <= microseconds::zero())
        return; // the connection has no measurement of its own yet
    rememberRoundTrip(measurement.roundTrip, now);
    m_queueingDelay = std::max(microseconds::zero(), measurement.roundTrip - *baseDelay());
    const qint64 smallest = 2 * m_segment;
    // A round trip since the window was last cut: the cut has had its effect on the queue.
    const bool cutSettled = !m_lastCut || now - *m_lastCut >= measurement.roundTrip;

    if (measurement.lossSeen) {
        // As TCP itself answers a loss: half the window, at most once a round trip.
        if (cutSettled) {
            m_window = std::max(smallest, m_window / 2);
            m_lastCut = now;
        }
        m_slowStart = false;
        return;
    }
    if (measurement.acknowledgedBytes <= 0)
        return;
    if (m_queueingDelay > targetDelay) {
        // Beyond the target the window comes down in proportion, once a round trip: by half
        // the bytes that stand in the queue beyond the target, were the queue the original's
        // alone. RFC 6817 comes down a segment at a time; a window a slow start left twice too
        // large would then keep a queue in front of previews for seconds, and a
        // photographer's uplink is shared with previews every second.
        m_slowStart = false;
        if (cutSettled) {
            const double excess = double((m_queueingDelay - targetDelay).count()) /
                                  double((*baseDelay() + m_queueingDelay).count());
            m_window = std::max(smallest, qint64(double(m_window) * (1.0 - excess / 2)));
            m_lastCut = now;
        }
        return;
    }
    // Slow start ends at half the target, not all of it: the round trip told lags behind the
    // queue.
    if (m_queueingDelay >= targetDelay / 2)
        m_slowStart = false;
    // Only a window in use says anything about the path: one the upload left half empty (its
    // last bytes, a pause for a preview) does not grow.
    const bool used =
        measurement.bytesInFlight + measurement.acknowledgedBytes >= m_window - m_segment;
    if (!used)
        return;
    if (m_slowStart) {
        m_window = std::min(largestWindow, m_window + measurement.acknowledgedBytes);
        return;
    }
    // RFC 6817, section 2.4.2: a segment more a round trip with no queue, less as the queue
    // nears the target, none at it.
    const double offTarget = double((targetDelay - m_queueingDelay).count()) /
                             double(std::chrono::duration_cast<microseconds>(targetDelay).count());
    m_fraction += offTarget * double(measurement.acknowledgedBytes) * double(m_segment) /
                  double(m_window);
    const double whole = std::trunc(m_fraction);
    m_fraction -= whole;
    m_window = std::min(largestWindow, m_window + qint64(whole));
}

std::optional<std::chrono::microseconds> LedbatWindow::baseDelay() const
{
    std::optional<std::chrono::microseconds> shortest;
    for (const BaseSlot &slot : m_base) {
        if (slot.used && (!shortest || slot.shortest < *shortest))
            shortest = slot.shortest;
    }
    return shortest;
}

void LedbatWindow::forgetPath() { *this = LedbatWindow(); }

void LedbatWindow::rememberRoundTrip(std::chrono::microseconds roundTrip, Clock::time_point now)
{
    // The shortest round trip of each stretch of the memory, the oldest stretch let go as a
    // new one begins (RFC 6817, section 2.4.1, with shorter stretches).
    constexpr auto stretch = std::chrono::duration_cast<Clock::duration>(baseMemory) / baseSlots;
    BaseSlot &current = m_base[size_t(m_currentSlot)];
    if (current.used && now - current.start < stretch) {
        current.shortest = std::min(current.shortest, roundTrip);
        return;
    }
    if (current.used)
        m_currentSlot = (m_currentSlot + 1) % baseSlots;
    m_base[size_t(m_currentSlot)] = {now, roundTrip, true};
    // Stretches from before a long silence are as old as the memory, however few came since.
    for (BaseSlot &slot : m_base) {
        if (slot.used && now - slot.start >= baseMemory)
            slot.used = false;
    }
}
