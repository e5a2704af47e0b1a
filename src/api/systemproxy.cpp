// SPDX-License-Identifier: MIT
#include "systemproxy.h"

#include <QNetworkProxyFactory>

void SystemProxy::follow() {
    // Qt asks the platform afresh for every connection it opens
    // (https://doc.qt.io/qt-6/qnetworkproxyfactory.html#systemProxyForQuery): on Windows the
    // WinHTTP settings (the ones Settings > Network > Proxy writes, a PAC script included), on
    // macOS the System Configuration framework's (System Settings > Network > Proxies), and on
    // Linux libproxy where Qt is built with it, as Debian's is, which reads the desktop's
    // settings and the http_proxy, https_proxy, all_proxy and no_proxy variables, else those
    // variables alone. Loopback addresses and "localhost" always go direct: Qt never asks.
    // Qt does this by default only where it was built so (as Debian's Qt 6.4 is).
    QNetworkProxyFactory::setUseSystemConfiguration(true);
}
