// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

// The sign-in reply.
struct AuthResponse {
    QString token;

    // Throws DecodingError.
    static AuthResponse decode(const QByteArray &body);
};
