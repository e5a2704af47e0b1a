// SPDX-License-Identifier: MIT
#include "owedphotos.h"

#include "deliverylog.h"

#include <algorithm>

OwedPhotos::OwedPhotos(QObject *parent)
    : QObject(parent)
{
    m_retry.setSingleShot(true);
    // Never early: a round set for the end of a server's wait must find it over.
    m_retry.setTimerType(Qt::PreciseTimer);
    connect(&m_retry, &QTimer::timeout, this, [this] {
        m_holdOff = QDeadlineTimer();
        Q_EMIT retryDue();
    });
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
    std::chrono::milliseconds wait = m_schedule.next();
    if (!m_holdOff.hasExpired())
        wait = std::max(wait, holdOffLeft());
    qCDebug(deliveryLog, "next round in %lld ms", qlonglong(wait.count()));
    m_retry.start(wait);
}

std::chrono::milliseconds OwedPhotos::holdOffLeft() const
{
    return std::chrono::ceil<std::chrono::milliseconds>(m_holdOff.remainingTimeAsDuration());
}

void OwedPhotos::holdOff(std::chrono::milliseconds asked)
{
    const std::chrono::milliseconds wait =
        std::clamp(asked, RetrySchedule::first, RetrySchedule::longest);
    if (!m_holdOff.hasExpired() && holdOffLeft() >= wait)
        return;
    qCDebug(deliveryLog, "the server asks for %lld ms: next round in %lld ms",
            qlonglong(asked.count()), qlonglong(wait.count()));
    m_holdOff.setRemainingTime(wait, Qt::PreciseTimer);
    m_retry.start(wait);
}

bool OwedPhotos::waitOutHoldOff()
{
    if (m_holdOff.hasExpired())
        return false;
    const std::chrono::milliseconds left = holdOffLeft();
    if (!m_retry.isActive() || m_retry.remainingTimeAsDuration() < left)
        m_retry.start(left);
    return true;
}
