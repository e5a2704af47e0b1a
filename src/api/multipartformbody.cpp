// SPDX-License-Identifier: MIT
#include "multipartformbody.h"

#include <QUuid>

QString MultipartFormBody::newBoundary()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QByteArray MultipartFormBody::build(const QMap<QString, QString> &fields,
                                    const QByteArray &fileData, const QString &boundary)
{
    const QByteArray delimiter = "--" + boundary.toUtf8() + "\r\n";
    QByteArray body;
    // The file dominates; one allocation for the whole body keeps a 100 MB upload from being
    // copied again and again while it grows.
    body.reserve(fileData.size() + 256 + fields.size() * 128);
    for (auto it = fields.constBegin(); it != fields.constEnd(); ++it) {
        body += delimiter;
        body += "Content-Disposition: form-data; name=\"" + it.key().toUtf8() + "\"\r\n\r\n";
        body += it.value().toUtf8() + "\r\n";
    }
    body += delimiter;
    body += "Content-Disposition: form-data; name=\"file\"; filename=\"upload.jpg\"\r\n";
    body += "Content-Type: image/jpeg\r\n\r\n";
    body += fileData;
    body += "\r\n--" + boundary.toUtf8() + "--\r\n";
    return body;
}

QByteArray MultipartFormBody::contentType(const QString &boundary)
{
    return "multipart/form-data; boundary=" + boundary.toUtf8();
}
