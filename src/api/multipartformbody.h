// SPDX-License-Identifier: MIT
#pragma once

#include "requestbody.h"

#include <QByteArray>
#include <QMap>
#include <QString>

// The browser-style form the object store accepts: the presigned fields in the map's order,
// then the file part, always named "file", "upload.jpg", "image/jpeg", whatever the file is.
class MultipartFormBody {
public:
    // A fresh upper-case UUID for every upload, so no two bodies share a boundary.
    static QString newBoundary();

    // The whole form with `file` as its file part: the fields and the file part's headers
    // before it, the closing delimiter after. A file's bytes stay in the file until they are
    // sent.
    static RequestBody around(const RequestBody &file, const QMap<QString, QString> &fields,
                              const QString &boundary);

    static QByteArray contentType(const QString &boundary);
};
