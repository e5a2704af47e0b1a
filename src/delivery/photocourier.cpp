// SPDX-License-Identifier: MIT
#include "photocourier.h"

#include "crashpoint.h"
#include "deliverylog.h"
#include "deliveryjournal.h"
#include "servicereachability.h"
#include "shots.h"
#include "uploadlanes.h"
#include "uploadmanager.h"

namespace {

// The steps the journal writes down that a crash may fall right before or right after.
std::optional<CrashPoint::Step> crashStep(AttemptStep::Kind kind)
{
    switch (kind) {
    case AttemptStep::Kind::previewPresigned:
        return CrashPoint::Step::previewPresigned;
    case AttemptStep::Kind::previewStored:
        return CrashPoint::Step::previewStored;
    case AttemptStep::Kind::registrationSending:
        return CrashPoint::Step::registrationSent;
    case AttemptStep::Kind::previewRegistered:
        return CrashPoint::Step::previewRegistered;
    case AttemptStep::Kind::originalPresigned:
        return CrashPoint::Step::originalPresigned;
    case AttemptStep::Kind::originalStored:
        return CrashPoint::Step::originalStored;
    case AttemptStep::Kind::previewMade:
    case AttemptStep::Kind::originalRead:
    case AttemptStep::Kind::failed:
        break;
    }
    return std::nullopt;
}

// The steps the attempt must not go past before they, and everything written before them, are
// on disk: the photo's hand-over before its first request, the registration before it is sent,
// the original's permission before its upload. The preview's permission is not waited for: it
// goes to disk with the registration, and at worst a preview stored just before a power cut is
// stored again under another key, still registered once.
bool mustBeOnDiskToGoOn(const AttemptStep &step)
{
    return step.kind == AttemptStep::Kind::previewMade ||
           step.kind == AttemptStep::Kind::registrationSending ||
           step.kind == AttemptStep::Kind::originalPresigned;
}

const char *stepName(AttemptStep::Kind kind)
{
    switch (kind) {
    case AttemptStep::Kind::previewMade:
        return "preview made";
    case AttemptStep::Kind::previewPresigned:
        return "preview authorised";
    case AttemptStep::Kind::previewStored:
        return "preview stored";
    case AttemptStep::Kind::registrationSending:
        return "registration sent";
    case AttemptStep::Kind::previewRegistered:
        return "preview registered";
    case AttemptStep::Kind::originalRead:
        return "original read";
    case AttemptStep::Kind::originalPresigned:
        return "original authorised";
    case AttemptStep::Kind::originalStored:
        return "original stored";
    case AttemptStep::Kind::failed:
        break;
    }
    return "failed";
}

bool serviceAnswered(AttemptStep::Kind kind)
{
    return kind == AttemptStep::Kind::previewStored ||
           kind == AttemptStep::Kind::previewRegistered ||
           kind == AttemptStep::Kind::originalStored;
}

} // namespace

void PhotoCourier::writeDown(DeliveryJournal &journal, qint64 photo, const AttemptStep &step)
{
    switch (step.kind) {
    case AttemptStep::Kind::previewMade:
    case AttemptStep::Kind::originalRead:
        // How the file was when an attempt took it matters for a while after the attempt, in
        // this run only: it is kept with the attempt's outcome, not written down.
        break;
    case AttemptStep::Kind::previewPresigned:
        journal.setPreviewPresign(photo, step.presign);
        break;
    case AttemptStep::Kind::previewStored:
        journal.setPreviewStored(photo, *step.preview);
        break;
    case AttemptStep::Kind::registrationSending:
        journal.setRegistrationSent(photo);
        break;
    case AttemptStep::Kind::previewRegistered:
        journal.setPreviewRegistered(photo);
        break;
    case AttemptStep::Kind::originalPresigned:
        journal.setOriginalPresign(photo, step.presign);
        break;
    case AttemptStep::Kind::originalStored:
        journal.setOriginalStored(photo);
        break;
    case AttemptStep::Kind::failed:
        if (!step.failure)
            break;
        // A permission the store refused is not offered to it again.
        if (step.failure->permissionRefused) {
            if (step.part == AttemptStep::Part::preview)
                journal.setPreviewPresign(photo, std::nullopt);
            else
                journal.setOriginalPresign(photo, std::nullopt);
        }
        if (!step.failure->passes())
            journal.setRefused(photo, step.failure->description);
        break;
    }
}

QCoro::Task<PhotoCourier::Outcome> PhotoCourier::carry(Route route, qint64 photo,
                                                        PhotoAttempt::Photo attempt, Part part)
{
    const QString attemptedName = attempt.fileURL.fileName();
    Outcome outcome;
    outcome.progress = attempt.progress;
    std::optional<AttemptStep> last;
    QCoro::AsyncGenerator<AttemptStep> steps =
        part == Part::preview ? PhotoAttempt::sendPreview(route.lanes, std::move(attempt))
                              : PhotoAttempt::sendOriginal(route.lanes, std::move(attempt));
    auto step = co_await steps.begin();
    for (; step != steps.end(); co_await ++step) {
        const AttemptStep &taken = *step;
        qCDebug(deliveryLog, "photo %lld %s: %s%s%s", photo, qPrintable(attemptedName),
                stepName(taken.kind), taken.failure ? ": " : "",
                taken.failure ? qPrintable(taken.failure->description) : "");
        // The first file of the shot to have its preview made gives the shot's preview; the
        // attempt of any other stops here, before its preview is authorised or stored (the
        // attempt, suspended where it handed this step over, is let go with its permits).
        Shots *shots = route.shots.data();
        if (taken.kind == AttemptStep::Kind::previewMade && taken.made && shots &&
            !shots->claim(photo)) {
            qCDebug(deliveryLog, "photo %lld: another file of its shot gives the preview", photo);
            outcome.superseded = true;
            break;
        }
        const std::optional<CrashPoint::Step> crash = crashStep(taken.kind);
        JournalDatabase &database = route.journal->database();
        if (crash)
            CrashPoint::before(*crash, database);
        writeDown(*route.journal, photo, taken);
        if (crash)
            CrashPoint::after(*crash, database);
        if (mustBeOnDiskToGoOn(taken))
            co_await database.durable();

        taken.applyTo(outcome.progress);
        if (taken.taken)
            outcome.taken = taken.taken;
        if (route.reachability && serviceAnswered(taken.kind))
            route.reachability->answered();
        if (taken.kind == AttemptStep::Kind::previewRegistered ||
            taken.kind == AttemptStep::Kind::originalStored ||
            taken.kind == AttemptStep::Kind::failed)
            last = taken;
    }
    // The part's last step (its preview registered, its original stored, a failure) is what the
    // photographer is told of: once it is on disk. The attempt has ended by then and let go of
    // its lane, so the disk is not waited for with a permit held; nobody hurries the commit
    // either, which rides along with the next one somebody waits for.
    if (last) {
        co_await route.journal->database().durable(JournalDatabase::Urgency::whenConvenient);
        if (route.counters)
            route.counters->count(*last);
        if (last->kind == AttemptStep::Kind::originalStored)
            outcome.delivered = true;
        else if (last->kind == AttemptStep::Kind::failed)
            outcome.failure = last->failure;
    }
    co_return outcome;
}
