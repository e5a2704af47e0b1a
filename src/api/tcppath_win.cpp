// SPDX-License-Identifier: MIT
// Windows: SIO_TCP_INFO (Microsoft, "SIO_TCP_INFO control code" and struct TCP_INFO_v0,
// Windows 10 1703) for the round trip, the bytes in flight, the segment size and the
// retransmissions; SIO_PRIORITY_HINT with SocketPriorityHintVeryLow (Microsoft, "SIO_PRIORITY_HINT
// control code"), which puts the connection under the system's own LEDBAT congestion control
// (Microsoft, "LEDBAT Background Data Transfer for Windows"). Both are asked for at run time; an
// older system refuses them and the connection goes on as it is. The headers declare them only
// to a build that targets the systems that have them.
#ifndef NTDDI_VERSION
#define NTDDI_VERSION 0x0A00000A // NTDDI_WIN10_FE
#endif

#include "tcppath.h"

#include <winsock2.h>

#include <mstcpip.h>
#include <windows.h>

#include <algorithm>

namespace TcpPath {

std::optional<Sample> sample(qintptr socket, qint64 handedOver)
{
    DWORD version = 0;
    TCP_INFO_v0 info{};
    DWORD returned = 0;
    if (WSAIoctl(static_cast<SOCKET>(socket), SIO_TCP_INFO, &version, sizeof version, &info,
                 sizeof info, &returned, nullptr, nullptr) != 0)
        return std::nullopt;
    // Windows tells what is in flight, not what still waits in its send buffer: that is what
    // the program handed over and the connection has not sent yet. Whether BytesOut counts
    // retransmissions is not documented; counted as if it did, the estimate errs towards less
    // waiting, which lets a little more through, rather than towards more, which after a lossy
    // hour would hold the upload back for good.
    Sample sample;
    sample.roundTrip = std::chrono::microseconds(info.RttUs);
    sample.unacknowledgedBytes =
        std::max<qint64>(0, handedOver - qint64(info.BytesOut)) + info.BytesInFlight;
    sample.segmentBytes = info.Mss;
    sample.retransmissions = quint64(info.FastRetrans) + info.TimeoutEpisodes;
    return sample;
}

void markBackground(qintptr socket)
{
    SOCKET_PRIORITY_HINT hint = SocketPriorityHintVeryLow;
    DWORD returned = 0;
    WSAIoctl(static_cast<SOCKET>(socket), SIO_PRIORITY_HINT, &hint, sizeof hint, nullptr, 0,
             &returned, nullptr, nullptr);
}

} // namespace TcpPath
