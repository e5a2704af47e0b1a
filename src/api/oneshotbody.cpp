// SPDX-License-Identifier: MIT
#include "oneshotbody.h"

#include "sendqueuelimit.h"
#include "uplinkgate.h"

#include <algorithm>
#include <cstring>
#include <utility>

OneShotBody::OneShotBody(QByteArray bytes, QObject *parent)
    : QIODevice(parent)
    , m_bytes(std::move(bytes))
{
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    m_nextTrickle.setSingleShot(true);
    connect(&m_nextTrickle, &QTimer::timeout, this, &QIODevice::readyRead);
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

void OneShotBody::yieldTo(UplinkGate *gate)
{
    m_gate = gate;
    // Qt stops asking for a body that gave nothing, until the body says it has more.
    connect(gate, &UplinkGate::opened, this, &QIODevice::readyRead);
}

qint64 OneShotBody::readData(char *data, qint64 maxSize)
{
    // Qt asks for the first piece once the connection is open: from then on, what this body
    // holds back is not already queued in the kernel.
    if (m_gate && m_offset == 0 && !std::exchange(m_queueLimited, true))
        SendQueueLimit::applyToOpenConnections();
    if (const UplinkGate *const gate = m_gate.data(); gate && gate->isHeld()) {
        if (m_sinceTrickle.isValid() && !m_sinceTrickle.hasExpired(trickleInterval.count())) {
            if (!m_nextTrickle.isActive())
                m_nextTrickle.start(trickleInterval - std::chrono::milliseconds(m_sinceTrickle.elapsed()));
            return 0;
        }
        m_sinceTrickle.start();
        maxSize = std::min(maxSize, trickleBytes);
    }
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
