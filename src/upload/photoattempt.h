// SPDX-License-Identifier: MIT
#pragma once

#include "attemptstep.h"
#include "photoprogress.h"

#include <QCoroAsyncGenerator>
#include <QCoroTask>
#include <QString>
#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>

struct UploadLanes;

// One attempt at one photo, by the rules of a single attempt: the preview (made, authorised,
// stored and registered, in the preview lane; no retry), then the original (in the original
// lane; one retry five seconds later). Every step is handed to the caller as it is taken, and
// the attempt goes on only when the caller asks for the next one: a caller that writes the
// steps down has each of them written before the attempt's next request goes out. The last
// step says how the attempt ended. The work on the processor runs on the thread pool; the
// attempt itself runs on the main thread and never blocks it, and an original is read from its
// file a piece at a time while it is sent.
class PhotoAttempt {
public:
    static constexpr std::chrono::seconds originalRetryDelay{5};
    // Previews are what the client is waiting for: their decoding runs ahead of other work on
    // the pool.
    static constexpr int previewPoolPriority = 1;

    struct Photo {
        QUrl fileURL;
        qint64 folderId = 0;
        PhotoProgress progress; // a first attempt starts from nothing
    };

    static QCoro::AsyncGenerator<AttemptStep> run(std::shared_ptr<UploadLanes> lanes, Photo photo);
    // The two parts on their own, for a caller that decides between them: the preview's (whose
    // last step is previewRegistered or failed) and the original's.
    static QCoro::AsyncGenerator<AttemptStep> sendPreview(std::shared_ptr<UploadLanes> lanes,
                                                          Photo photo);
    static QCoro::AsyncGenerator<AttemptStep> sendOriginal(std::shared_ptr<UploadLanes> lanes,
                                                           Photo photo);

    // "preview_" + the file name with every occurrence of its extension replaced by "jpg".
    static QString previewName(const QString &fileName, const QString &extension);

private:
    // Registers the stored preview; throws unless the service holds it afterwards.
    static QCoro::Task<> registerPreview(std::shared_ptr<UploadLanes> lanes, Photo photo,
                                         StoredPreview preview);
    static QCoro::Task<> pause(std::chrono::milliseconds length);
};
