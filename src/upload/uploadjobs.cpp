// SPDX-License-Identifier: MIT
#include "uploadjobs.h"

#include "apiclient.h"
#include "apierror.h"
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

void UploadJobs::reportFailure(const UploadJobContext &context, const AttemptFailure &failure)
{
    if (context.ledger)
        context.ledger->attemptFailed(context.delivery.photo, failure);
}

QCoro::Task<std::optional<StoredPreview>> UploadJobs::storePreview(UploadJobContext context)
{
    // Each awaited operation is made in a statement of its own: GCC 12 mishandles the
    // lifetime of non-trivial temporaries inside a co_await expression.
    const std::optional<FileStamp> taken = FileStamp::of(context.fileURL.toLocalFile());
    QCoro::Task<std::optional<QByteArray>> making = context.previews->make(context.fileURL);
    const std::optional<QByteArray> preview = co_await making;
    if (context.ledger)
        context.ledger->previewMade(context.delivery.photo, taken);
    if (!preview)
        co_return std::nullopt;

    const QString contentType = QStringLiteral("image/jpeg");
    QCoro::Task<PresignResponse> authorising = context.api->presign(
        context.folderId, context.previewName, contentType, QNetworkRequest::HighPriority);
    const PresignResponse presign = co_await authorising;
    QCoro::Task<QString> storing =
        context.api->uploadToStorage(presign, *preview, QNetworkRequest::HighPriority);
    const QString url = co_await storing;
    co_return StoredPreview{url, presign.key, presign.bucket};
}

QCoro::Task<> UploadJobs::registerPreview(UploadJobContext context, StoredPreview preview)
{
    try {
        QCoro::Task<> registering =
            context.api->registerAttachment(context.folderId, preview.url, preview.key,
                                            preview.bucket, QNetworkRequest::HighPriority);
        co_await registering;
    } catch (const APIError &error) {
        // The one request that cannot be told apart from its lost reply: when an earlier copy
        // went out and its answer never came, a service that knows the key refuses the repeat.
        // That refusal says the preview is registered; anything that passes is still a failure.
        if (!context.delivery.registrationSent || AttemptFailure::of(error).passes())
            throw;
    }
}

QCoro::Task<> UploadJobs::runPreviewJob(UploadJobContext context)
{
    co_await context.previewSemaphore->wait();
    // From its making to its registration the preview has the uplink: the originals' bytes
    // still queued in front of it drain while it is made and authorised, and none join them.
    UplinkGate::Hold uplink = context.api->holdUplink();

    std::optional<AttemptFailure> failure;
    std::optional<StoredPreview> stored = context.delivery.storedPreview;
    try {
        if (!stored) {
            QCoro::Task<std::optional<StoredPreview>> storing = storePreview(context);
            stored = co_await storing;
            if (!stored) {
                if (context.manager)
                    context.manager->setError(QStringLiteral("No se pudo procesar ") +
                                              context.fileName);
                reportFailure(context, {AttemptFailure::Kind::undecodable, context.fileName});
                scheduleSignal(context.previewSemaphore);
                co_return;
            }
            if (context.ledger)
                context.ledger->previewStored(context.delivery.photo, *stored);
        }
        if (context.ledger)
            context.ledger->registrationSent(context.delivery.photo);
        QCoro::Task<> registering = registerPreview(context, *stored);
        co_await registering;
    } catch (const std::exception &error) {
        failure = AttemptFailure::of(error);
    }

    uplink.release();
    if (failure) {
        if (context.manager)
            context.manager->setError(QStringLiteral("Error: ") + failure->description);
        reportFailure(context, *failure);
    } else {
        if (context.manager)
            context.manager->recordPreviewUploaded();
        if (context.ledger)
            context.ledger->previewRegistered(context.delivery.photo);
        runOriginalJob(context);
    }
    scheduleSignal(context.previewSemaphore);
}

QCoro::Task<UploadJobs::OriginalAttempt> UploadJobs::tryUploadOriginal(UploadJobContext context)
{
    // An original gives way to previews still waiting to be decoded: reading, sending and
    // storing it takes processor time the previews need when photos come in faster than the
    // machine can take them.
    QCoro::Task<> givingWay = context.previews->caughtUp();
    co_await givingWay;
    // Taken before the bytes: a file that changes while it is read no longer matches it.
    if (context.ledger)
        context.ledger->originalRead(context.delivery.photo,
                                     FileStamp::of(context.fileURL.toLocalFile()));
    QFuture<std::optional<QByteArray>> reading =
        QtConcurrent::task([path = context.fileURL.toLocalFile()] { return readWholeFile(path); })
            .onThreadPool(*QThreadPool::globalInstance())
            .withPriority(originalPoolPriority)
            .spawn();
    std::optional<QByteArray> bytes = co_await reading;
    if (!bytes)
        co_return OriginalAttempt{Attempt::unreadable,
                                  {AttemptFailure::Kind::unreadable, context.fileName}};
    const QString contentType = QStringLiteral("image/jpeg");
    try {
        std::optional<PresignResponse> presign = context.delivery.originalPresign;
        if (!presign) {
            QCoro::Task<PresignResponse> authorising = context.api->presign(
                context.folderId, context.fileName, contentType, QNetworkRequest::LowPriority);
            presign = co_await authorising;
            if (context.ledger)
                context.ledger->originalPresigned(context.delivery.photo, *presign);
        }
        QCoro::Task<QString> storing =
            context.api->uploadToStorage(*presign, std::move(*bytes), QNetworkRequest::LowPriority);
        co_await storing;
    } catch (const std::exception &error) {
        // An original's failure is never shown: its preview is already with the client.
        co_return OriginalAttempt{Attempt::failed, AttemptFailure::of(error)};
    }
    co_return OriginalAttempt{Attempt::stored, {}};
}

QCoro::Task<> UploadJobs::runOriginalJob(UploadJobContext context)
{
    co_await context.fullResSemaphore->wait();

    QCoro::Task<OriginalAttempt> firstAttempt = tryUploadOriginal(context);
    OriginalAttempt attempt = co_await firstAttempt;
    // A file that cannot be read ends the job at once: waiting would not make it readable, and
    // the lane is not held up for it.
    if (attempt.outcome == Attempt::failed) {
        // The permit is held through the pause on purpose: the whole lane waits, so a store that
        // is failing is not hammered by the originals queued behind this one.
        // A precise timer: a coarse one may end the pause a few percent early.
        QTimer pause;
        pause.setTimerType(Qt::PreciseTimer);
        pause.setSingleShot(true);
        pause.start(originalRetryDelay);
        co_await &pause;
        // The second try asks for a permission of its own: the old one may be what was refused.
        context.delivery.originalPresign.reset();
        QCoro::Task<OriginalAttempt> secondAttempt = tryUploadOriginal(context);
        attempt = co_await secondAttempt;
    }
    if (attempt.outcome == Attempt::stored) {
        // A file sent again because it changed after it was stored is one original still.
        if (context.manager && !context.delivery.originalResend)
            context.manager->recordOriginalUploaded();
        if (context.ledger)
            context.ledger->originalStored(context.delivery.photo);
    } else {
        reportFailure(context, attempt.failure);
    }
    scheduleSignal(context.fullResSemaphore);
}
