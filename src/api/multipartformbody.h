// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

// The browser-style form the object store accepts: the presigned fields in the map's order,
// then the file part, always named "file", "upload.jpg", "image/jpeg", whatever the file is.
class MultipartFormBody {
public:
    // A fresh upper-case UUID for every upload, so no two bodies share a boundary.
    static QString newBoundary();

    static QByteArray build(const QMap<QString, QString> &fields, const QByteArray &fileData,
                            const QString &boundary);

    static QByteArray contentType(const QString &boundary);
};
