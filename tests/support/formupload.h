// SPDX-License-Identifier: MIT
#pragma once

#include "devservicefixture.h"

#include <QByteArray>
#include <QMap>
#include <QString>

// The object store's form upload as the tests check it, written out independently of the
// client's own builder.
namespace FormUpload {

// The whole body the store should receive for these fields and this file.
QByteArray expectedBody(const QMap<QString, QString> &fields, const QByteArray &file,
                        const QByteArray &boundary);
// The boundary the request's Content-Type announces; empty when it announces none.
QByteArray boundaryOf(const DevService::ReceivedRequest &request);

} // namespace FormUpload
