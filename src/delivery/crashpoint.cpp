// SPDX-License-Identifier: MIT
#include "crashpoint.h"

#include "journaldatabase.h"

#include <csignal>
#include <cstdlib>

namespace {

#if QUILLMERE_TEST_SWITCHES
void dieIfAsked(const QString &when, CrashPoint::Step step, JournalDatabase &journal)
{
    static const QString asked = qEnvironmentVariable("QUILLMERE_TEST_CRASH_AT");
    if (asked.isEmpty() || asked != when + QLatin1Char(':') + CrashPoint::name(step))
        return;
    journal.waitForWrites();
#ifdef SIGKILL
    std::raise(SIGKILL);
#endif
    std::_Exit(137); // where there is no SIGKILL: gone just as abruptly
}
#endif

} // namespace

QString CrashPoint::name(Step step)
{
    switch (step) {
    case Step::handedOver:
        return QStringLiteral("handedOver");
    case Step::previewPresigned:
        return QStringLiteral("previewPresigned");
    case Step::previewStored:
        return QStringLiteral("previewStored");
    case Step::registrationSent:
        return QStringLiteral("registrationSent");
    case Step::previewRegistered:
        return QStringLiteral("previewRegistered");
    case Step::originalPresigned:
        return QStringLiteral("originalPresigned");
    case Step::originalStored:
        break;
    }
    return QStringLiteral("originalStored");
}

void CrashPoint::before([[maybe_unused]] Step step, [[maybe_unused]] JournalDatabase &journal)
{
#if QUILLMERE_TEST_SWITCHES
    dieIfAsked(QStringLiteral("before"), step, journal);
#endif
}

void CrashPoint::after([[maybe_unused]] Step step, [[maybe_unused]] JournalDatabase &journal)
{
#if QUILLMERE_TEST_SWITCHES
    dieIfAsked(QStringLiteral("after"), step, journal);
#endif
}
