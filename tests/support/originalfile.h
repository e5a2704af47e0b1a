// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

// An original as the upload tests send it: bytes of no format, different at every position so
// that a piece sent twice, left out or out of place shows in the stored copy, written to a file
// of its own.
namespace OriginalFile {

QByteArray bytes(qsizetype size);
// Writes the bytes to `path`; stops the test program when it cannot, as nothing can be tested.
QString write(const QString &path, const QByteArray &bytes);

} // namespace OriginalFile
