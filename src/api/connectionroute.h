// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QNetworkProxy>
#include <QString>
#include <QUrl>

#include <optional>

class QNetworkRequest;

// How a connection of our own reaches an address, the way Qt's HTTP stack would reach it: the
// proxy the system names for it (Qt answers none for loopback addresses), a plain-HTTP address
// handed to a forward proxy whole, anything else tunnelled through the proxy or sent directly.
struct ConnectionRoute {
    QString host;
    quint16 port = 0;
    bool encrypted = false;
    // The proxy the socket itself goes through: a tunnel (HTTP CONNECT or SOCKS), or none.
    QNetworkProxy socketProxy{QNetworkProxy::NoProxy};
    // A forward proxy that takes the request with its whole address in the request line.
    bool forwarded = false;
    QNetworkProxy forwardProxy;

    // Whether a connection of our own can carry requests to the address at all: http or https,
    // with a host.
    static bool canReach(const QUrl &url);
    // The route to an address that can be reached; none when the system's proxy settings give
    // no way to it.
    static std::optional<ConnectionRoute> to(const QUrl &url);

    // The request line's target: the whole address for a forward proxy, else path and query.
    QByteArray requestTarget(const QUrl &url) const;
    // The Host field: the host, and the port unless it is the scheme's own.
    static QByteArray hostField(const QUrl &url);
    // The head of a request with a body of `bodySize` bytes sent along this route, the
    // request's own fields with it: one request, and the connection closed after its reply.
    QByteArray requestHead(const QNetworkRequest &request, const QByteArray &verb,
                           qint64 bodySize) const;
};
