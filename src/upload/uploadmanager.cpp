// SPDX-License-Identifier: MIT
#include "uploadmanager.h"

#include "apiclient.h"
#include "attemptstep.h"
#include "photoattempt.h"
#include "previewmaker.h"
#include "uploadlanes.h"

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

UploadManager::UploadManager(qint64 folderId, std::shared_ptr<UploadLanes> lanes,
                             UploadCounts counts, QObject *parent)
    : QObject(parent)
    , m_uploadedCount(counts.uploadedCount)
    , m_fullResUploaded(counts.fullResUploaded)
    , m_fullResTotal(counts.fullResTotal)
    , m_folderId(folderId)
    , m_lanes(lanes ? std::move(lanes) : std::make_shared<UploadLanes>(APIClient::shared()))
{
}

UploadManager::~UploadManager()
{
    // A manager with lanes of its own takes their early work with it; attempts still running
    // keep the maker. Shared lanes are their owner's business.
    if (m_lanes.use_count() == 1)
        m_lanes->previews->dropEarlyWork();
}

QString UploadManager::previewName(const QString &fileName, const QString &extension)
{
    return PhotoAttempt::previewName(fileName, extension);
}

void UploadManager::uploadFile(const QUrl &fileURL)
{
    attemptAndCount(m_lanes, QPointer<UploadManager>(this), fileURL, m_folderId);
}

QCoro::Task<> UploadManager::attemptAndCount(std::shared_ptr<UploadLanes> lanes,
                                             QPointer<UploadManager> manager, QUrl fileURL,
                                             qint64 folderId)
{
    QCoro::AsyncGenerator<AttemptStep> attempt =
        PhotoAttempt::run(std::move(lanes), {fileURL, folderId, {}});
    auto step = co_await attempt.begin();
    for (; step != attempt.end(); co_await ++step) {
        if (manager)
            manager->count(*step);
    }
}

const PreviewMaker &UploadManager::previews() const { return *m_lanes->previews; }

void UploadManager::preparePreview(const QUrl &fileURL)
{
    m_lanes->previews->prepare(fileURL);
}

void UploadManager::count(const AttemptStep &step)
{
    switch (step.kind) {
    case AttemptStep::Kind::previewRegistered:
        // Both counters move in the same turn of the event loop, so no observer ever sees a
        // preview counted without its original being due.
        increment(m_uploadedCount, "uploadedCount");
        increment(m_fullResTotal, "fullResTotal");
        Q_EMIT uploadedCountChanged();
        Q_EMIT fullResTotalChanged();
        break;
    case AttemptStep::Kind::originalStored:
        // A file sent again because it changed after it was stored is one original still.
        if (!step.resend) {
            increment(m_fullResUploaded, "fullResUploaded");
            Q_EMIT fullResUploadedChanged();
        }
        break;
    case AttemptStep::Kind::failed:
        // An original's failure is never shown: its preview is already with the client.
        if (step.part != AttemptStep::Part::preview || !step.failure)
            break;
        if (step.failure->kind == AttemptFailure::Kind::undecodable)
            setError(QStringLiteral("No se pudo procesar ") + step.failure->description);
        else
            setError(QStringLiteral("Error: ") + step.failure->description);
        break;
    default:
        break;
    }
}

void UploadManager::countOriginalDue()
{
    increment(m_fullResTotal, "fullResTotal");
    Q_EMIT fullResTotalChanged();
}

void UploadManager::setError(const QString &message)
{
    m_error = message;
    Q_EMIT errorChanged();
}
