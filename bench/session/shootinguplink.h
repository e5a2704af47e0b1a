// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

// What a shaped uplink carried while the photos kept coming, from the first preview registered
// to the last: the share the previews took, and how much of what they left the originals used.
// The uplink's bytes are read off the interface that carries only the uplink's traffic (on a
// link shaped in one direction, the intermediate device the shaper sits on); on loopback, where
// both directions share one device, the replies and acknowledgements are counted too.
class ShootingUplink {
public:
    ShootingUplink(QString device, double linkMbit, qint64 previewBytes);

    // What the link carries, as its device counts, when one CUBIC upload fills it for `seconds`
    // (after two to get going), in bit/s; a token bucket carries a few percent less than its
    // nominal rate. Taken through `port` on loopback before anything else listens there, and
    // given a moment to drain after. None if the port cannot be had.
    static std::optional<double> measureCapacity(quint16 port, const QString &device, int seconds);
    // From then on, the link's capacity is the measured one rather than its nominal rate.
    void setMeasuredCapacity(double bitsPerSecond) { m_measuredBits = bitsPerSecond; }

    // The floor of a preview's latency on this link: the watcher's second, and the preview's
    // own bytes at the link's rate.
    double floorMs() const;
    // Said at every preview registered.
    void previewRegistered();
    void print() const;

    // Bytes an interface has sent since it came up; none where the system does not say.
    static std::optional<qint64> bytesSent(const QString &device);

private:
    QString m_device;
    double m_linkMbit;
    std::optional<double> m_measuredBits;
    qint64 m_previewBytes;
    int m_previews = 0;
    qint64 m_firstAt = 0;
    qint64 m_lastAt = 0;
    std::optional<qint64> m_bytesAtFirst;
    std::optional<qint64> m_bytesAtLast;
};
