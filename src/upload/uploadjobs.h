// SPDX-License-Identifier: MIT
#pragma once

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
    // One attempt at an original: read, authorise, store.
    static QCoro::Task<Attempt> tryUploadOriginal(UploadJobContext context);
    // The permit goes back in a task of its own, after the job has finished its turn.
    static void scheduleSignal(std::shared_ptr<AsyncSemaphore> semaphore);
};
