// SPDX-License-Identifier: MIT
#include "photoattempt.h"

#include "apiclient.h"
#include "apierror.h"
#include "attempted.h"
#include "asyncsemaphore.h"
#include "previewmaker.h"
#include "uploadlanes.h"

#include <QCoreApplication>
#include <QCoroTimer>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

namespace {

const QString contentType = QStringLiteral("image/jpeg");

// A permit of one lane, given back when the part of the attempt that holds it ends, in a turn
// of the event loop of its own, after the attempt has finished its own.
class LanePermit {
public:
    explicit LanePermit(std::shared_ptr<AsyncSemaphore> lane)
        : m_lane(std::move(lane))
    {
    }
    LanePermit(const LanePermit &) = delete;
    LanePermit &operator=(const LanePermit &) = delete;
    ~LanePermit()
    {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [lane = m_lane] { lane->signal(); },
            Qt::QueuedConnection);
    }

private:
    std::shared_ptr<AsyncSemaphore> m_lane;
};

AttemptStep step(AttemptStep::Kind kind, AttemptStep::Part part)
{
    AttemptStep taken;
    taken.kind = kind;
    taken.part = part;
    return taken;
}

AttemptStep failed(AttemptStep::Part part, AttemptFailure failure)
{
    AttemptStep step;
    step.kind = AttemptStep::Kind::failed;
    step.part = part;
    step.failure = std::move(failure);
    return step;
}

// Whether the original can be sent at all: its bytes are read only as they go out, but a file
// that cannot even be opened (gone, no permission, a folder in its place) is known now, before
// an upload is authorised for it.
bool opens(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly);
}

} // namespace

QString PhotoAttempt::previewName(const QString &fileName, const QString &extension)
{
    QString name = fileName;
    if (!extension.isEmpty())
        name.replace(extension, QStringLiteral("jpg"), Qt::CaseSensitive);
    return QStringLiteral("preview_") + name;
}

QCoro::AsyncGenerator<AttemptStep> PhotoAttempt::run(std::shared_ptr<UploadLanes> lanes,
                                                      Photo photo)
{
    // Each part is a generator of its own, so that a lane's permit is given back before the
    // next lane is waited for. Every awaited call is made in a statement of its own: GCC 12
    // mishandles the lifetime of non-trivial temporaries inside a co_await expression.
    if (!photo.progress.previewRegistered) {
        QCoro::AsyncGenerator<AttemptStep> preview = sendPreview(lanes, photo);
        auto next = co_await preview.begin();
        for (; next != preview.end(); co_await ++next) {
            AttemptStep taken = *next;
            co_yield taken;
            if (taken.kind == AttemptStep::Kind::failed)
                co_return; // the original of a photo whose preview failed is not sent
        }
    }
    QCoro::AsyncGenerator<AttemptStep> original = sendOriginal(lanes, photo);
    auto next = co_await original.begin();
    for (; next != original.end(); co_await ++next) {
        AttemptStep taken = *next;
        co_yield taken;
    }
}

QCoro::AsyncGenerator<AttemptStep> PhotoAttempt::sendPreview(std::shared_ptr<UploadLanes> lanes,
                                                              Photo photo)
{
    constexpr auto part = AttemptStep::Part::preview;
    co_await lanes->previewPermits->wait();
    const LanePermit permit(lanes->previewPermits);
    // From its making to its registration the preview has the uplink: the originals' bytes
    // still queued in front of it drain while it is made and authorised, and none join them.
    UplinkGate::Hold uplink = lanes->api.holdUplink();
    const QString fileName = photo.fileURL.fileName();

    std::optional<StoredPreview> stored = photo.progress.storedPreview;
    if (!stored) {
        AttemptStep made = step(AttemptStep::Kind::previewMade, part);
        made.taken = FileStamp::of(photo.fileURL.toLocalFile());
        QCoro::Task<std::optional<QByteArray>> making = lanes->previews->make(photo.fileURL);
        const std::optional<QByteArray> preview = co_await making;
        made.made = preview.has_value();
        co_yield made;
        if (!preview) {
            AttemptStep undecodable = failed(part, {AttemptFailure::Kind::undecodable, fileName});
            co_yield undecodable;
            co_return;
        }

        std::optional<PresignResponse> presign = photo.progress.previewPresign;
        if (!presign) {
            const QString name = previewName(fileName, QFileInfo(fileName).suffix());
            QCoro::Task<Attempted<PresignResponse>> authorising = attempted(lanes->api.presign(
                photo.folderId, name, contentType, QNetworkRequest::HighPriority));
            const Attempted<PresignResponse> authorised = co_await authorising;
            AttemptStep presigned = failed(part, authorised.failure);
            if (authorised) {
                presigned = step(AttemptStep::Kind::previewPresigned, part);
                presign = presigned.presign = authorised.value;
            }
            co_yield presigned;
            if (!presign)
                co_return;
        }
        QCoro::Task<Attempted<QString>> storing = attempted(
            lanes->api.uploadToStorage(*presign, *preview, QNetworkRequest::HighPriority));
        const Attempted<QString> storedAt = co_await storing;
        AttemptStep storedStep = failed(part, storedAt.failure);
        if (storedAt) {
            storedStep = step(AttemptStep::Kind::previewStored, part);
            stored = StoredPreview{*storedAt.value, presign->key, presign->bucket};
            storedStep.preview = stored;
        }
        co_yield storedStep;
        if (!stored)
            co_return;
    }

    // Whoever runs the attempt may wait for its disk here; the originals are not held back for
    // that, only while the preview's own requests are on their way.
    uplink.release();
    AttemptStep sending = step(AttemptStep::Kind::registrationSending, part);
    co_yield sending;
    uplink = lanes->api.holdUplink();
    QCoro::Task<Attempted<Done>> registering = attempted(registerPreview(lanes, photo, *stored));
    const Attempted<Done> registered = co_await registering;
    uplink.release();
    AttemptStep outcome = registered ? step(AttemptStep::Kind::previewRegistered, part)
                                     : failed(part, registered.failure);
    co_yield outcome;
}

QCoro::Task<> PhotoAttempt::registerPreview(std::shared_ptr<UploadLanes> lanes, Photo photo,
                                            StoredPreview preview)
{
    try {
        QCoro::Task<> registering =
            lanes->api.registerAttachment(photo.folderId, preview.url, preview.key,
                                          preview.bucket, QNetworkRequest::HighPriority);
        co_await registering;
    } catch (const APIError &error) {
        // The one request that cannot be told apart from its lost reply: when an earlier copy
        // went out and its answer never came, a service that knows the key refuses the repeat.
        // That refusal says the preview is registered; anything that passes is still a failure,
        // and so is a folder the service no longer knows.
        const AttemptFailure failure = AttemptFailure::of(error);
        if (!photo.progress.registrationSent || failure.passes() ||
            failure.kind == AttemptFailure::Kind::sessionGone)
            throw;
    }
}

QCoro::Task<> PhotoAttempt::pause(std::chrono::milliseconds length)
{
    // A precise timer: a coarse one may end the pause a few percent early.
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    timer.setSingleShot(true);
    timer.start(length);
    co_await &timer;
}

QCoro::AsyncGenerator<AttemptStep> PhotoAttempt::sendOriginal(std::shared_ptr<UploadLanes> lanes,
                                                               Photo photo)
{
    constexpr auto part = AttemptStep::Part::original;
    co_await lanes->originalPermits->wait();
    // Held through the pause before the retry on purpose: the whole lane waits, so a store that
    // is failing is not hammered by the originals queued behind this one.
    const LanePermit permit(lanes->originalPermits);
    const QString fileName = photo.fileURL.fileName();

    AttemptFailure failure;
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (attempt > 0) {
            QCoro::Task<> pausing = pause(originalRetryDelay);
            co_await pausing;
            // The second try asks for a permission of its own: the old one may be what was
            // refused.
            photo.progress.originalPresign.reset();
        }
        // An original gives way to previews still waiting to be decoded: reading, sending and
        // storing it takes processor time the previews need when photos come in faster than
        // the machine can take them.
        QCoro::Task<> givingWay = lanes->previews->caughtUp();
        co_await givingWay;
        // Taken before the bytes: a file that changes while it is read no longer matches it.
        const QString path = photo.fileURL.toLocalFile();
        AttemptStep read = step(AttemptStep::Kind::originalRead, part);
        read.taken = FileStamp::of(path);
        co_yield read;
        // A file that cannot be read ends the attempt at once: waiting would not make it
        // readable, and the lane is not held up for it.
        if (!opens(path)) {
            AttemptStep unreadable = failed(part, {AttemptFailure::Kind::unreadable, fileName});
            co_yield unreadable;
            co_return;
        }
        if (!photo.progress.originalPresign) {
            QCoro::Task<Attempted<PresignResponse>> authorising = attempted(lanes->api.presign(
                photo.folderId, fileName, contentType, QNetworkRequest::LowPriority));
            const Attempted<PresignResponse> authorised = co_await authorising;
            if (!authorised) {
                failure = authorised.failure;
                continue;
            }
            AttemptStep presigned = step(AttemptStep::Kind::originalPresigned, part);
            photo.progress.originalPresign = presigned.presign = authorised.value;
            co_yield presigned;
        }
        // Read from the file as it is sent: the original's memory does not grow with its size.
        QCoro::Task<Attempted<QString>> storing = attempted(lanes->api.uploadFileToStorage(
            *photo.progress.originalPresign, path, QNetworkRequest::LowPriority));
        const Attempted<QString> stored = co_await storing;
        if (!stored && stored.failure.kind == AttemptFailure::Kind::unreadable) {
            // Gone, or cut short, while it was sent: as unreadable as a file that never opened.
            AttemptStep unreadable = failed(part, stored.failure);
            co_yield unreadable;
            co_return;
        }
        if (!stored) {
            failure = stored.failure;
            continue;
        }
        AttemptStep storedStep = step(AttemptStep::Kind::originalStored, part);
        storedStep.resend = photo.progress.originalResend;
        co_yield storedStep;
        co_return;
    }
    // An original's failure is never shown: its preview is already with the client.
    AttemptStep refused = failed(part, failure);
    co_yield refused;
}
