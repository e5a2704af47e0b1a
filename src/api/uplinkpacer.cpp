// SPDX-License-Identifier: MIT
#include "uplinkpacer.h"

#include "ledbatwindow.h"
#include "tcppath.h"
#include "uplinkgate.h"

#include <algorithm>

namespace {

// Nothing smaller is handed over, unless it is the last of the body: a window opened by a few
// bytes is better filled on the next look than in tiny packets now. A segment, or this where
// segments are huge (on loopback, 64 KB).
constexpr qint64 smallestWrite = 4 * 1024;

} // namespace

UplinkPacer::UplinkPacer(std::shared_ptr<LedbatWindow> window, UplinkGate *gate)
    : m_window(std::move(window))
    , m_gate(gate)
{
}

qint64 UplinkPacer::acknowledged() const
{
    return m_acknowledged ? *m_acknowledged - m_firstAcknowledged : 0;
}

qint64 UplinkPacer::allowance(qintptr socket, qint64 buffered, qint64 left)
{
    const UplinkGate *const gate = m_gate.data();
    const bool held = gate && gate->isHeld();
    const std::optional<qint64> inFlight = measure(socket, buffered, held);
    if (held) {
        if (m_sinceTrickle.isValid() && !m_sinceTrickle.hasExpired(trickleInterval.count()))
            return 0;
        m_sinceTrickle.start();
        return trickleBytes;
    }
    const qint64 room = inFlight ? m_window->window() - *inFlight : unmeasuredBuffer - buffered;
    return room >= std::min({m_segment, smallestWrite, left}) ? room : 0;
}

std::optional<qint64> UplinkPacer::measure(qintptr socket, qint64 buffered, bool held)
{
    const std::optional<TcpPath::Sample> sample = TcpPath::sample(socket, m_handedOver);
    if (!sample)
        return std::nullopt;
    if (sample->segmentBytes > 0)
        m_segment = sample->segmentBytes;
    const qint64 inFlight = sample->unacknowledgedBytes + buffered;
    const qint64 acknowledged = m_handedOver - sample->unacknowledgedBytes;
    if (!m_acknowledged)
        m_firstAcknowledged = acknowledged;
    const qint64 newlyAcknowledged =
        m_acknowledged ? std::max<qint64>(0, acknowledged - *m_acknowledged) : 0;
    m_acknowledged = std::max(acknowledged, m_acknowledged.value_or(acknowledged));
    const bool lossSeen = m_retransmissions && sample->retransmissions > *m_retransmissions;
    m_retransmissions = sample->retransmissions;

    // The queue a preview builds in front of the uplink is the preview's own business: the
    // round trips told while one holds the uplink, and until a window of the original's own
    // bytes has come back after it, say nothing of what the original may take.
    if (held) {
        m_settledFrom.reset();
        m_heldMeanwhile = true;
        return inFlight;
    }
    if (m_heldMeanwhile) {
        if (!m_settledFrom)
            m_settledFrom = *m_acknowledged + m_window->window();
        if (*m_acknowledged < *m_settledFrom)
            return inFlight;
        m_heldMeanwhile = false;
    }
    m_window->update(
        {sample->roundTrip, newlyAcknowledged, inFlight, sample->segmentBytes, lossSeen},
        LedbatWindow::Clock::now());
    return inFlight;
}
