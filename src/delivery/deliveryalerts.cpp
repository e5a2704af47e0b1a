// SPDX-License-Identifier: MIT
#include "deliveryalerts.h"

namespace {

QString photos(int count, const char *one, const char *many)
{
    return count == 1 ? QString::fromUtf8(one) : QString::fromUtf8(many).arg(count);
}

QString sentence(QString text)
{
    if (!text.isEmpty())
        text[0] = text[0].toUpper();
    return text + QLatin1Char('.');
}

} // namespace

DeliveryAlerts::DeliveryAlerts(QObject *parent)
    : DeliveryAlerts(Timing{}, parent)
{
}

DeliveryAlerts::DeliveryAlerts(Timing timing, QObject *parent)
    : QObject(parent)
    , m_timing(timing)
{
    // Precise: a coarse timer may fire a few percent early, and "a minute" would be less.
    m_waitTimer.setSingleShot(true);
    m_waitTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_waitTimer, &QTimer::timeout, this, &DeliveryAlerts::waitedLongEnough);
    m_gapTimer.setSingleShot(true);
    m_gapTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_gapTimer, &QTimer::timeout, this, &DeliveryAlerts::flush);
}

void DeliveryAlerts::setWaiting(int count, DeliveryStatus::Reason reason)
{
    const int before = std::exchange(m_waiting, count);
    m_reason = reason;
    if (count == 0) {
        m_waitTimer.stop();
        if (before == 0)
            return;
        // The wait is over. Told of it, the photographer is told of its end; otherwise the
        // wait was too short to be worth a word.
        if (m_shownWaiting) {
            queue({Topic::waiting, QStringLiteral("Fotos enviadas"),
                   photos(m_peak, "La foto que esperaba ya se envió.",
                          "Las %1 fotos que esperaban ya se enviaron."),
                   true});
        } else {
            m_pending.erase(Topic::waiting);
        }
        m_waitedLong = m_toldWaiting = m_shownWaiting = false;
        m_peak = 0;
        return;
    }
    m_peak = std::max(m_peak, count);
    // On their way again: an alert not yet shown would say what is no longer so.
    if (!DeliveryStatus::isTrouble(reason)) {
        const auto held = m_pending.find(Topic::waiting);
        if (held != m_pending.end() && !held->second.waitOver)
            m_pending.erase(held);
    }
    if (before == 0 && !m_waitedLong) {
        m_waitTimer.start(m_timing.waitingFor);
        return;
    }
    // Told again when the reason changes or more photos wait, never when they are on their way
    // again: that is told by the end of the wait.
    if (m_waitedLong && DeliveryStatus::isTrouble(reason) &&
        (!m_toldWaiting || reason != m_toldReason || count > m_toldCount))
        queue(waitingAlert());
}

void DeliveryAlerts::waitedLongEnough()
{
    m_waitedLong = true;
    if (m_waiting > 0 && DeliveryStatus::isTrouble(m_reason))
        queue(waitingAlert());
}

DeliveryAlerts::Alert DeliveryAlerts::waitingAlert() const
{
    return {Topic::waiting, photos(m_waiting, "1 foto en espera", "%1 fotos en espera"),
            sentence(DeliveryStatus::reasonText(m_reason)) +
                QStringLiteral(" Se enviarán en cuanto se pueda.")};
}

void DeliveryAlerts::setRefused(int count, const QString &notice)
{
    const int before = std::exchange(m_refused, count);
    if (count == 0) {
        m_pending.erase(Topic::refused);
        return;
    }
    if (count > before)
        queue({Topic::refused, photos(count, "1 foto rechazada", "%1 fotos rechazadas"), notice});
}

void DeliveryAlerts::sessionStopped(qint64 folderId, const QString &client, int owed)
{
    // Nothing owed at the stop: nothing to tell later.
    if (owed > 0)
        m_stopped[folderId] = Stopped{client, owed};
}

QList<qint64> DeliveryAlerts::stoppedSessionsOwed() const
{
    QList<qint64> folders;
    for (const auto &stopped : m_stopped)
        folders << stopped.first;
    return folders;
}

void DeliveryAlerts::setOwed(qint64 folderId, int owed)
{
    const auto stopped = m_stopped.find(folderId);
    if (stopped == m_stopped.end() || owed > 0)
        return;
    const int count = stopped->second.owedAtStop;
    const QString quoted = QStringLiteral("«") + stopped->second.client + QStringLiteral("»");
    m_stopped.erase(stopped);
    queue({Topic::originals, QStringLiteral("Originales enviados"),
           count == 1
               ? QStringLiteral("El original que faltaba de %1 ya está en el servicio.").arg(quoted)
               : QStringLiteral("Los %1 originales que faltaban de %2 ya están en el servicio.")
                     .arg(count)
                     .arg(quoted)});
}

void DeliveryAlerts::queue(Alert next)
{
    if (next.topic == Topic::waiting && !next.waitOver) {
        m_toldWaiting = true;
        m_toldCount = m_waiting;
        m_toldReason = m_reason;
    }
    m_pending[next.topic] = std::move(next);
    flush();
}

void DeliveryAlerts::flush()
{
    if (m_pending.empty())
        return;
    const auto gap = std::chrono::milliseconds(m_sinceLast.isValid() ? m_sinceLast.elapsed() : 0);
    if (m_sinceLast.isValid() && gap < m_timing.between) {
        if (!m_gapTimer.isActive())
            m_gapTimer.start(m_timing.between - gap);
        return;
    }
    // One now, the most pressing: a refusal, then what waits, then the originals.
    const auto first = m_pending.begin();
    const Alert told = first->second;
    m_pending.erase(first);
    if (told.topic == Topic::waiting && !told.waitOver)
        m_shownWaiting = true;
    m_sinceLast.start();
    if (!m_pending.empty())
        m_gapTimer.start(m_timing.between);
    Q_EMIT alert(told);
}
