// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

// The reply to opening a live session. Field names are the service's JSON keys.
struct SessionResponse {
    qint64 folder_id = 0;
    QString slug;
    QString live_url;
    QString gallery_url;

    // Throws DecodingError.
    static SessionResponse decode(const QByteArray &body);
};
