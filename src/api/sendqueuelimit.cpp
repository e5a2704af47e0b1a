// SPDX-License-Identifier: MIT
#include "sendqueuelimit.h"

#include <QtGlobal>

#if defined(Q_OS_LINUX) || defined(Q_OS_MACOS)
#include <algorithm>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#endif

namespace SendQueueLimit {

void applyToOpenConnections()
{
#if (defined(Q_OS_LINUX) || defined(Q_OS_MACOS)) && defined(TCP_NOTSENT_LOWAT)
    rlimit limit{};
    const rlim_t highest =
        getrlimit(RLIMIT_NOFILE, &limit) == 0 ? std::min<rlim_t>(limit.rlim_cur, 4096) : 1024;
    for (int fd = 0; fd < static_cast<int>(highest); ++fd) {
        int type = 0;
        socklen_t length = sizeof type;
        if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) != 0 || type != SOCK_STREAM)
            continue;
        sockaddr_storage address{};
        length = sizeof address;
        if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0 ||
            (address.ss_family != AF_INET && address.ss_family != AF_INET6))
            continue;
        const int bytes = unsentBytes;
        setsockopt(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &bytes, sizeof bytes);
    }
#endif
}

} // namespace SendQueueLimit
