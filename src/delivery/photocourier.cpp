// SPDX-License-Identifier: MIT
#include "photocourier.h"

#include "crashpoint.h"
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
        journal.setPreviewMade(photo, step.taken);
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
    case AttemptStep::Kind::originalRead:
        journal.setOriginalRead(photo, step.taken);
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
    Outcome outcome;
    outcome.progress = attempt.progress;
    QCoro::AsyncGenerator<AttemptStep> steps =
        part == Part::preview ? PhotoAttempt::sendPreview(route.lanes, std::move(attempt))
                              : PhotoAttempt::sendOriginal(route.lanes, std::move(attempt));
    auto step = co_await steps.begin();
    for (; step != steps.end(); co_await ++step) {
        const AttemptStep &taken = *step;
        // The first file of the shot to have its preview made gives the shot's preview; the
        // attempt of any other stops here, before its preview is authorised or stored (the
        // attempt, suspended where it handed this step over, is let go with its permits).
        Shots *shots = route.shots.data();
        if (taken.kind == AttemptStep::Kind::previewMade && taken.made && shots &&
            !shots->claim(photo)) {
            writeDown(*route.journal, photo, taken);
            outcome.superseded = true;
            break;
        }
        const std::optional<CrashPoint::Step> crash = crashStep(taken.kind);
        if (crash)
            CrashPoint::before(*crash);
        writeDown(*route.journal, photo, taken);
        if (crash)
            CrashPoint::after(*crash);

        taken.applyTo(outcome.progress);
        if (taken.taken)
            outcome.taken = taken.taken;
        if (route.counters)
            route.counters->count(taken);
        if (route.reachability && serviceAnswered(taken.kind))
            route.reachability->answered();
        if (taken.kind == AttemptStep::Kind::originalStored)
            outcome.delivered = true;
        else if (taken.kind == AttemptStep::Kind::failed)
            outcome.failure = taken.failure;
    }
    co_return outcome;
}
