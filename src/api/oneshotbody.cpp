// SPDX-License-Identifier: MIT
#include "oneshotbody.h"

#include <algorithm>
#include <cstring>
#include <utility>

OneShotBody::OneShotBody(QByteArray bytes, QObject *parent)
    : QIODevice(parent)
    , m_bytes(std::move(bytes))
{
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

bool OneShotBody::seek(qint64 position)
{
    // QIODevice itself seeks to where the device already is; only going back is a resend.
    if (position != m_offset) {
        m_resendRefused = true;
        return false;
    }
    return QIODevice::seek(position);
}

bool OneShotBody::reset()
{
    // Qt rewinds a body only to send its request again, even an empty one that has nothing
    // to rewind.
    m_resendRefused = true;
    return false;
}

qint64 OneShotBody::readData(char *data, qint64 maxSize)
{
    const qint64 left = m_bytes.size() - m_offset;
    if (left <= 0)
        return -1;
    const qint64 count = std::min(left, maxSize);
    std::memcpy(data, m_bytes.constData() + m_offset, static_cast<size_t>(count));
    m_offset += count;
    return count;
}

qint64 OneShotBody::writeData(const char *, qint64)
{
    return -1;
}
