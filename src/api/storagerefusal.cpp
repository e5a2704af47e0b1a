// SPDX-License-Identifier: MIT
#include "storagerefusal.h"

#include <QXmlStreamReader>

bool StorageRefusal::permissionExpired() const
{
    // S3 and the stores that follow it say an expired policy or presigned request with
    // AccessDenied and a message ("Invalid according to Policy: Policy expired.", "Request has
    // expired"); an expired session token has a code of its own.
    if (code == QLatin1String("ExpiredToken"))
        return true;
    return code == QLatin1String("AccessDenied") &&
           message.contains(QLatin1String("expired"), Qt::CaseInsensitive);
}

std::optional<StorageRefusal> StorageRefusal::read(const QByteArray &body)
{
    QXmlStreamReader xml(body);
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("Error"))
        return std::nullopt;
    StorageRefusal refusal;
    bool hasCode = false;
    while (xml.readNextStartElement()) {
        if (xml.name() == QLatin1String("Code")) {
            refusal.code = xml.readElementText().trimmed();
            hasCode = true;
        } else if (xml.name() == QLatin1String("Message")) {
            refusal.message = xml.readElementText().trimmed();
        } else {
            xml.skipCurrentElement();
        }
    }
    // A document cut short or not well formed says nothing to rely on.
    if (xml.hasError() || !hasCode || refusal.code.isEmpty())
        return std::nullopt;
    return refusal;
}
