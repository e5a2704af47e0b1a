// SPDX-License-Identifier: MIT
#include "settlewatch.h"

#include <QList>

SettleWatch::SettleWatch(QObject *parent)
    : QObject(parent)
{
    m_tick.setInterval(1000);
    connect(&m_tick, &QTimer::timeout, this, &SettleWatch::look);
}

void SettleWatch::watch(qint64 photo, const QString &path, std::optional<FileStamp> taken)
{
    Watched watched{path, taken, taken, false, {}, {}};
    watched.sinceWatched.start();
    watched.sinceLastChange.start();
    m_watched[photo] = watched;
    if (!m_tick.isActive())
        m_tick.start();
}

void SettleWatch::forget(qint64 photo)
{
    m_watched.erase(photo);
    if (m_watched.empty())
        m_tick.stop();
}

void SettleWatch::look()
{
    QList<qint64> settled;
    for (auto entry = m_watched.begin(); entry != m_watched.end();) {
        Watched &watched = entry->second;
        const std::optional<FileStamp> now = FileStamp::of(watched.path);
        if (now != watched.last) {
            watched.last = now;
            watched.sinceLastChange.restart();
        }
        watched.changed = watched.changed || now != watched.taken;
        const bool quiet = watched.sinceLastChange.hasExpired(
            std::chrono::milliseconds(quietFor).count());
        if (watched.changed && now && now->size > 0 && quiet && now->isSettled()) {
            settled.append(entry->first);
            entry = m_watched.erase(entry);
            continue;
        }
        if (!watched.changed &&
            watched.sinceWatched.hasExpired(std::chrono::milliseconds(watchFor).count())) {
            entry = m_watched.erase(entry);
            continue;
        }
        ++entry;
    }
    if (m_watched.empty())
        m_tick.stop();
    // Told after the look is over: a new attempt may start watching again at once.
    for (const qint64 photo : settled)
        Q_EMIT changedAndSettled(photo);
}
