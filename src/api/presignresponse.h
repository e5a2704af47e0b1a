// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

// Permission to store one file in the object store. `method` is kept but the upload always
// posts; `host` without a value means the client's default object-store host.
struct PresignResponse {
    QString method;
    QString url;
    QMap<QString, QString> fields;
    QString key;
    QString bucket;
    std::optional<QString> host;

    // Throws DecodingError.
    static PresignResponse decode(const QByteArray &body);
    // The reply as the service sent it, for keeping: decode() reads it back.
    QByteArray encode() const;
};
