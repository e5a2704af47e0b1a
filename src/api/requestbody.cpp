// SPDX-License-Identifier: MIT
#include "requestbody.h"

#include "filereaderror.h"

#include <QFile>

#include <memory>

RequestBody RequestBody::ofFile(QString path)
{
    RequestBody body;
    body.m_path = std::move(path);
    body.m_fromFile = true;
    return body;
}

RequestBody RequestBody::around(QByteArray head, QByteArray tail) const
{
    RequestBody body = *this;
    body.m_head = std::move(head) + m_head;
    body.m_tail = m_tail + std::move(tail);
    return body;
}

BodyReader RequestBody::open() const
{
    if (!m_fromFile)
        return BodyReader(m_head, m_bytes, m_tail);
    // Unbuffered: the body is asked for in pieces of its own size, which a buffer would only
    // copy once more.
    auto file = std::make_unique<QFile>(m_path);
    if (!file->open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        throw FileReadError(m_path);
    return BodyReader(m_head, std::move(file), m_path, m_tail);
}
