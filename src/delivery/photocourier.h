// SPDX-License-Identifier: MIT
#pragma once

#include "attemptfailure.h"
#include "filestamp.h"
#include "photoattempt.h"

#include <QCoroTask>
#include <QPointer>

#include <memory>
#include <optional>

class DeliveryJournal;
class ServiceReachability;
class Shots;
class UploadManager;
struct UploadLanes;

// Carries one photo through one part of an attempt, its preview's or its original's: runs it in
// the upload lanes, writes every step down before the attempt goes on to its next request,
// counts the steps into the session on screen when the photo is one of its own, and returns how
// the part ended. A preview that another file of the photo's shot made first is not sent: the
// part stops where it was made. What it holds
// it holds strongly or weakly as its caller may go away while it runs: the journal and the lanes
// stay until it ends, the counters and the reachability watch are told only while they live.
class PhotoCourier {
public:
    struct Outcome {
        bool delivered = false;
        // Another file of the shot made its preview first: this one's goes no further.
        bool superseded = false;
        std::optional<AttemptFailure> failure;
        // The file as the attempt last took it: looked at again later, in case it was still
        // being written.
        std::optional<FileStamp> taken;
        // Where the photo's delivery stands now, for the next attempt.
        PhotoProgress progress;
    };

    struct Route {
        std::shared_ptr<DeliveryJournal> journal;
        std::shared_ptr<UploadLanes> lanes;
        QPointer<UploadManager> counters;
        QPointer<ServiceReachability> reachability;
        QPointer<Shots> shots;
    };
    enum class Part { preview, original };

    // `photo` is the journal's number for it; below 1 when the journal could not write it down,
    // and the attempt then goes on unwritten.
    static QCoro::Task<Outcome> carry(Route route, qint64 photo, PhotoAttempt::Photo attempt,
                                      Part part);

private:
    static void writeDown(DeliveryJournal &journal, qint64 photo, const AttemptStep &step);
};
