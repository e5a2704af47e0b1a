// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QPointer>

#include <chrono>
#include <memory>
#include <optional>

class LedbatWindow;
class UplinkGate;

// How much of an original its connection may be given at each moment. What the system says of
// the connection (its round trip, the bytes it still holds) goes to the path's LedbatWindow,
// and the connection gets what the window leaves room for; while a preview holds the
// UplinkGate, a trickle only. Where the system says nothing, the connection is kept as full as
// any other socket, and the gate alone holds it back.
class UplinkPacer {
public:
    // Where the system cannot say what it still holds, the socket is kept this full, as Qt's
    // own stack keeps its sockets: the system's buffers then decide, as for any upload.
    static constexpr qint64 unmeasuredBuffer = 64 * 1024;
    // What goes out while a preview holds the uplink: enough that no server takes the
    // connection for idle and closes it, too little for any preview to notice.
    static constexpr qint64 trickleBytes = 1024;
    static constexpr std::chrono::milliseconds trickleInterval{500};

    UplinkPacer(std::shared_ptr<LedbatWindow> window, UplinkGate *gate);

    // The system took so many more of the connection's bytes from the program.
    void handedOver(qint64 bytes) { m_handedOver += bytes; }
    // How many more bytes the connection may be given now: `buffered` of its bytes are still in
    // the program's hands, `left` of the body are still to go.
    qint64 allowance(qintptr socket, qint64 buffered, qint64 left);

    // Whether the system tells what the receiver has acknowledged. Where it does not, a byte
    // handed over is all there is to tell progress by.
    bool measures() const { return m_acknowledged.has_value(); }
    // The connection's bytes the receiver has acknowledged since the first look.
    qint64 acknowledged() const;

private:
    // Reads the connection's state off the system and tells the window; what is on its way,
    // or nothing where the system does not say.
    std::optional<qint64> measure(qintptr socket, qint64 buffered, bool held);

    std::shared_ptr<LedbatWindow> m_window;
    QPointer<UplinkGate> m_gate;
    qint64 m_handedOver = 0; // bytes the system took, TLS records included
    qint64 m_segment = 1448;
    std::optional<qint64> m_acknowledged; // by the receiver, as the system counts
    qint64 m_firstAcknowledged = 0;
    std::optional<quint64> m_retransmissions;
    bool m_heldMeanwhile = false;        // a preview held the uplink since the last update
    std::optional<qint64> m_settledFrom; // acknowledged bytes from which updates resume
    QElapsedTimer m_sinceTrickle;
};
