// SPDX-License-Identifier: MIT
#include "deliveryqueue.h"

#include "apiclient.h"
#include "connectivitywatch.h"
#include "deliveryjournal.h"
#include "journalledger.h"
#include "settlewatch.h"
#include "uploadmanager.h"

#include <QCoroTask>

namespace {
constexpr int namesListed = 3;
} // namespace

DeliveryQueue::DeliveryQueue(QObject *parent)
    : QObject(parent)
    , m_journal(std::make_shared<DeliveryJournal>())
    , m_api(APIClient::shared())
    , m_connectivity(new ConnectivityWatch(this))
    , m_settling(new SettleWatch(this))
{
    m_journal->open(DeliveryJournal::defaultPath());
    m_ledger = std::make_shared<JournalLedger>(m_journal, this);

    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &DeliveryQueue::retryNow);
    m_probeTimer.setSingleShot(true);
    connect(&m_probeTimer, &QTimer::timeout, this, &DeliveryQueue::probe);
    m_stallCheck.setInterval(probeInterval);
    connect(&m_stallCheck, &QTimer::timeout, this, &DeliveryQueue::watchForStalls);

    connect(m_settling, &SettleWatch::changedAndSettled, this, &DeliveryQueue::takeAgain);
    connect(m_connectivity, &ConnectivityWatch::networkMayBeBack, this, [this] {
        // Back on what may be another network: its uplink is measured afresh.
        m_api.forgetUplinkPath();
        if (m_owed.empty())
            return;
        // Whatever hangs on a connection from before is dead; the probe finds out at once
        // whether the service can be reached, and lets everything go if so.
        m_unreachable = true;
        m_probing = false;
        m_probeTimer.stop();
        startProbing();
    });
    connect(m_connectivity, &ConnectivityWatch::networkLost, this, [this] {
        if (!m_owed.empty() && m_reason != Reason::signInNeeded)
            setReason(Reason::offline);
    });
}

DeliveryQueue::~DeliveryQueue() = default;

QString DeliveryQueue::journalError() const
{
    return m_journal->isOpen() ? QString() : m_journal->errorString();
}

void DeliveryQueue::attach(UploadManager *manager, qint64 folderId, const QString &slug,
                           const QString &clientName)
{
    m_journal->recordSession(folderId, slug, clientName);
    if (m_journal->isOpen())
        manager->setLedger(m_ledger);
    m_current = manager;
    m_currentFolderId = folderId;
}

void DeliveryQueue::resumeOwed()
{
    const QList<JournalPhoto> owed = m_journal->owed();
    for (const JournalPhoto &photo : owed) {
        if (m_owed.contains(photo.id))
            continue;
        m_owed[photo.id] = OwedPhoto{photo.folderId, photo.fileURL, false, true, m_signInEpoch};
    }
    if (owed.isEmpty())
        return;
    setReason(Reason::sending);
    Q_EMIT changed();
    // After the caller has finished setting up: the first requests may need what it does.
    QTimer::singleShot(0, this, &DeliveryQueue::retryNow);
}

void DeliveryQueue::signedIn()
{
    ++m_signInEpoch;
    if (m_reason == Reason::signInNeeded)
        setReason(waitingCount() ? Reason::sending : Reason::none);
    m_schedule.reset();
    retryNow();
}

int DeliveryQueue::waitingCount() const
{
    // While the service cannot be reached, a photo under way waits as much as one that failed.
    if (m_reason == Reason::offline || m_reason == Reason::serviceTrouble ||
        m_reason == Reason::signInNeeded)
        return static_cast<int>(m_owed.size());
    int waiting = 0;
    for (const auto &[photo, owed] : m_owed)
        waiting += owed.waiting ? 1 : 0;
    return waiting;
}

int DeliveryQueue::unfinishedCount(qint64 folderId) const
{
    int unfinished = 0;
    for (const auto &[photo, owed] : m_owed)
        unfinished += owed.folderId == folderId ? 1 : 0;
    return unfinished;
}

QString DeliveryQueue::reasonText() const
{
    switch (m_reason) {
    case Reason::offline:
        return QStringLiteral("sin conexión");
    case Reason::serviceTrouble:
        return QStringLiteral("el servicio no responde");
    case Reason::signInNeeded:
        return QStringLiteral("inicia sesión de nuevo");
    case Reason::none:
    case Reason::sending:
        break;
    }
    return QStringLiteral("enviando");
}

QVariant DeliveryQueue::notice() const
{
    const int waiting = waitingCount();
    if (waiting == 0)
        return {};
    const QString count = waiting == 1 ? QStringLiteral("1 foto en espera")
                                       : QStringLiteral("%1 fotos en espera").arg(waiting);
    return count + QStringLiteral(" — ") + reasonText();
}

QVariant DeliveryQueue::refusedNotice() const
{
    if (m_refused.empty())
        return {};
    QStringList listed;
    for (const auto &[photo, name] : m_refused)
        listed << name;
    QString names = listed.mid(0, namesListed).join(QStringLiteral(", "));
    if (listed.size() > namesListed)
        names += QStringLiteral(" y %1 más").arg(listed.size() - namesListed);
    return QStringLiteral("No se pudo enviar: ") + names;
}

void DeliveryQueue::setReason(Reason reason)
{
    if (m_reason == reason)
        return;
    m_reason = reason;
    Q_EMIT changed();
}

void DeliveryQueue::photoHandedOver(qint64 photo, qint64 folderId, const QUrl &fileURL)
{
    m_owed[photo] = OwedPhoto{folderId, fileURL, true, false, m_signInEpoch};
    if (!m_stallCheck.isActive())
        m_stallCheck.start();
    Q_EMIT changed();
}

void DeliveryQueue::fileTaken(qint64 photo, const std::optional<FileStamp> &taken)
{
    m_taken[photo] = taken;
}

void DeliveryQueue::takeAgain(qint64 photo)
{
    const std::optional<JournalPhoto> written = m_journal->photo(photo);
    if (!written || m_owed.contains(photo))
        return;
    if (written->refusal) {
        m_journal->setRefusalLifted(photo);
        m_refused.erase(photo);
    } else if (written->originalStored) {
        m_journal->setOriginalResend(photo);
    } else {
        return;
    }
    m_owed[photo] = OwedPhoto{written->folderId, written->fileURL, false, true, m_signInEpoch};
    Q_EMIT changed();
    retryNow();
}

void DeliveryQueue::serviceAnswered()
{
    m_schedule.reset();
    m_unreachable = false;
    if (m_reason == Reason::offline || m_reason == Reason::serviceTrouble)
        setReason(Reason::sending);
    // The service answers again: what waits goes now rather than at its backoff's end.
    bool anyWaiting = false;
    for (const auto &[photo, owed] : m_owed)
        anyWaiting = anyWaiting || (owed.waiting && !owed.inFlight);
    if (anyWaiting && m_reason != Reason::signInNeeded)
        retryNow();
}

void DeliveryQueue::photoDelivered(qint64 photo)
{
    const auto found = m_owed.find(photo);
    // The file may still be arriving (a transfer that stalled): the original goes again if it
    // changes after it was read.
    if (found != m_owed.end())
        m_settling->watch(photo, found->second.fileURL.toLocalFile(), m_taken[photo]);
    m_taken.erase(photo);
    m_owed.erase(photo);
    serviceAnswered();
    if (m_reason == Reason::sending && waitingCount() == 0)
        setReason(Reason::none);
    Q_EMIT changed();
}

void DeliveryQueue::attemptFailed(qint64 photo, const AttemptFailure &failure)
{
    const auto found = m_owed.find(photo);
    if (found == m_owed.end())
        return;
    OwedPhoto &owed = found->second;
    owed.inFlight = false;
    if (!failure.passes()) {
        m_refused[photo] = owed.fileURL.fileName();
        // A file that could not be read or decoded may be one still being written: it gets
        // another attempt once it has changed and settled.
        if (failure.kind == AttemptFailure::Kind::undecodable ||
            failure.kind == AttemptFailure::Kind::unreadable)
            m_settling->watch(photo, owed.fileURL.toLocalFile(), m_taken[photo]);
        m_taken.erase(photo);
        m_owed.erase(found);
        Q_EMIT changed();
        return;
    }
    owed.waiting = true;
    if (failure.kind == AttemptFailure::Kind::signInNeeded && owed.signInEpoch == m_signInEpoch) {
        if (m_reason != Reason::signInNeeded) {
            setReason(Reason::signInNeeded);
            m_retry.stop();
            Q_EMIT signInRequired();
        }
        Q_EMIT changed();
        return;
    }
    if (m_reason != Reason::signInNeeded) {
        if (m_reason != Reason::offline)
            setReason(Reason::serviceTrouble);
        startProbing();
        if (!m_retry.isActive())
            m_retry.start(m_schedule.next());
    }
    Q_EMIT changed();
}

UploadManager *DeliveryQueue::managerFor(qint64 folderId)
{
    if (m_current && folderId == m_currentFolderId)
        return m_current;
    std::unique_ptr<UploadManager> &earlier = m_earlier[folderId];
    if (!earlier) {
        earlier = std::make_unique<UploadManager>(folderId);
        earlier->setLedger(m_ledger);
    }
    return earlier.get();
}

void DeliveryQueue::retryNow()
{
    m_retry.stop();
    if (m_reason == Reason::signInNeeded)
        return;
    // Settled first: a job may report back before redeliver() returns.
    QList<qint64> due;
    for (const auto &[photo, owed] : m_owed) {
        if (owed.waiting && !owed.inFlight)
            due.append(photo);
    }
    for (const qint64 photo : due) {
        const auto found = m_owed.find(photo);
        if (found == m_owed.end() || found->second.inFlight)
            continue;
        OwedPhoto &owed = found->second;
        owed.inFlight = true;
        owed.signInEpoch = m_signInEpoch;
        const std::optional<JournalPhoto> written = m_journal->photo(photo);
        PhotoDelivery delivery =
            written ? written->delivery() : PhotoDelivery{photo, owed.fileURL, {}, false, false, {}};
        managerFor(owed.folderId)->redeliver(delivery);
    }
    if (!due.isEmpty() && !m_stallCheck.isActive())
        m_stallCheck.start();
}

void DeliveryQueue::startProbing()
{
    if (m_probing)
        return;
    m_probing = true;
    m_probeTimer.start(0);
}

void DeliveryQueue::watchForStalls()
{
    if (m_owed.empty()) {
        m_stallCheck.stop();
        return;
    }
    if (m_api.replies().longestStall() >= stallLimit)
        startProbing();
}

void DeliveryQueue::probe()
{
    [](QPointer<DeliveryQueue> self, APIClient *api) -> QCoro::Task<> {
        QCoro::Task<bool> asking = api->probe(probeTimeout);
        const bool answered = co_await asking;
        if (DeliveryQueue *queue = self.data())
            queue->probeAnswered(answered);
    }(QPointer<DeliveryQueue>(this), &m_api);
}

void DeliveryQueue::probeAnswered(bool answered)
{
    if (!answered) {
        m_unreachable = true;
        if (m_owed.empty()) {
            m_probing = false;
            return;
        }
        if (m_reason != Reason::signInNeeded)
            setReason(Reason::offline);
        m_probeTimer.start(probeInterval);
        return;
    }
    m_probing = false;
    const bool wasUnreachable = std::exchange(m_unreachable, false);
    // A fresh connection got its answer at once: requests that moved nothing meanwhile hang on
    // connections that died and would not come back in time.
    m_api.replies().abortStalled(wasUnreachable ? stallAfterOutage : stallLimit);
    if (wasUnreachable) {
        m_schedule.reset();
        if (m_reason == Reason::offline)
            setReason(Reason::sending);
        retryNow();
    }
}
