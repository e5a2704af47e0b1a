// SPDX-License-Identifier: MIT
#include "multipartformbody.h"

#include <QUuid>

QString MultipartFormBody::newBoundary()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

RequestBody MultipartFormBody::around(const RequestBody &file,
                                      const QMap<QString, QString> &fields,
                                      const QString &boundary)
{
    const QByteArray delimiter = "--" + boundary.toUtf8() + "\r\n";
    QByteArray head;
    for (auto it = fields.constBegin(); it != fields.constEnd(); ++it) {
        head += delimiter;
        head += "Content-Disposition: form-data; name=\"" + it.key().toUtf8() + "\"\r\n\r\n";
        head += it.value().toUtf8() + "\r\n";
    }
    head += delimiter;
    head += "Content-Disposition: form-data; name=\"file\"; filename=\"upload.jpg\"\r\n";
    head += "Content-Type: image/jpeg\r\n\r\n";
    return file.around(head, "\r\n--" + boundary.toUtf8() + "--\r\n");
}

QByteArray MultipartFormBody::contentType(const QString &boundary)
{
    return "multipart/form-data; boundary=" + boundary.toUtf8();
}
