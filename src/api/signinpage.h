// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

class QUrl;

// Whether an HTTP answer came from a network that holds every connection behind a sign-in page
// (a captive portal, as venue Wi-Fi has) rather than from the service or its object store. Those
// never send a client elsewhere nor answer with a web page; a portal does one or the other, or
// answers with the status made for it (511 Network Authentication Required).
struct SignInPage {
    // `location` is the reply's Location header as sent, empty when there is none.
    static bool answered(const QUrl &asked, int status, const QByteArray &contentType,
                         const QByteArray &location, const QByteArray &body);
};
