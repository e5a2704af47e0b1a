// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <array>
#include <chrono>
#include <optional>

// How many bytes of an original may be on their way at once, so that it uses what the uplink
// has to spare without building a queue in front of it. A phone's 4G router or a venue's Wi-Fi
// holds a second or more of queue, which an ordinary TCP upload fills; a preview sent behind it
// would wait that second. As LEDBAT (RFC 6817) runs a background transfer, the window doubles
// each round trip at first, then grows by a segment a round trip while the delay the queue
// adds stays under a small target; beyond the target it comes down in proportion to the
// excess (where RFC 6817 takes a segment a round trip off), and by half on a loss.
//
// The delay it adds is told from the connection's round trip against the shortest one seen on
// the path lately (the base). The memory of the path, the base and the window reached, outlives
// each connection: every original goes on a connection of its own, and the next one starts
// where the last one left off.
class LedbatWindow {
public:
    using Clock = std::chrono::steady_clock;

    // The queueing delay an original may add. Small next to the round trips of mobile links,
    // and below what a person would notice in a preview that finds it in front of it.
    static constexpr std::chrono::milliseconds targetDelay{25};
    // How long the shortest round trip is remembered: long enough to span the originals that
    // follow each other, short enough that a slower path (a new network) is learned in time.
    static constexpr std::chrono::seconds baseMemory{120};

    struct Measurement {
        std::chrono::microseconds roundTrip{0};
        qint64 acknowledgedBytes = 0; // newly acknowledged since the last measurement
        qint64 bytesInFlight = 0;     // taken by the connection and not acknowledged yet
        qint64 segmentBytes = 0;
        bool lossSeen = false; // the connection sent something again since the last one
    };

    // Takes one measurement of the connection that carries an original.
    void update(const Measurement &measurement, Clock::time_point now);
    // The bytes that may be on their way now.
    qint64 window() const { return m_window; }
    // The delay the queue adds as last measured, for benchmarks and tests.
    std::chrono::microseconds queueingDelay() const { return m_queueingDelay; }
    std::optional<std::chrono::microseconds> baseDelay() const;
    // The path changed (another network, a wake): what was learned of the old one is dropped.
    void forgetPath();

private:
    void rememberRoundTrip(std::chrono::microseconds roundTrip, Clock::time_point now);

    static constexpr int baseSlots = 12; // of baseMemory / baseSlots each
    struct BaseSlot {
        Clock::time_point start;
        std::chrono::microseconds shortest{0};
        bool used = false;
    };
    std::array<BaseSlot, baseSlots> m_base{};
    int m_currentSlot = 0;

    static constexpr qint64 initialSegments = 10; // a new path's first window, as TCP's own
    qint64 m_segment = 1448;
    qint64 m_window = initialSegments * 1448;
    double m_fraction = 0;       // of a byte, carried between additive steps
    bool m_slowStart = true;     // doubling until the queue first shows
    std::optional<Clock::time_point> m_lastCut;
    std::chrono::microseconds m_queueingDelay{0};
};
