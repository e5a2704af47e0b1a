// SPDX-License-Identifier: MIT
#pragma once

#include "attemptfailure.h"
#include "filestamp.h"
#include "retryschedule.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <QVariant>

#include <chrono>
#include <map>
#include <memory>

class APIClient;
class ConnectivityWatch;
class DeliveryJournal;
class JournalLedger;
class SettleWatch;
class UploadManager;

// The layer above one attempt: every photo handed over is owed until its original is stored,
// and what an attempt could not deliver for a reason that passes goes again, with backoff, at
// once when the service is seen answering again, and after a sign-in when the token expired.
// Photos a previous run still owed are delivered into their own sessions. Main thread only.
class DeliveryQueue : public QObject {
    Q_OBJECT
    Q_PROPERTY(int waitingCount READ waitingCount NOTIFY changed)
    Q_PROPERTY(QVariant notice READ notice NOTIFY changed)
    Q_PROPERTY(QVariant refusedNotice READ refusedNotice NOTIFY changed)
    Q_PROPERTY(Reason reason READ reason NOTIFY changed)

public:
    // Why photos wait, as the photographer is told.
    enum class Reason { none, sending, offline, serviceTrouble, signInNeeded };
    Q_ENUM(Reason)

    static constexpr std::chrono::milliseconds probeInterval{1000};
    static constexpr std::chrono::milliseconds probeTimeout{3000};
    // A reply that moves nothing for this long, while a fresh connection to the service gets an
    // answer, is on a dead connection.
    static constexpr std::chrono::milliseconds stallLimit{15000};
    static constexpr std::chrono::milliseconds stallAfterOutage{3000};

    // Opens the journal at its usual place; the queue works without one (nothing is then owed
    // beyond one attempt) and says so in journalError().
    explicit DeliveryQueue(QObject *parent = nullptr);
    ~DeliveryQueue() override;

    QString journalError() const;

    // The session's manager reports here from now on; the session is written down.
    void attach(UploadManager *manager, qint64 folderId, const QString &slug,
                const QString &clientName);
    // Sends what earlier runs still owe, into their own sessions.
    void resumeOwed();
    // A sign-in went through: what waited for it goes now.
    void signedIn();

    int waitingCount() const;
    // Photos not yet wholly delivered (original stored), waiting or under way.
    int unfinishedCount() const { return static_cast<int>(m_owed.size()); }
    int unfinishedCount(qint64 folderId) const;
    Reason reason() const { return m_reason; }
    // One line for the screens: "3 fotos en espera — sin conexión"; undefined when none wait.
    QVariant notice() const;
    // Why photos wait, in the words of that line: "sin conexión", "enviando"...
    QString reasonText() const;
    // The photos a refusal that will not change ended, by name; undefined when none.
    QVariant refusedNotice() const;

    // From the ledger.
    void photoHandedOver(qint64 photo, qint64 folderId, const QUrl &fileURL);
    void fileTaken(qint64 photo, const std::optional<FileStamp> &taken);
    void serviceAnswered();
    void photoDelivered(qint64 photo);
    void attemptFailed(qint64 photo, const AttemptFailure &failure);

Q_SIGNALS:
    void changed();
    // The service no longer takes the token: deliveries wait for a new sign-in.
    void signInRequired();

private:
    struct OwedPhoto {
        qint64 folderId = 0;
        QUrl fileURL;
        bool inFlight = false;
        bool waiting = false; // an attempt failed, or an earlier run left it owed
        int signInEpoch = 0;  // which sign-in its latest attempt went out under
    };

    UploadManager *managerFor(qint64 folderId);
    void retryNow();
    void scheduleRetry();
    void startProbing();
    void probe();
    void probeAnswered(bool answered);
    void watchForStalls();
    void setReason(Reason reason);
    // The photo's file changed after an attempt took it and is quiet again: another attempt.
    void takeAgain(qint64 photo);

    std::shared_ptr<DeliveryJournal> m_journal;
    std::shared_ptr<JournalLedger> m_ledger;
    APIClient &m_api;
    ConnectivityWatch *m_connectivity;
    SettleWatch *m_settling;
    std::map<qint64, OwedPhoto> m_owed;
    std::map<qint64, QString> m_refused; // by photo, its file name
    // How each photo's file was when an attempt last took it, for the settle watch.
    std::map<qint64, std::optional<FileStamp>> m_taken;
    QPointer<UploadManager> m_current;
    qint64 m_currentFolderId = 0;
    // Managers of earlier sessions that still owe photos; their counters are nobody's.
    std::map<qint64, std::unique_ptr<UploadManager>> m_earlier;
    RetrySchedule m_schedule;
    QTimer m_retry;
    QTimer m_probeTimer;
    QTimer m_stallCheck;
    bool m_probing = false;
    bool m_unreachable = false;
    int m_signInEpoch = 0;
    Reason m_reason = Reason::none;
};
