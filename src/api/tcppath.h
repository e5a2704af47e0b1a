// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <chrono>
#include <optional>

// What the system's TCP knows of one connection, and what it can be told about it: the
// measurements an upload needs to keep its bytes from queueing in the uplink, and the
// system's own background class where it has one. A file per system: tcppath_other.cpp
// (Linux, and nothing elsewhere), tcppath_mac.cpp, tcppath_win.cpp.
namespace TcpPath {

struct Sample {
    // The connection's smoothed round-trip time: the path's own delay plus whatever waits in
    // the queues along it.
    std::chrono::microseconds roundTrip{0};
    // Bytes the system has taken from the program and the receiver has not acknowledged yet,
    // sent or still waiting to be sent.
    qint64 unacknowledgedBytes = 0;
    qint64 segmentBytes = 0;
    // Grows each time the connection sends something again that the path lost.
    quint64 retransmissions = 0;
};

// The connection's state now, or nothing where the system does not say. `handedOver` is every
// byte the program has written to the socket so far, which some systems need to tell what is
// still in their hands.
std::optional<Sample> sample(qintptr socket, qint64 handedOver);

// Puts the connection in the system's class for bulk traffic nobody waits for, where the
// system has one: its packets then go after others' on the way out (Wi-Fi's background
// category among them), and the system's own delay-based congestion control may take over.
void markBackground(qintptr socket);

} // namespace TcpPath
