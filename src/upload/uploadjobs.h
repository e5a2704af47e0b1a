// SPDX-License-Identifier: MIT
#pragma once

#include "deliveryledger.h"

#include <QCoroTask>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <chrono>
#include <memory>

class APIClient;
class AsyncSemaphore;
class PreviewMaker;
class UploadManager;

// What one photo's jobs carry with them. Everything is captured by value except the manager,
// which is held weakly: the jobs outlive it when the session is reset mid-upload.
struct UploadJobContext {
    QUrl fileURL;
    QString fileName;
    QString previewName;
    qint64 folderId = 0;
    APIClient *api = nullptr;
    std::shared_ptr<AsyncSemaphore> previewSemaphore;
    std::shared_ptr<AsyncSemaphore> fullResSemaphore;
    std::shared_ptr<PreviewMaker> previews;
    QPointer<UploadManager> manager;
    // The layer above the attempts, told of every step; none for a manager without one.
    std::shared_ptr<DeliveryLedger> ledger;
    // Where the photo's delivery stands: a first attempt starts from nothing.
    PhotoDelivery delivery;
};

// The two background jobs of one photo. Each is a coroutine on the main thread that hands its
// CPU and disk work to the thread pool, so the main thread never blocks.
class UploadJobs {
public:
    static constexpr std::chrono::seconds originalRetryDelay{5};
    // Previews are what the client is waiting for: their decoding runs ahead of original reads.
    static constexpr int previewPoolPriority = 1;
    static constexpr int originalPoolPriority = 0;

    static QCoro::Task<> runPreviewJob(UploadJobContext context);
    static QCoro::Task<> runOriginalJob(UploadJobContext context);

private:
    enum class Attempt { stored, unreadable, failed };
    struct OriginalAttempt {
        Attempt outcome = Attempt::failed;
        AttemptFailure failure; // why, when not stored
    };
    // One attempt at an original: read, authorise, store.
    static QCoro::Task<OriginalAttempt> tryUploadOriginal(UploadJobContext context);
    // Makes the preview, authorises and stores it; throws what the service calls throw.
    static QCoro::Task<std::optional<StoredPreview>> storePreview(UploadJobContext context);
    // Registers the stored preview; throws unless the service holds it afterwards.
    static QCoro::Task<> registerPreview(UploadJobContext context, StoredPreview preview);
    static void reportFailure(const UploadJobContext &context, const AttemptFailure &failure);
    // The permit goes back in a task of its own, after the job has finished its turn.
    static void scheduleSignal(std::shared_ptr<AsyncSemaphore> semaphore);
};
