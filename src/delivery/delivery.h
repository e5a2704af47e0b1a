// SPDX-License-Identifier: MIT
#pragma once

#include "deliverystatus.h"
#include "photocourier.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <memory>
#include <optional>

class DeliveryJournal;
class OwedPhotos;
class ServiceReachability;
class SessionJournal;
class SettleWatch;
class Shots;
class UploadManager;
struct AttemptFailure;
struct FileStamp;
struct PhotoProgress;
struct UploadLanes;

// The layer above one attempt, and the session's one way to send a photo. A photo handed over
// is written down before its first request and owed until its original is stored; its attempts
// run through the upload lanes and come back with their outcome; what an attempt could not
// deliver for a reason that passes goes again, with backoff, at once when the service is seen
// answering again, and after a sign-in when the token expired. Photos an earlier run still owed
// are delivered into their own sessions. Main thread only.
class Delivery : public QObject {
    Q_OBJECT
public:
    // Opens the journal at its usual place; delivery works without one (nothing is then owed
    // beyond one attempt, nor taken up after a restart), and the photographer is told.
    explicit Delivery(QObject *parent = nullptr);
    ~Delivery() override;

    // The live session's record, which the session keeps in the same journal.
    SessionJournal &sessions();
    const std::shared_ptr<UploadLanes> &lanes() const { return m_lanes; }
    // The session on screen: what its photos' attempts do is counted there.
    void countInto(UploadManager *manager);
    // Waits until everything written down so far is on disk: before the program quits.
    void waitForJournal();

    // Hands a new photo of the session over: written down, then sent.
    void deliver(qint64 folderId, const QUrl &fileURL);
    // Sends what earlier runs still owe, into their own sessions.
    void resumeOwed();
    // A sign-in went through: what waited for it goes now.
    void signedIn();

    // Photos not yet wholly delivered (original stored), waiting or under way.
    int unfinishedCount() const;
    int unfinishedCount(qint64 folderId) const;
    int waitingCount() const;
    DeliveryStatus::Reason reason() const { return m_status->reason(); }
    QString reasonText() const { return m_status->reasonText(); }
    // One line for the screens: "3 fotos en espera — sin conexión"; undefined when none wait.
    QVariant notice() const { return m_status->notice(waitingCount()); }
    // The photos a refusal that will not change ended, by name; undefined when none.
    QVariant refusedNotice() const { return m_status->refusedNotice(); }
    int refusedCount() const { return m_status->refusedCount(); }
    // That the journal cannot be written, and what that means; undefined while it can.
    QVariant journalNotice() const { return m_status->journalNotice(); }
    // What quitting now would leave undelivered; undefined when nothing would be.
    QVariant quitWarning() const { return m_status->quitWarning(unfinishedCount()); }
    // Why the journal could not be opened; empty when it is open.
    QString journalError() const;

Q_SIGNALS:
    void changed();
    // The service no longer takes the token: deliveries wait for a new sign-in.
    void signInRequired();

private:
    // Finds the photo's shot, then sends it.
    void pair(qint64 photo);
    void paired(qint64 photo, qint64 shot);
    // The photo's next part: its preview's or its original's, or none while another file of its
    // shot makes the shot's preview.
    void send(qint64 photo);
    void run(qint64 photo, PhotoCourier::Part part);
    void partEnded(qint64 photo, PhotoCourier::Part part, const PhotoCourier::Outcome &outcome);
    void previewFailed(qint64 photo, const AttemptFailure &failure,
                       const std::optional<FileStamp> &taken);
    // The shot's preview is registered: the shot's other files send their originals.
    void shotRegistered(qint64 photo);
    void release(const QList<qint64> &photos);
    void delivered(qint64 photo, const std::optional<FileStamp> &taken);
    void failed(qint64 photo, const AttemptFailure &failure, const std::optional<FileStamp> &taken);
    // The platform's word on a network sign-in page: said while photos wait, and once signed
    // in what waits goes at once.
    void captivePortalChanged(bool behind);
    void retryNow();
    void serviceAnswered();
    void reachedAgain();
    // The photo's file changed after an attempt took it and is quiet again: another attempt.
    void takeAgain(qint64 photo);
    void owedChanged();
    // The session on screen's counters, when the folder is its.
    UploadManager *countersFor(qint64 folderId) const;

    std::shared_ptr<DeliveryJournal> m_journal;
    std::shared_ptr<UploadLanes> m_lanes;
    DeliveryStatus *m_status;
    OwedPhotos *m_owed;
    ServiceReachability *m_reachability;
    SettleWatch *m_settling;
    Shots *m_shots;
    QPointer<UploadManager> m_counters;
    int m_signInEpoch = 0;
    // Photos the journal could not write down are numbered below zero, for this run only.
    qint64 m_unwritten = 0;
};
