// SPDX-License-Identifier: MIT
#pragma once

#include "attemptfailure.h"

#include <QObject>
#include <QString>
#include <QVariant>

#include <map>
#include <optional>

// What the photographer reads about delivery, in the words of the screens: why photos wait, which
// photos a refusal ended, and whether the journal that keeps them can be written. Main thread
// only.
class DeliveryStatus : public QObject {
    Q_OBJECT
public:
    // Why photos wait, as the photographer is told.
    enum class Reason {
        none,
        sending,
        offline,
        serviceTrouble,
        signInNeeded,
        storageRefuses, // the object store refuses the uploads, and says it is not for time
        networkSignIn,  // the network holds every connection until a sign-in in the browser
    };
    Q_ENUM(Reason)

    using QObject::QObject;

    Reason reason() const { return m_reason; }
    void setReason(Reason reason);
    bool waitsForSignIn() const { return m_reason == Reason::signInNeeded; }

    // What happened, and the reason it makes: the service no longer takes the token (true the
    // first time it is said); the network is gone, or held behind a sign-in page; the service
    // answered a request; a probe was answered after none was; a sign-in went through; nothing
    // waits any more.
    bool signInNeeded();
    void wentOffline(bool behindSignInPage);
    // An attempt failed in a way that passes: why, as far as it can be told.
    void attemptFailed(const AttemptFailure &failure, bool behindSignInPage);
    // The platform says the network holds every connection behind a sign-in page, or no more.
    void behindSignInPage(bool behind, bool anyWaiting);
    void serviceAnswered();
    void reachedAgain();
    void signedIn(bool anyWaiting);
    void caughtUp();
    // Whether, for this reason, a photo under way waits as much as one whose attempt failed.
    bool everyOwedPhotoWaits() const;
    // Why photos wait, in the words of the notice: "sin conexión", "enviando"...
    QString reasonText() const { return reasonText(m_reason); }
    static QString reasonText(Reason reason);
    // Whether, for this reason, photos are held back rather than on their way.
    static bool isTrouble(Reason reason)
    {
        return reason != Reason::none && reason != Reason::sending;
    }
    // "3 fotos en espera — sin conexión"; undefined when none wait.
    QVariant notice(int waiting) const;

    // A refusal that will not change ended the photo; `sessionGone` when the service no longer
    // knows its session.
    void addRefused(qint64 photo, const QString &fileName, bool sessionGone);
    void removeRefused(qint64 photo);
    int refusedCount() const { return int(m_refused.size()); }
    // "No se pudo enviar: A.JPG, B.JPG y 2 más", preceded by what became of the session when
    // the service no longer knows it; undefined when nothing was refused.
    QVariant refusedNotice() const;

    // What quitting with `unfinished` photos owed would leave undelivered, as the question put
    // before quitting; undefined when nothing would be.
    static QVariant quitWarning(int unfinished);

    // The journal could not be opened, or a write could not be made: none when all is well.
    void setJournalProblem(std::optional<QString> problem);
    QVariant journalNotice() const;

Q_SIGNALS:
    void changed();

private:
    struct Refused {
        QString fileName;
        bool sessionGone = false;
    };

    Reason m_reason = Reason::none;
    std::map<qint64, Refused> m_refused;
    std::optional<QString> m_journalProblem;
};
