// SPDX-License-Identifier: MIT
// Linux: TCP_INFO (tcp(7)) for the round trip, the segment size and the retransmissions, and
// SIOCOUTQ for the bytes still in the socket's send queue, acknowledged or not. Linux has no
// background class for a socket: SO_PRIORITY only orders the host's own queues, and a DSCP mark
// leaves the host for networks that may treat it any way they like. Other systems without a
// file of their own say nothing.
#include "tcppath.h"

#if defined(Q_OS_LINUX)
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstddef>
#endif

namespace TcpPath {

std::optional<Sample> sample(qintptr socket, qint64 handedOver)
{
    Q_UNUSED(handedOver)
#if defined(Q_OS_LINUX)
    const int fd = static_cast<int>(socket);
    tcp_info info{};
    socklen_t length = sizeof info;
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length) != 0 ||
        length < offsetof(tcp_info, tcpi_total_retrans) + sizeof info.tcpi_total_retrans)
        return std::nullopt;
    int queued = 0;
    if (ioctl(fd, SIOCOUTQ, &queued) != 0)
        return std::nullopt;
    Sample sample;
    sample.roundTrip = std::chrono::microseconds(info.tcpi_rtt);
    sample.unacknowledgedBytes = queued;
    sample.segmentBytes = info.tcpi_snd_mss;
    sample.retransmissions = info.tcpi_total_retrans;
    return sample;
#else
    Q_UNUSED(socket)
    return std::nullopt;
#endif
}

void markBackground(qintptr socket) { Q_UNUSED(socket) }

} // namespace TcpPath
