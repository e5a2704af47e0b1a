// SPDX-License-Identifier: MIT
// Decoding of the three reply records; they share the strict reader and nothing else. A presign
// is also kept, in the form it came in.
#include "authresponse.h"
#include "presignresponse.h"
#include "sessionresponse.h"
#include "strictjsonobject.h"

#include <QJsonDocument>
#include <QJsonObject>

AuthResponse AuthResponse::decode(const QByteArray &body)
{
    const StrictJsonObject json(body, QStringLiteral("AuthResponse"));
    return {json.string(QStringLiteral("token"))};
}

SessionResponse SessionResponse::decode(const QByteArray &body)
{
    const StrictJsonObject json(body, QStringLiteral("SessionResponse"));
    return {json.int64(QStringLiteral("folder_id")), json.string(QStringLiteral("slug")),
            json.string(QStringLiteral("live_url")), json.string(QStringLiteral("gallery_url"))};
}

PresignResponse PresignResponse::decode(const QByteArray &body)
{
    const StrictJsonObject json(body, QStringLiteral("PresignResponse"));
    return {json.string(QStringLiteral("method")),   json.string(QStringLiteral("url")),
            json.stringMap(QStringLiteral("fields")), json.string(QStringLiteral("key")),
            json.string(QStringLiteral("bucket")),   json.optionalString(QStringLiteral("host"))};
}

QByteArray PresignResponse::encode() const
{
    QJsonObject formFields;
    for (auto field = fields.cbegin(); field != fields.cend(); ++field)
        formFields.insert(field.key(), field.value());
    QJsonObject json{{QStringLiteral("method"), method}, {QStringLiteral("url"), url},
                     {QStringLiteral("fields"), formFields}, {QStringLiteral("key"), key},
                     {QStringLiteral("bucket"), bucket}};
    if (host)
        json.insert(QStringLiteral("host"), *host);
    return QJsonDocument(json).toJson(QJsonDocument::Compact);
}
