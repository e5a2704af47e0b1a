// SPDX-License-Identifier: MIT
#include "connectionroute.h"

#include <QNetworkProxyFactory>
#include <QNetworkProxyQuery>
#include <QNetworkRequest>

namespace {

bool isSecure(const QUrl &url) { return url.scheme().compare(u"https", Qt::CaseInsensitive) == 0; }

} // namespace

bool ConnectionRoute::canReach(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return (scheme == u"http" || scheme == u"https") && !url.host().isEmpty();
}

std::optional<ConnectionRoute> ConnectionRoute::to(const QUrl &url)
{
    ConnectionRoute route;
    route.encrypted = isSecure(url);
    route.host = url.host();
    route.port = static_cast<quint16>(url.port(route.encrypted ? 443 : 80));
    // As Qt's HTTP stack picks among the proxies offered: for plain HTTP the first that takes
    // whole requests or passes the connection through; for HTTPS the first that passes it
    // through. Qt offers no proxy at all for loopback addresses and "localhost".
    const QList<QNetworkProxy> proxies = QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(url));
    for (const QNetworkProxy &proxy : proxies) {
        if (!route.encrypted && proxy.capabilities().testFlag(QNetworkProxy::CachingCapability)) {
            route.forwarded = true;
            route.forwardProxy = proxy;
            return route;
        }
        if (proxy.type() == QNetworkProxy::NoProxy ||
            proxy.capabilities().testFlag(QNetworkProxy::TunnelingCapability)) {
            route.socketProxy = proxy;
            return route;
        }
    }
    return std::nullopt;
}

QByteArray ConnectionRoute::requestTarget(const QUrl &url) const
{
    if (forwarded)
        return url.toEncoded(QUrl::RemoveFragment | QUrl::RemoveUserInfo);
    QByteArray target = url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority |
                                      QUrl::RemoveFragment);
    return target.isEmpty() ? QByteArrayLiteral("/") : target;
}

QByteArray ConnectionRoute::hostField(const QUrl &url)
{
    QByteArray host = url.host(QUrl::FullyEncoded).toLatin1();
    if (host.contains(':'))
        host = '[' + host + ']'; // an IPv6 address
    const int port = url.port();
    const int schemePort = isSecure(url) ? 443 : 80;
    if (port >= 0 && port != schemePort)
        host += ':' + QByteArray::number(port);
    return host;
}

QByteArray ConnectionRoute::requestHead(const QNetworkRequest &request, const QByteArray &verb,
                                        qint64 bodySize) const
{
    const QUrl url = request.url();
    QByteArray head = verb + ' ' + requestTarget(url) + " HTTP/1.1\r\n";
    head += "Host: " + hostField(url) + "\r\n";
    for (const QByteArray &name : request.rawHeaderList()) {
        // The framing is the connection's own business.
        if (name.compare("Content-Length", Qt::CaseInsensitive) == 0 ||
            name.compare("Connection", Qt::CaseInsensitive) == 0 ||
            name.compare("Host", Qt::CaseInsensitive) == 0)
            continue;
        head += name + ": " + request.rawHeader(name) + "\r\n";
    }
    if (forwarded && !forwardProxy.user().isEmpty()) {
        const QByteArray credentials =
            (forwardProxy.user() + QLatin1Char(':') + forwardProxy.password()).toUtf8();
        head += "Proxy-Authorization: Basic " + credentials.toBase64() + "\r\n";
    }
    head += "Content-Length: " + QByteArray::number(bodySize) + "\r\n";
    // One request a connection: the next original opens its own, with nothing left over from
    // this one that could be lost or resent.
    head += "Connection: close\r\n\r\n";
    return head;
}
