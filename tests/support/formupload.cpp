// SPDX-License-Identifier: MIT
#include "formupload.h"

QByteArray FormUpload::expectedBody(const QMap<QString, QString> &fields, const QByteArray &file,
                                    const QByteArray &boundary)
{
    QByteArray body;
    for (auto it = fields.begin(); it != fields.end(); ++it)
        body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + it.key().toUtf8() +
                "\"\r\n\r\n" + it.value().toUtf8() + "\r\n";
    body += "--" + boundary +
            "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"upload.jpg\"\r\n"
            "Content-Type: image/jpeg\r\n\r\n" +
            file + "\r\n--" + boundary + "--\r\n";
    return body;
}

QByteArray FormUpload::boundaryOf(const DevService::ReceivedRequest &request)
{
    const QByteArray type = request.header("Content-Type");
    const QByteArray prefix = "multipart/form-data; boundary=";
    return type.startsWith(prefix) ? type.mid(prefix.size()) : QByteArray();
}
