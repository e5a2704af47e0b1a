// SPDX-License-Identifier: MIT
#include "uploadjobs.h"

#include "apiclient.h"
#include "asyncsemaphore.h"
#include "previewmaker.h"
#include "requestfailure.h"
#include "uploadmanager.h"

#include <QCoreApplication>
#include <QCoroFuture>
#include <QCoroTimer>
#include <QFile>
#include <QThreadPool>
#include <QTimer>
#include <QtConcurrent/qtconcurrenttask.h>

#include <optional>

namespace {

std::optional<QByteArray> readWholeFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    return bytes;
}

} // namespace

void UploadJobs::scheduleSignal(std::shared_ptr<AsyncSemaphore> semaphore)
{
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [semaphore] { semaphore->signal(); },
        Qt::QueuedConnection);
}

QCoro::Task<> UploadJobs::runPreviewJob(UploadJobContext context)
{
    co_await context.previewSemaphore->wait();

    // Each awaited operation is made in a statement of its own: GCC 12 mishandles the
    // lifetime of non-trivial temporaries inside a co_await expression.
    QCoro::Task<std::optional<QByteArray>> making = context.previews->make(context.fileURL);
    const std::optional<QByteArray> preview = co_await making;

    if (!preview) {
        if (context.manager)
            context.manager->setError(QStringLiteral("No se pudo procesar ") + context.fileName);
        scheduleSignal(context.previewSemaphore);
        co_return;
    }

    const QString contentType = QStringLiteral("image/jpeg");
    std::optional<QString> failure;
    try {
        QCoro::Task<PresignResponse> authorising = context.api->presign(
            context.folderId, context.previewName, contentType, QNetworkRequest::HighPriority);
        const PresignResponse presign = co_await authorising;
        QCoro::Task<QString> storing =
            context.api->uploadToStorage(presign, *preview, QNetworkRequest::HighPriority);
        const QString url = co_await storing;
        QCoro::Task<> registering = context.api->registerAttachment(
            context.folderId, url, presign.key, presign.bucket, QNetworkRequest::HighPriority);
        co_await registering;
    } catch (const RequestFailure &error) {
        failure = error.localizedDescription();
    } catch (const std::exception &error) {
        failure = QString::fromUtf8(error.what());
    }

    if (failure) {
        if (context.manager)
            context.manager->setError(QStringLiteral("Error: ") + *failure);
    } else {
        if (context.manager)
            context.manager->recordPreviewUploaded();
        runOriginalJob(context);
    }
    scheduleSignal(context.previewSemaphore);
}

QCoro::Task<UploadJobs::Attempt> UploadJobs::tryUploadOriginal(UploadJobContext context)
{
    // An original gives way to previews still waiting to be decoded: reading, sending and
    // storing it takes processor time the previews need when photos come in faster than the
    // machine can take them.
    QCoro::Task<> givingWay = context.previews->caughtUp();
    co_await givingWay;
    QFuture<std::optional<QByteArray>> reading =
        QtConcurrent::task([path = context.fileURL.toLocalFile()] { return readWholeFile(path); })
            .onThreadPool(*QThreadPool::globalInstance())
            .withPriority(originalPoolPriority)
            .spawn();
    std::optional<QByteArray> bytes = co_await reading;
    if (!bytes)
        co_return Attempt::unreadable;
    const QString contentType = QStringLiteral("image/jpeg");
    try {
        QCoro::Task<PresignResponse> authorising = context.api->presign(
            context.folderId, context.fileName, contentType, QNetworkRequest::LowPriority);
        const PresignResponse presign = co_await authorising;
        QCoro::Task<QString> storing =
            context.api->uploadToStorage(presign, std::move(*bytes), QNetworkRequest::LowPriority);
        co_await storing;
    } catch (const std::exception &) {
        // An original's failure is never shown: its preview is already with the client.
        co_return Attempt::failed;
    }
    co_return Attempt::stored;
}

QCoro::Task<> UploadJobs::runOriginalJob(UploadJobContext context)
{
    co_await context.fullResSemaphore->wait();

    QCoro::Task<Attempt> firstAttempt = tryUploadOriginal(context);
    Attempt attempt = co_await firstAttempt;
    // A file that cannot be read ends the job at once: waiting would not make it readable, and
    // the lane is not held up for it.
    if (attempt == Attempt::failed) {
        // The permit is held through the pause on purpose: the whole lane waits, so a store that
        // is failing is not hammered by the originals queued behind this one.
        // A precise timer: a coarse one may end the pause a few percent early.
        QTimer pause;
        pause.setTimerType(Qt::PreciseTimer);
        pause.setSingleShot(true);
        pause.start(originalRetryDelay);
        co_await &pause;
        QCoro::Task<Attempt> secondAttempt = tryUploadOriginal(context);
        attempt = co_await secondAttempt;
    }
    if (attempt == Attempt::stored && context.manager)
        context.manager->recordOriginalUploaded();
    scheduleSignal(context.fullResSemaphore);
}
