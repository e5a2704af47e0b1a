// SPDX-License-Identifier: MIT
#include "connectiondrop.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <httplib.h>
#include <netinet/in.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct SocketAddress {
    std::string address;
    int port = -1;
};

SocketAddress describe(const sockaddr_storage &address) {
    char text[INET6_ADDRSTRLEN] = {};
    if (address.ss_family == AF_INET) {
        sockaddr_in ipv4{};
        std::memcpy(&ipv4, &address, sizeof ipv4);
        inet_ntop(AF_INET, &ipv4.sin_addr, text, sizeof text);
        return {text, ntohs(ipv4.sin_port)};
    }
    if (address.ss_family == AF_INET6) {
        sockaddr_in6 ipv6{};
        std::memcpy(&ipv6, &address, sizeof ipv6);
        inet_ntop(AF_INET6, &ipv6.sin6_addr, text, sizeof text);
        return {text, ntohs(ipv6.sin6_port)};
    }
    return {};
}

bool isConnection(int fd, const httplib::Request &request) {
    sockaddr_storage local{};
    socklen_t length = sizeof local;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&local), &length) != 0)
        return false;
    if (describe(local).port != request.local_port)
        return false;
    sockaddr_storage peer{};
    length = sizeof peer;
    if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &length) != 0)
        return false;
    const SocketAddress remote = describe(peer);
    return remote.port == request.remote_port && remote.address == request.remote_addr;
}

int socketOf(const httplib::Request &request) {
    rlimit limit{};
    const rlim_t highest =
        getrlimit(RLIMIT_NOFILE, &limit) == 0 ? std::min<rlim_t>(limit.rlim_cur, 65536) : 1024;
    for (int fd = 0; fd < static_cast<int>(highest); ++fd) {
        if (isConnection(fd, request))
            return fd;
    }
    return -1;
}

} // namespace

bool dropConnection(const httplib::Request &request) {
    const int fd = socketOf(request);
    // Shutting down rather than closing leaves the descriptor to httplib, which closes it once
    // its own write fails; no other connection can inherit the number meanwhile.
    return fd >= 0 && shutdown(fd, SHUT_RDWR) == 0;
}

bool resetConnection(const httplib::Request &request) {
    const int fd = socketOf(request);
    if (fd < 0)
        return false;
    // A socket closed with a zero linger time is reset, not closed in order. The socket goes
    // by putting /dev/null in place of its descriptor, in one atomic step: httplib keeps a
    // valid descriptor, writes its reply into nothing and closes it, and no other connection
    // can inherit the number meanwhile.
    const linger abort{1, 0};
    if (setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort) != 0)
        return false;
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nothing < 0)
        return false;
    const bool replaced = dup2(nothing, fd) == fd;
    close(nothing);
    return replaced;
}

int takeConnection(const httplib::Request &request) {
    const int fd = socketOf(request);
    if (fd < 0)
        return -1;
    const int kept = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (kept < 0)
        return -1;
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    const bool replaced = nothing >= 0 && dup2(nothing, fd) == fd;
    if (nothing >= 0)
        close(nothing);
    if (!replaced) {
        close(kept);
        return -1;
    }
    return kept;
}

bool answerRawAndClose(const httplib::Request &request, std::string_view bytes) {
    const int fd = socketOf(request);
    if (fd < 0)
        return false;
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(bytes.size()) && shutdown(fd, SHUT_RDWR) == 0;
}
