// SPDX-License-Identifier: MIT
#pragma once

#include "bodyreader.h"

#include <QByteArray>
#include <QString>

// What a request sends: bytes held in memory (a JSON document, a preview), or the bytes of a
// file read from the file while they are sent (an original), either with a head and a tail
// around them (a form's parts before and after its file). A value: each send opens it afresh,
// so a request sent a second time reads its file again from the start, and memory for a file
// does not grow with its size.
class RequestBody {
public:
    RequestBody() = default;
    // Implicit: the service's requests pass their JSON bytes as they are.
    RequestBody(QByteArray bytes)
        : m_bytes(std::move(bytes))
    {
    }
    static RequestBody ofFile(QString path);

    // The same content with `head` before it and `tail` after it.
    RequestBody around(QByteArray head, QByteArray tail) const;
    // The file the content is read from; empty for bytes in memory.
    const QString &filePath() const { return m_path; }

    // A reader from the body's first byte. A file is opened here, its size taken as it is now;
    // throws FileReadError when it cannot be opened.
    BodyReader open() const;

private:
    QByteArray m_head;
    QByteArray m_bytes;
    QString m_path;
    bool m_fromFile = false;
    QByteArray m_tail;
};
