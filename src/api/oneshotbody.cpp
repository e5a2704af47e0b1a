// SPDX-License-Identifier: MIT
#include "oneshotbody.h"

#include <utility>

OneShotBody::OneShotBody(BodyReader body, QObject *parent)
    : QIODevice(parent)
    , m_body(std::move(body))
{
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

bool OneShotBody::seek(qint64 position)
{
    // QIODevice itself seeks to where the device already is; only going back is a resend.
    if (position != m_body.position()) {
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
    if (m_body.atEnd())
        return -1;
    return m_body.read(data, maxSize);
}

qint64 OneShotBody::writeData(const char *, qint64)
{
    return -1;
}
