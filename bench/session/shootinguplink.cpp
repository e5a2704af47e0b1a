// SPDX-License-Identifier: MIT
#include "shootinguplink.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// A full segment on the wire: 1448 bytes of payload, 52 of TCP and IP headers (timestamps on),
// 14 of the Ethernet header the shaper counts.
constexpr double wireBytesPerPayloadByte = 1514.0 / 1448.0;

} // namespace

ShootingUplink::ShootingUplink(QString device, double linkMbit, qint64 previewBytes)
    : m_device(std::move(device))
    , m_linkMbit(linkMbit)
    , m_previewBytes(previewBytes)
{
}

double ShootingUplink::floorMs() const
{
    return 1000.0 + double(m_previewBytes) * 8.0 / (m_linkMbit * 1e3);
}

std::optional<qint64> ShootingUplink::bytesSent(const QString &device)
{
    // /proc/net/dev is the network namespace's own; /sys/class/net may be the host's.
    QFile devices(QStringLiteral("/proc/net/dev"));
    if (!devices.open(QIODevice::ReadOnly))
        return std::nullopt;
    for (const QByteArray &line : devices.readAll().split('\n')) {
        const QList<QByteArray> fields = QByteArray(line).replace(':', ' ').simplified().split(' ');
        // name: received bytes, packets, errs, drop, fifo, frame, compressed, multicast; then sent bytes
        if (fields.size() > 9 && fields[0] == device.toUtf8())
            return fields[9].toLongLong();
    }
    return std::nullopt;
}

std::optional<double> ShootingUplink::measureCapacity(quint16 port, const QString &device,
                                                      int seconds)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0) {
        close(listener);
        return std::nullopt;
    }
    std::thread sink([listener] {
        const int connection = accept(listener, nullptr, nullptr);
        std::vector<char> buffer(1 << 16);
        while (connection >= 0 && recv(connection, buffer.data(), buffer.size(), 0) > 0) {
        }
        close(connection);
    });
    const int sender = socket(AF_INET, SOCK_STREAM, 0);
    // CUBIC fills the link whatever the namespace's own choice: with a short queue BBR's probes
    // leave it idle now and then, which would understate what the link carries.
    static const char cubic[] = "cubic";
    setsockopt(sender, IPPROTO_TCP, TCP_CONGESTION, cubic, sizeof cubic - 1);
    const bool connected =
        ::connect(sender, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    std::thread source([sender, connected] {
        const std::vector<char> data(1 << 16, 'x');
        while (connected && send(sender, data.data(), data.size(), MSG_NOSIGNAL) > 0) {
        }
    });
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const std::optional<qint64> before = bytesSent(device);
    QElapsedTimer clock;
    clock.start();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const std::optional<qint64> after = bytesSent(device);
    const double elapsed = double(clock.nsecsElapsed()) / 1e9;
    // Ended with a reset: what still waits in the socket is thrown away, not sent.
    const linger abrupt{1, 0};
    setsockopt(sender, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
    shutdown(sender, SHUT_RDWR);
    source.join();
    close(sender);
    shutdown(listener, SHUT_RDWR);
    sink.join();
    close(listener);
    // What was queued in front of the link drains before the session starts.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    if (!connected || !before || !after)
        return std::nullopt;
    return double(*after - *before) * 8.0 / elapsed;
}

void ShootingUplink::previewRegistered()
{
    m_lastAt = QDateTime::currentMSecsSinceEpoch();
    m_bytesAtLast = bytesSent(m_device);
    if (m_previews++ == 0) {
        m_firstAt = m_lastAt;
        m_bytesAtFirst = m_bytesAtLast;
    }
}

void ShootingUplink::print() const
{
    if (m_previews < 3 || !m_bytesAtFirst || !m_bytesAtLast) {
        std::printf("while shooting: too few previews, or no counter on %s\n", qPrintable(m_device));
        return;
    }
    const double seconds = double(m_lastAt - m_firstAt) / 1000.0;
    const double link = m_measuredBits.value_or(m_linkMbit * 1e6) / 8.0 * seconds;
    const double carried = double(*m_bytesAtLast - *m_bytesAtFirst);
    // The previews sent in the window: every one registered after the first.
    const double previews = double(m_previews - 1) * double(m_previewBytes) * wireBytesPerPayloadByte;
    const double left = link - previews;
    std::printf("while shooting (%d previews in %.1f s, uplink %s, its %s capacity): link busy "
                "%.1f %%, previews %.1f %% of it, originals %.1f %% of what the previews leave\n",
                m_previews - 1, seconds, qPrintable(m_device),
                m_measuredBits ? "measured" : "nominal", 100.0 * carried / link,
                100.0 * previews / link, left > 0 ? 100.0 * (carried - previews) / left : 0.0);
}
