// SPDX-License-Identifier: MIT
#include "delivery.h"

#include "apiclient.h"
#include "crashpoint.h"
#include "deliveryjournal.h"
#include "owedphotos.h"
#include "photocourier.h"
#include "servicereachability.h"
#include "settlewatch.h"
#include "uploadlanes.h"
#include "uploadmanager.h"

#include <QCoroTask>
#include <QFileInfo>

Delivery::Delivery(QObject *parent)
    : QObject(parent)
    , m_journal(std::make_shared<DeliveryJournal>())
    , m_lanes(std::make_shared<UploadLanes>(APIClient::shared()))
    , m_status(new DeliveryStatus(this))
    , m_owed(new OwedPhotos(this))
    , m_reachability(new ServiceReachability(APIClient::shared(), this))
    , m_settling(new SettleWatch(this))
{
    if (!m_journal->open(DeliveryJournal::defaultPath()))
        m_status->setJournalProblem(m_journal->errorString());
    else
        m_status->setJournalProblem(m_journal->database().writeFailure());
    connect(&m_journal->database(), &JournalDatabase::writeFailureChanged, this,
            [this] { m_status->setJournalProblem(m_journal->database().writeFailure()); });

    connect(m_status, &DeliveryStatus::changed, this, &Delivery::changed);
    connect(m_owed, &OwedPhotos::retryDue, this, &Delivery::retryNow);
    connect(m_settling, &SettleWatch::changedAndSettled, this, &Delivery::takeAgain);
    connect(m_reachability, &ServiceReachability::serviceAnswered, this,
            &Delivery::serviceAnswered);
    connect(m_reachability, &ServiceReachability::reachedAgain, this, &Delivery::reachedAgain);
    const auto offline = [this] {
        using Reason = DeliveryStatus::Reason;
        const Reason now = m_status->reason();
        if (m_owed->isEmpty() || now == Reason::signInNeeded || now == Reason::networkSignIn)
            return;
        // Behind a sign-in page nothing gets through either, and the page is the way out.
        m_status->setReason(m_reachability->behindCaptivePortal() ? Reason::networkSignIn
                                                                   : Reason::offline);
    };
    connect(m_reachability, &ServiceReachability::unreachable, this, offline);
    connect(m_reachability, &ServiceReachability::networkLost, this, offline);
    connect(m_reachability, &ServiceReachability::captivePortalChanged, this,
            &Delivery::captivePortalChanged);
}

Delivery::~Delivery() = default;

SessionJournal &Delivery::sessions() { return m_journal->sessions(); }

QString Delivery::journalError() const
{
    return m_journal->isOpen() ? QString() : m_journal->errorString();
}

void Delivery::countInto(UploadManager *manager) { m_counters = manager; }

int Delivery::unfinishedCount() const { return m_owed->size(); }

int Delivery::unfinishedCount(qint64 folderId) const { return m_owed->sizeFor(folderId); }

int Delivery::waitingCount() const
{
    // While the service cannot be reached, a photo under way waits as much as one that failed.
    return m_status->everyOwedPhotoWaits() ? m_owed->size() : m_owed->waitingCount();
}

void Delivery::owedChanged()
{
    m_reachability->setNeeded(!m_owed->isEmpty());
    Q_EMIT changed();
}

void Delivery::deliver(qint64 folderId, const QUrl &fileURL)
{
    // Written down before the first request, so that a photo is owed from the moment it is
    // handed over, whatever happens next.
    CrashPoint::before(CrashPoint::Step::handedOver);
    const QFileInfo file(fileURL.toLocalFile());
    qint64 photo = m_journal->addPhoto(folderId, fileURL, file.size(),
                                       file.lastModified().toMSecsSinceEpoch());
    CrashPoint::after(CrashPoint::Step::handedOver);
    // Not written down: sent all the same, and owed for as long as this run lasts.
    if (photo == 0)
        photo = --m_unwritten;
    m_owed->add(photo, {folderId, fileURL, {}, true, false, m_signInEpoch});
    owedChanged();
    send(photo);
}

void Delivery::resumeOwed()
{
    const QList<JournalPhoto> owed = m_journal->owed();
    for (const JournalPhoto &photo : owed) {
        if (m_owed->contains(photo.id))
            continue;
        m_owed->add(photo.id, {photo.folderId, photo.fileURL, photo.progress, false, true,
                               m_signInEpoch});
    }
    if (owed.isEmpty())
        return;
    m_status->setReason(DeliveryStatus::Reason::sending);
    owedChanged();
    // After the caller has finished setting up: the first requests may need what it does.
    QTimer::singleShot(0, this, &Delivery::retryNow);
}

void Delivery::signedIn()
{
    ++m_signInEpoch;
    if (m_status->reason() == DeliveryStatus::Reason::signInNeeded)
        m_status->setReason(waitingCount() ? DeliveryStatus::Reason::sending
                                           : DeliveryStatus::Reason::none);
    m_owed->resetBackoff();
    retryNow();
}

void Delivery::send(qint64 photo)
{
    const OwedPhotos::Photo *owed = m_owed->find(photo);
    if (!owed)
        return;
    PhotoCourier::Route route{m_journal, m_lanes, nullptr, m_reachability};
    UploadManager *counters = m_counters.data();
    if (counters && counters->folderId() == owed->folderId)
        route.counters = counters;
    // The outcome comes back as the courier's result; the courier may outlive this object
    // when the program closes with uploads under way, and then nobody waits for it.
    [](QPointer<Delivery> self, PhotoCourier::Route way, qint64 number,
       PhotoAttempt::Photo attempt) -> QCoro::Task<> {
        QCoro::Task<PhotoCourier::Outcome> carrying =
            PhotoCourier::carry(std::move(way), number, std::move(attempt));
        const PhotoCourier::Outcome outcome = co_await carrying;
        if (Delivery *delivery = self.data())
            delivery->settle(number, outcome.delivered, outcome.failure, outcome.taken,
                             outcome.progress);
    }(QPointer<Delivery>(this), std::move(route), photo,
      PhotoAttempt::Photo{owed->fileURL, owed->folderId, owed->progress});
}

void Delivery::settle(qint64 photo, bool wasDelivered, const std::optional<AttemptFailure> &failure,
                      const std::optional<FileStamp> &taken, const PhotoProgress &progress)
{
    OwedPhotos::Photo *owed = m_owed->find(photo);
    if (!owed)
        return;
    owed->progress = progress;
    if (wasDelivered)
        delivered(photo, taken);
    else if (failure)
        failed(photo, *failure, taken);
}

void Delivery::delivered(qint64 photo, const std::optional<FileStamp> &taken)
{
    const OwedPhotos::Photo *owed = m_owed->find(photo);
    // The file may still be arriving (a transfer that stalled): the original goes again if it
    // changes after it was read.
    if (owed && photo > 0)
        m_settling->watch(photo, owed->fileURL.toLocalFile(), taken);
    m_owed->remove(photo);
    serviceAnswered();
    if (m_status->reason() == DeliveryStatus::Reason::sending && waitingCount() == 0)
        m_status->setReason(DeliveryStatus::Reason::none);
    owedChanged();
}

void Delivery::failed(qint64 photo, const AttemptFailure &failure,
                      const std::optional<FileStamp> &taken)
{
    OwedPhotos::Photo &owed = *m_owed->find(photo);
    owed.inFlight = false;
    if (!failure.passes()) {
        m_status->addRefused(photo, owed.fileURL.fileName(),
                             failure.kind == AttemptFailure::Kind::sessionGone);
        // A file that could not be read or decoded may be one still being written: it gets
        // another attempt once it has changed and settled.
        if (photo > 0 && (failure.kind == AttemptFailure::Kind::undecodable ||
                          failure.kind == AttemptFailure::Kind::unreadable))
            m_settling->watch(photo, owed.fileURL.toLocalFile(), taken);
        m_owed->remove(photo);
        owedChanged();
        return;
    }
    owed.waiting = true;
    if (failure.kind == AttemptFailure::Kind::signInNeeded && owed.signInEpoch == m_signInEpoch) {
        if (m_status->reason() != DeliveryStatus::Reason::signInNeeded) {
            m_status->setReason(DeliveryStatus::Reason::signInNeeded);
            m_owed->cancelRetry();
            Q_EMIT signInRequired();
        }
        Q_EMIT changed();
        return;
    }
    if (m_status->reason() != DeliveryStatus::Reason::signInNeeded) {
        m_status->setReason(waitReason(failure));
        m_reachability->startProbing();
        m_owed->retryLater();
    }
    Q_EMIT changed();
}

DeliveryStatus::Reason Delivery::waitReason(const AttemptFailure &failure) const
{
    using Reason = DeliveryStatus::Reason;
    // A sign-in page in the way explains every other failure.
    if (failure.cause == AttemptFailure::Cause::networkSignIn ||
        m_reachability->behindCaptivePortal())
        return Reason::networkSignIn;
    // The store answered: whatever was thought of the network, it is there.
    if (failure.cause == AttemptFailure::Cause::storageRefuses)
        return Reason::storageRefuses;
    // What was learnt of why stands until the service is seen answering again.
    const Reason now = m_status->reason();
    if (now == Reason::offline || now == Reason::storageRefuses || now == Reason::networkSignIn)
        return now;
    return Reason::serviceTrouble;
}

void Delivery::captivePortalChanged(bool behind)
{
    using Reason = DeliveryStatus::Reason;
    if (behind) {
        if (m_status->reason() != Reason::signInNeeded && waitingCount() > 0)
            m_status->setReason(Reason::networkSignIn);
        return;
    }
    // Signed in to the network: what waited goes now.
    if (m_status->reason() == Reason::networkSignIn)
        m_status->setReason(Reason::sending);
    m_owed->resetBackoff();
    retryNow();
}

void Delivery::retryNow()
{
    m_owed->cancelRetry();
    if (m_status->reason() == DeliveryStatus::Reason::signInNeeded)
        return;
    // Every due photo marked under way first: an attempt may come back before the next is sent.
    for (const qint64 photo : m_owed->takeDue(m_signInEpoch))
        send(photo);
}

void Delivery::serviceAnswered()
{
    m_owed->resetBackoff();
    using Reason = DeliveryStatus::Reason;
    const Reason now = m_status->reason();
    if (now == Reason::offline || now == Reason::serviceTrouble || now == Reason::storageRefuses ||
        now == Reason::networkSignIn)
        m_status->setReason(Reason::sending);
    // The service answers again: what waits goes now rather than at its backoff's end.
    if (m_owed->anyDue() && m_status->reason() != DeliveryStatus::Reason::signInNeeded)
        retryNow();
}

void Delivery::reachedAgain()
{
    m_owed->resetBackoff();
    if (m_status->reason() == DeliveryStatus::Reason::offline)
        m_status->setReason(DeliveryStatus::Reason::sending);
    retryNow();
}

void Delivery::takeAgain(qint64 photo)
{
    const std::optional<JournalPhoto> written = m_journal->photo(photo);
    if (!written || m_owed->contains(photo))
        return;
    if (written->refusal) {
        m_journal->setRefusalLifted(photo);
        m_status->removeRefused(photo);
    } else if (written->originalStored) {
        m_journal->setOriginalResend(photo);
    } else {
        return;
    }
    PhotoProgress progress = written->progress;
    progress.originalResend = written->originalStored;
    m_owed->add(photo, {written->folderId, written->fileURL, progress, false, true, m_signInEpoch});
    owedChanged();
    retryNow();
}
