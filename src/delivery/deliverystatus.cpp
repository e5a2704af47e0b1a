// SPDX-License-Identifier: MIT
#include "deliverystatus.h"

#include <QStringList>

#include <algorithm>

namespace {
constexpr int namesListed = 3;
} // namespace

void DeliveryStatus::setReason(Reason reason)
{
    if (m_reason == reason)
        return;
    m_reason = reason;
    Q_EMIT changed();
}

bool DeliveryStatus::signInNeeded()
{
    if (m_reason == Reason::signInNeeded)
        return false;
    setReason(Reason::signInNeeded);
    return true;
}

void DeliveryStatus::wentOffline(bool behindSignInPage)
{
    if (m_reason == Reason::signInNeeded || m_reason == Reason::networkSignIn)
        return;
    // Behind a sign-in page nothing gets through either, and the page is the way out.
    setReason(behindSignInPage ? Reason::networkSignIn : Reason::offline);
}

void DeliveryStatus::attemptFailed(const AttemptFailure &failure, bool behindSignInPage)
{
    // A sign-in page in the way explains every other failure.
    if (failure.cause == AttemptFailure::Cause::networkSignIn || behindSignInPage)
        setReason(Reason::networkSignIn);
    // The store answered: whatever was thought of the network, it is there.
    else if (failure.cause == AttemptFailure::Cause::storageRefuses)
        setReason(Reason::storageRefuses);
    // What was learnt of why stands until the service is seen answering again.
    else if (m_reason != Reason::offline && m_reason != Reason::storageRefuses &&
             m_reason != Reason::networkSignIn)
        setReason(Reason::serviceTrouble);
}

void DeliveryStatus::behindSignInPage(bool behind, bool anyWaiting)
{
    if (behind && m_reason != Reason::signInNeeded && anyWaiting)
        setReason(Reason::networkSignIn);
    else if (!behind && m_reason == Reason::networkSignIn)
        setReason(Reason::sending);
}

void DeliveryStatus::serviceAnswered()
{
    // Whatever held the photos back, the service is reached again.
    if (isTrouble(m_reason) && m_reason != Reason::signInNeeded)
        setReason(Reason::sending);
}

void DeliveryStatus::reachedAgain()
{
    if (m_reason == Reason::offline)
        setReason(Reason::sending);
}

void DeliveryStatus::signedIn(bool anyWaiting)
{
    if (m_reason == Reason::signInNeeded)
        setReason(anyWaiting ? Reason::sending : Reason::none);
}

void DeliveryStatus::caughtUp()
{
    if (m_reason == Reason::sending)
        setReason(Reason::none);
}

bool DeliveryStatus::everyOwedPhotoWaits() const
{
    return m_reason == Reason::offline || m_reason == Reason::serviceTrouble ||
           m_reason == Reason::signInNeeded || m_reason == Reason::storageRefuses ||
           m_reason == Reason::networkSignIn;
}

QString DeliveryStatus::reasonText(Reason reason)
{
    switch (reason) {
    case Reason::offline:
        return QStringLiteral("sin conexión");
    case Reason::serviceTrouble:
        return QStringLiteral("el servicio no responde");
    case Reason::signInNeeded:
        return QStringLiteral("inicia sesión de nuevo");
    case Reason::storageRefuses:
        return QStringLiteral("el almacenamiento rechaza las fotos");
    case Reason::networkSignIn:
        return QStringLiteral("la red pide iniciar sesión en el navegador");
    case Reason::none:
    case Reason::sending:
        break;
    }
    return QStringLiteral("enviando");
}

QVariant DeliveryStatus::notice(int waiting) const
{
    if (waiting == 0)
        return {};
    const QString count = waiting == 1 ? QStringLiteral("1 foto en espera")
                                       : QStringLiteral("%1 fotos en espera").arg(waiting);
    return count + QStringLiteral(" — ") + reasonText();
}

void DeliveryStatus::addRefused(qint64 photo, const QString &fileName, bool sessionGone)
{
    m_refused[photo] = Refused{fileName, sessionGone};
    Q_EMIT changed();
}

void DeliveryStatus::removeRefused(qint64 photo)
{
    if (m_refused.erase(photo))
        Q_EMIT changed();
}

QVariant DeliveryStatus::refusedNotice() const
{
    if (m_refused.empty())
        return {};
    QStringList listed;
    for (const auto &[photo, refused] : m_refused)
        listed << refused.fileName;
    QString names = listed.mid(0, namesListed).join(QStringLiteral(", "));
    if (listed.size() > namesListed)
        names += QStringLiteral(" y %1 más").arg(listed.size() - namesListed);
    const bool sessionGone =
        std::any_of(m_refused.cbegin(), m_refused.cend(),
                    [](const auto &entry) { return entry.second.sessionGone; });
    const QString why = sessionGone ? QStringLiteral("La sesión ya no existe en el servicio. ")
                                    : QString();
    return why + QStringLiteral("No se pudo enviar: ") + names;
}

QVariant DeliveryStatus::quitWarning(int unfinished)
{
    if (unfinished == 0)
        return {};
    if (unfinished == 1)
        return QStringLiteral("Queda 1 foto por enviar. Se enviará la próxima vez que abras "
                              "Quillmere Live.");
    return QStringLiteral("Quedan %1 fotos por enviar. Se enviarán la próxima vez que abras "
                          "Quillmere Live.")
        .arg(unfinished);
}

void DeliveryStatus::setJournalProblem(std::optional<QString> problem)
{
    if (m_journalProblem == problem)
        return;
    m_journalProblem = std::move(problem);
    Q_EMIT changed();
}

QVariant DeliveryStatus::journalNotice() const
{
    if (!m_journalProblem)
        return {};
    return QStringLiteral("No se puede guardar el registro de envíos (") + *m_journalProblem +
           QStringLiteral("). Las fotos se siguen enviando, pero no se retomarán si Quillmere "
                          "Live se cierra.");
}
