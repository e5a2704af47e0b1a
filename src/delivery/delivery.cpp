// SPDX-License-Identifier: MIT
#include "delivery.h"

#include "apiclient.h"
#include "crashpoint.h"
#include "deliverylog.h"
#include "deliveryjournal.h"
#include "owedphotos.h"
#include "photocourier.h"
#include "servicereachability.h"
#include "settlewatch.h"
#include "shots.h"
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
    , m_shots(new Shots(m_journal, *m_owed, this))
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
        if (!m_owed->isEmpty())
            m_status->wentOffline(m_reachability->behindCaptivePortal());
    };
    connect(m_reachability, &ServiceReachability::unreachable, this, offline);
    connect(m_reachability, &ServiceReachability::networkLost, this, offline);
    connect(m_reachability, &ServiceReachability::captivePortalChanged, this,
            &Delivery::captivePortalChanged);
}

Delivery::~Delivery()
{
    // Attempts still under way hold the journal and go on writing to it as long as the program
    // runs; what was written until now is on disk before the program goes.
    waitForJournal();
}

void Delivery::waitForJournal() { m_journal->database().waitForWrites(); }

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
    CrashPoint::before(CrashPoint::Step::handedOver, m_journal->database());
    const QFileInfo file(fileURL.toLocalFile());
    qint64 photo = m_journal->addPhoto(folderId, fileURL, file.size(),
                                       file.lastModified().toMSecsSinceEpoch());
    CrashPoint::after(CrashPoint::Step::handedOver, m_journal->database());
    // Its first request waits for this to be on disk: it gets there while the preview is made.
    m_journal->database().hurry();
    // Without a journal: sent all the same, and owed for as long as this run lasts.
    if (photo == 0)
        photo = --m_unwritten;
    m_owed->add(photo, {folderId, fileURL, {}, false, false, m_signInEpoch, photo, true, false});
    m_shots->handedOver(photo, folderId, fileURL);
    qCDebug(deliveryLog, "photo %lld %s: handed over for session %lld", photo,
            qPrintable(fileURL.fileName()), folderId);
    owedChanged();
    pair(photo);
}

void Delivery::pair(qint64 photo)
{
    // Found at once for a photo whose name no older file of the session has: it goes in this
    // same turn.
    [](QPointer<Delivery> self, qint64 number) -> QCoro::Task<> {
        QCoro::Task<qint64> finding = self->m_shots->find(number);
        const qint64 shot = co_await finding;
        if (Delivery *delivery = self.data())
            delivery->paired(number, shot);
    }(QPointer<Delivery>(this), photo);
}

void Delivery::paired(qint64 photo, qint64 shot)
{
    OwedPhotos::Photo *owed = m_owed->find(photo);
    if (!owed)
        return;
    owed->shot = shot;
    owed->pairing = false;
    if (shot != photo)
        qCDebug(deliveryLog, "photo %lld: one shot with photo %lld", photo, shot);
    // One an earlier run left goes with the others of its round, unless it waits for a sign-in.
    if (!owed->waiting || !m_status->waitsForSignIn())
        send(photo);
}

void Delivery::resumeOwed()
{
    const QList<JournalPhoto> owed = m_journal->owed();
    for (const JournalPhoto &photo : owed) {
        if (m_owed->contains(photo.id))
            continue;
        // A photo whose shot was still being found when the program went away is paired again.
        const bool paired = photo.shot > 0 || photo.captured;
        m_owed->add(photo.id, {photo.folderId, photo.fileURL, photo.progress, false, true,
                               m_signInEpoch, photo.shot > 0 ? photo.shot : photo.id, !paired,
                               false});
        m_shots->handedOver(photo.id, photo.folderId, photo.fileURL);
        if (!paired)
            pair(photo.id);
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
    m_status->signedIn(waitingCount() > 0);
    m_owed->resetBackoff();
    retryNow();
}

void Delivery::send(qint64 photo)
{
    OwedPhotos::Photo *owed = m_owed->find(photo);
    if (!owed || owed->pairing || owed->inFlight)
        return;
    owed->held = false;
    // A busy server asked everybody to wait: a new photo goes with the round at the wait's end.
    if (m_owed->waitOutHoldOff()) {
        owed->waiting = true;
        Q_EMIT changed();
        return;
    }
    switch (m_shots->next(photo)) {
    case Shots::Next::wait:
        qCDebug(deliveryLog, "photo %lld: waits for the preview of its shot", photo);
        owed->held = true;
        return;
    case Shots::Next::noPreview:
        failed(photo, {AttemptFailure::Kind::undecodable, owed->fileURL.fileName()}, {});
        return;
    case Shots::Next::joined:
        // Its shot's preview came from another of its files: this file's original is due.
        m_journal->setPreviewByPartner(photo);
        m_shots->joined(photo);
        owed->progress.previewRegistered = true;
        if (UploadManager *counters = countersFor(owed->folderId))
            counters->countOriginalDue();
        run(photo, PhotoCourier::Part::original);
        return;
    case Shots::Next::original:
        run(photo, PhotoCourier::Part::original);
        return;
    case Shots::Next::preview:
        run(photo, PhotoCourier::Part::preview);
        return;
    }
}

UploadManager *Delivery::countersFor(qint64 folderId) const
{
    UploadManager *counters = m_counters.data();
    return counters && counters->folderId() == folderId ? counters : nullptr;
}

void Delivery::run(qint64 photo, PhotoCourier::Part part)
{
    OwedPhotos::Photo *owed = m_owed->find(photo);
    owed->inFlight = true;
    const PhotoCourier::Route route{m_journal, m_lanes, countersFor(owed->folderId),
                                    m_reachability, m_shots};
    // The outcome comes back as the courier's result; the courier may outlive this object
    // when the program closes with uploads under way, and then nobody waits for it.
    [](QPointer<Delivery> self, PhotoCourier::Route way, qint64 number,
       PhotoAttempt::Photo attempt, PhotoCourier::Part which) -> QCoro::Task<> {
        QCoro::Task<PhotoCourier::Outcome> carrying =
            PhotoCourier::carry(std::move(way), number, std::move(attempt), which);
        const PhotoCourier::Outcome outcome = co_await carrying;
        if (Delivery *delivery = self.data())
            delivery->partEnded(number, which, outcome);
    }(QPointer<Delivery>(this), route, photo,
      PhotoAttempt::Photo{owed->fileURL, owed->folderId, owed->progress}, part);
}

void Delivery::partEnded(qint64 photo, PhotoCourier::Part part,
                         const PhotoCourier::Outcome &outcome)
{
    OwedPhotos::Photo *owed = m_owed->find(photo);
    if (!owed)
        return;
    owed->progress = outcome.progress;
    owed->inFlight = false;
    if (part == PhotoCourier::Part::original) {
        if (outcome.delivered)
            delivered(photo, outcome.taken);
        else if (outcome.failure)
            failed(photo, *outcome.failure, outcome.taken);
        return;
    }
    if (outcome.superseded) {
        send(photo); // another file of its shot gives the preview: this one waits for it
        return;
    }
    if (owed->progress.previewRegistered) {
        shotRegistered(photo);
        send(photo); // its original, unless a busy server asked everybody to wait
        return;
    }
    if (outcome.failure)
        previewFailed(photo, *outcome.failure, outcome.taken);
}

void Delivery::previewFailed(qint64 photo, const AttemptFailure &failure,
                             const std::optional<FileStamp> &taken)
{
    if (failure.passes()) {
        failed(photo, failure, taken);
        return;
    }
    // A file of which no preview can be made still has its original sent when another file of
    // its shot gives the preview: it waits for that, rather than being refused.
    if (failure.kind == AttemptFailure::Kind::undecodable && photo > 0) {
        m_journal->setPreviewUnmakeable(photo, true);
        m_shots->setUnmakeable(photo, true);
        if (m_shots->anotherCanMakePreview(photo)) {
            m_owed->find(photo)->held = true;
            release(m_shots->gaveUp(photo));
            return;
        }
    }
    const QList<qint64> waiting = m_shots->gaveUp(photo);
    failed(photo, failure, taken);
    release(waiting);
}

void Delivery::release(const QList<qint64> &photos)
{
    for (const qint64 photo : photos)
        send(photo);
}

void Delivery::shotRegistered(qint64 photo)
{
    for (const qint64 partner : m_shots->registered(photo)) {
        if (!m_owed->contains(partner)) {
            // Refused when no file of its own could give a preview: its original goes now.
            const std::optional<JournalPhoto> file = m_journal->photo(partner);
            if (!file)
                continue;
            m_journal->setRefusalLifted(partner);
            m_shots->setRefused(partner, false);
            m_status->removeRefused(partner);
            m_owed->add(partner, {file->folderId, file->fileURL, file->progress, false, false,
                                  m_signInEpoch, m_owed->find(photo)->shot, false, false});
        }
        send(partner);
    }
    owedChanged();
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
    if (waitingCount() == 0)
        m_status->caughtUp();
    owedChanged();
}

void Delivery::failed(qint64 photo, const AttemptFailure &failure,
                      const std::optional<FileStamp> &taken)
{
    OwedPhotos::Photo &owed = *m_owed->find(photo);
    owed.inFlight = false;
    owed.held = false;
    if (!failure.passes()) {
        qCDebug(deliveryLog, "photo %lld: refused for good: %s", photo,
                qPrintable(failure.description));
        m_shots->setRefused(photo, true);
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
    qCDebug(deliveryLog, "photo %lld: waits to go again: %s", photo,
            qPrintable(failure.description));
    // A refusal of the token its latest attempt went out under: one from before the latest
    // sign-in is only late news.
    if (failure.kind == AttemptFailure::Kind::signInNeeded && owed.signInEpoch == m_signInEpoch) {
        if (m_status->signInNeeded()) {
            m_owed->cancelRetry();
            Q_EMIT signInRequired();
        }
    } else if (!m_status->waitsForSignIn()) {
        m_status->attemptFailed(failure, m_reachability->behindCaptivePortal());
        m_reachability->startProbing();
        if (failure.retryAfter)
            m_owed->holdOff(*failure.retryAfter);
        m_owed->retryLater();
    }
    Q_EMIT changed();
}

void Delivery::captivePortalChanged(bool behind)
{
    m_status->behindSignInPage(behind, waitingCount() > 0);
    if (behind)
        return;
    // Signed in to the network: what waited goes now.
    m_owed->resetBackoff();
    retryNow();
}

void Delivery::retryNow()
{
    if (m_status->waitsForSignIn()) {
        m_owed->cancelRetry();
        return;
    }
    // Whatever says the service answers again, it asked for this wait itself.
    if (m_owed->waitOutHoldOff())
        return;
    m_owed->cancelRetry();
    // Taken first: an attempt may come back before the next photo is sent.
    const QList<qint64> due = m_owed->takeDue(m_signInEpoch);
    if (!due.isEmpty())
        qCDebug(deliveryLog, "%lld photos go again", qlonglong(due.size()));
    for (const qint64 photo : due)
        send(photo);
}

void Delivery::serviceAnswered()
{
    m_owed->resetBackoff();
    m_status->serviceAnswered();
    // The service answers again: what waits goes now rather than at its backoff's end.
    if (m_owed->anyDue())
        retryNow();
}

void Delivery::reachedAgain()
{
    m_owed->resetBackoff();
    m_status->reachedAgain();
    retryNow();
}

void Delivery::takeAgain(qint64 photo)
{
    const std::optional<JournalPhoto> written = m_journal->photo(photo);
    if (!written || m_owed->contains(photo))
        return;
    if (written->refusal) {
        // Written again, it may well give a preview now.
        m_journal->setRefusalLifted(photo);
        m_journal->setPreviewUnmakeable(photo, false);
        m_shots->setRefused(photo, false);
        m_shots->setUnmakeable(photo, false);
        m_status->removeRefused(photo);
    } else if (written->originalStored) {
        m_journal->setOriginalResend(photo);
    } else {
        return;
    }
    PhotoProgress progress = written->progress;
    progress.originalResend = written->originalStored;
    m_owed->add(photo, {written->folderId, written->fileURL, progress, false, true, m_signInEpoch,
                        written->shot > 0 ? written->shot : photo, false, false});
    owedChanged();
    retryNow();
}
