// SPDX-License-Identifier: MIT
// macOS: TCP_CONNECTION_INFO (Apple, <netinet/tcp.h>, struct tcp_connection_info, macOS 10.11)
// for the round trip (in milliseconds there), the bytes in the send buffer, the segment size and
// the retransmissions; SO_NET_SERVICE_TYPE with NET_SERVICE_TYPE_BK (Apple, <sys/socket.h>,
// macOS 10.12), "non-interactive network bulk transfer like synching or backup", for the class.
#include "tcppath.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace TcpPath {

std::optional<Sample> sample(qintptr socket, qint64 handedOver)
{
    Q_UNUSED(handedOver)
    tcp_connection_info info{};
    socklen_t length = sizeof info;
    if (getsockopt(static_cast<int>(socket), IPPROTO_TCP, TCP_CONNECTION_INFO, &info, &length) != 0)
        return std::nullopt;
    Sample sample;
    sample.roundTrip = std::chrono::milliseconds(info.tcpi_srtt);
    sample.unacknowledgedBytes = info.tcpi_snd_sbbytes;
    sample.segmentBytes = info.tcpi_maxseg;
    sample.retransmissions = info.tcpi_txretransmitpackets;
    return sample;
}

void markBackground(qintptr socket)
{
    const int background = NET_SERVICE_TYPE_BK;
    setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_NET_SERVICE_TYPE, &background,
               sizeof background);
}

} // namespace TcpPath
