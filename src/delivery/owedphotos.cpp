// SPDX-License-Identifier: MIT
#include "owedphotos.h"

#include "deliverylog.h"

OwedPhotos::OwedPhotos(QObject *parent)
    : QObject(parent)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &OwedPhotos::retryDue);
}

void OwedPhotos::add(qint64 photo, Photo owed) { m_owed[photo] = std::move(owed); }

void OwedPhotos::remove(qint64 photo) { m_owed.erase(photo); }

OwedPhotos::Photo *OwedPhotos::find(qint64 photo)
{
    const auto found = m_owed.find(photo);
    return found == m_owed.end() ? nullptr : &found->second;
}

int OwedPhotos::sizeFor(qint64 folderId) const
{
    int count = 0;
    for (const auto &[photo, owed] : m_owed)
        count += owed.folderId == folderId ? 1 : 0;
    return count;
}

int OwedPhotos::waitingCount() const
{
    int waiting = 0;
    for (const auto &[photo, owed] : m_owed)
        waiting += owed.waiting ? 1 : 0;
    return waiting;
}

bool OwedPhotos::anyDue() const
{
    for (const auto &[photo, owed] : m_owed) {
        if (owed.waiting && !owed.inFlight && !owed.held && !owed.pairing)
            return true;
    }
    return false;
}

QList<qint64> OwedPhotos::takeDue(int signInEpoch)
{
    m_retry.stop();
    QList<qint64> due;
    for (auto &[photo, owed] : m_owed) {
        if (!owed.waiting || owed.inFlight || owed.held || owed.pairing)
            continue;
        owed.signInEpoch = signInEpoch;
        due.append(photo);
    }
    return due;
}

void OwedPhotos::retryLater()
{
    if (m_retry.isActive())
        return;
    const std::chrono::milliseconds wait = m_schedule.next();
    qCDebug(deliveryLog, "next round in %lld ms", qlonglong(wait.count()));
    m_retry.start(wait);
}
