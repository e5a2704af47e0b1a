// SPDX-License-Identifier: MIT
#include "uploadjobs.h"

#include "apiclient.h"
#include "asyncsemaphore.h"
#include "imageresizer.h"
#include "requestfailure.h"
#include "uploadmanager.h"

#include <QCoreApplication>
#include <QCoroFuture>
#include <QCoroTimer>
#include <QFile>
#include <QThreadPool>
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

    const std::optional<QByteArray> preview =
        co_await QtConcurrent::task([url = context.fileURL] { return ImageResizer::createPreview(url); })
            .onThreadPool(*QThreadPool::globalInstance())
            .withPriority(previewPoolPriority)
            .spawn();

    if (!preview) {
        if (context.manager)
            context.manager->setError(QStringLiteral("No se pudo procesar ") + context.fileName);
        scheduleSignal(context.previewSemaphore);
        co_return;
    }

    std::optional<QString> failure;
    try {
        const PresignResponse presign = co_await context.api->presign(
            context.folderId, context.previewName, QStringLiteral("image/jpeg"),
            QNetworkRequest::HighPriority);
        const QString url =
            co_await context.api->uploadToStorage(presign, *preview, QNetworkRequest::HighPriority);
        co_await context.api->registerAttachment(context.folderId, url, presign.key,
                                                 presign.bucket, QNetworkRequest::HighPriority);
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

QCoro::Task<bool> UploadJobs::tryUploadOriginal(UploadJobContext context)
{
    std::optional<QByteArray> bytes =
        co_await QtConcurrent::task([path = context.fileURL.toLocalFile()] { return readWholeFile(path); })
            .onThreadPool(*QThreadPool::globalInstance())
            .withPriority(originalPoolPriority)
            .spawn();
    if (!bytes)
        co_return false;
    try {
        const PresignResponse presign =
            co_await context.api->presign(context.folderId, context.fileName,
                                          QStringLiteral("image/jpeg"), QNetworkRequest::LowPriority);
        co_await context.api->uploadToStorage(presign, std::move(*bytes), QNetworkRequest::LowPriority);
    } catch (const std::exception &) {
        // An original's failure is never shown: its preview is already with the client.
        co_return false;
    }
    co_return true;
}

QCoro::Task<> UploadJobs::runOriginalJob(UploadJobContext context)
{
    co_await context.fullResSemaphore->wait();

    bool uploaded = co_await tryUploadOriginal(context);
    if (!uploaded) {
        // The permit is held through the pause on purpose: the whole lane waits, so a store that
        // is failing is not hammered by the originals queued behind this one.
        co_await QCoro::sleepFor(originalRetryDelay);
        uploaded = co_await tryUploadOriginal(context);
    }
    if (uploaded && context.manager)
        context.manager->recordOriginalUploaded();
    scheduleSignal(context.fullResSemaphore);
}
