// SPDX-License-Identifier: MIT
#include "uploadmanager.h"

#include "apiclient.h"
#include "asyncsemaphore.h"
#include "deliveryledger.h"
#include "previewmaker.h"
#include "uploadjobs.h"

#include <QFileInfo>
#include <QUrl>

#include <limits>

namespace {

void increment(qint64 &counter, const char *name)
{
    if (counter == std::numeric_limits<qint64>::max())
        qFatal("UploadManager: %s overflowed", name);
    ++counter;
}

} // namespace

UploadManager::UploadManager(qint64 folderId, QObject *parent)
    : QObject(parent)
    , m_folderId(folderId)
    , m_api(APIClient::shared())
    , m_previewSemaphore(std::make_shared<AsyncSemaphore>(2))
    , m_fullResSemaphore(std::make_shared<AsyncSemaphore>(1))
    , m_previews(std::make_shared<PreviewMaker>())
{
}

UploadManager::~UploadManager()
{
    // Jobs still running keep the maker; early work for photos no job will ask for goes now.
    m_previews->dropEarlyWork();
}

QString UploadManager::previewName(const QString &fileName, const QString &extension)
{
    QString name = fileName;
    if (!extension.isEmpty())
        name.replace(extension, QStringLiteral("jpg"), Qt::CaseSensitive);
    return QStringLiteral("preview_") + name;
}

UploadJobContext UploadManager::jobContext(const QUrl &fileURL)
{
    UploadJobContext context;
    context.fileURL = fileURL;
    context.fileName = fileURL.fileName();
    context.previewName = previewName(context.fileName, QFileInfo(context.fileName).suffix());
    context.folderId = m_folderId;
    context.api = &m_api;
    context.previewSemaphore = m_previewSemaphore;
    context.fullResSemaphore = m_fullResSemaphore;
    context.previews = m_previews;
    context.manager = this;
    context.ledger = m_ledger;
    context.delivery.fileURL = fileURL;
    return context;
}

void UploadManager::uploadFile(const QUrl &fileURL)
{
    UploadJobContext context = jobContext(fileURL);
    // Written down before the first request, so that a photo is owed from the moment it is
    // handed over, whatever happens next.
    if (m_ledger)
        context.delivery.photo = m_ledger->handedOver(m_folderId, fileURL);
    UploadJobs::runPreviewJob(std::move(context));
}

void UploadManager::redeliver(const PhotoDelivery &delivery)
{
    UploadJobContext context = jobContext(delivery.fileURL);
    context.delivery = delivery;
    if (delivery.previewRegistered)
        UploadJobs::runOriginalJob(std::move(context));
    else
        UploadJobs::runPreviewJob(std::move(context));
}

void UploadManager::preparePreview(const QUrl &fileURL)
{
    m_previews->prepare(fileURL);
}

void UploadManager::recordPreviewUploaded()
{
    // Both counters move in the same turn of the event loop, so no observer ever sees a
    // preview counted without its original being due.
    increment(m_uploadedCount, "uploadedCount");
    increment(m_fullResTotal, "fullResTotal");
    Q_EMIT uploadedCountChanged();
    Q_EMIT fullResTotalChanged();
}

void UploadManager::recordOriginalUploaded()
{
    increment(m_fullResUploaded, "fullResUploaded");
    Q_EMIT fullResUploadedChanged();
}

void UploadManager::setError(const QString &message)
{
    m_error = message;
    Q_EMIT errorChanged();
}
