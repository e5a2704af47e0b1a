// SPDX-License-Identifier: MIT
#pragma once

#include "presignresponse.h"

#include <QString>

#include <optional>

// A preview already in the object store, still to be registered with the session.
struct StoredPreview {
    QString url;
    QString key;
    QString bucket;

    friend bool operator==(const StoredPreview &, const StoredPreview &) = default;
};

// How far a photo's delivery got before this attempt: the attempt does only the steps left. A
// first attempt starts from nothing.
struct PhotoProgress {
    // The preview's upload permission from an earlier attempt: sent again to the same key, a
    // preview whose upload did arrive is stored once, not twice.
    std::optional<PresignResponse> previewPresign;
    std::optional<StoredPreview> storedPreview;
    // A registration went out before and its outcome is unknown: the service may hold it.
    bool registrationSent = false;
    bool previewRegistered = false;
    // The same for the original: one upload that arrived is one object in the store.
    std::optional<PresignResponse> originalPresign;
    // The original is stored already, but its file changed after it was read: it goes again,
    // and counts once.
    bool originalResend = false;
};
