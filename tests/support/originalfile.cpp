// SPDX-License-Identifier: MIT
#include "originalfile.h"

#include <QFile>

QByteArray OriginalFile::bytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char((quint64(i) * 2654435761u) >> 24);
    return bytes;
}

QString OriginalFile::write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}
