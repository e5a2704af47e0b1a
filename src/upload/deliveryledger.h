// SPDX-License-Identifier: MIT
#pragma once

#include "attemptfailure.h"
#include "filestamp.h"
#include "presignresponse.h"

#include <QString>
#include <QUrl>

#include <optional>

// A preview already in the object store, still to be registered with the session.
struct StoredPreview {
    QString url;
    QString key;
    QString bucket;
};

// Where one photo's delivery stands when it is handed back for another attempt: the attempt
// does only the steps that are left.
struct PhotoDelivery {
    qint64 photo = 0; // the ledger's number for the photo
    QUrl fileURL;
    std::optional<StoredPreview> storedPreview;
    // A registration went out before and its outcome is unknown: the service may hold it.
    bool registrationSent = false;
    bool previewRegistered = false;
    // The original's upload permission from an earlier attempt: sent again to the same key, an
    // original whose first upload did arrive is stored once, not twice.
    std::optional<PresignResponse> originalPresign;
    // The original is stored already, but its file changed after it was read: it goes again,
    // and counts once.
    bool originalResend = false;
};

// What the jobs of one photo tell the layer above the attempts, step by step, so that nothing
// an attempt could not deliver is forgotten. Called on the main thread. The jobs hold it
// strongly: what they report must be written down even after the session's manager is gone.
class DeliveryLedger {
public:
    virtual ~DeliveryLedger() = default;

    // Before the photo's first request; gives the photo's number.
    virtual qint64 handedOver(qint64 folderId, const QUrl &fileURL) = 0;
    // The file as the preview was made of it, and as the original was about to be read: a
    // file still being written then is looked at again.
    virtual void previewMade(qint64 photo, const std::optional<FileStamp> &taken) = 0;
    virtual void originalRead(qint64 photo, const std::optional<FileStamp> &taken) = 0;
    virtual void previewStored(qint64 photo, const StoredPreview &preview) = 0;
    virtual void registrationSent(qint64 photo) = 0;
    virtual void previewRegistered(qint64 photo) = 0;
    virtual void originalPresigned(qint64 photo, const PresignResponse &presign) = 0;
    virtual void originalStored(qint64 photo) = 0;
    // The attempt ended without delivering the photo; what is left stays owed unless the
    // failure is one that will not change.
    virtual void attemptFailed(qint64 photo, const AttemptFailure &failure) = 0;
};
