// SPDX-License-Identifier: MIT
#pragma once

#include "attemptfailure.h"
#include "filestamp.h"
#include "photoprogress.h"
#include "presignresponse.h"

#include <optional>

// One step an attempt at a photo has taken, handed to whoever runs the attempt as it happens.
// The last step of every attempt is either originalStored or failed.
struct AttemptStep {
    enum class Kind {
        previewMade,         // `taken`: the file as its preview was made; `made`: if one came out
        previewPresigned,    // `presign`: the preview's upload permission
        previewStored,       // `preview`: in the object store, not registered yet
        registrationSending, // the registration is about to go out
        previewRegistered,   // the client sees the photo
        originalRead,        // `taken`: the file as its original was about to be read
        originalPresigned,   // `presign`: the original's upload permission
        originalStored,      // the photo is delivered; `resend` when it went again
        failed,              // `failure`, in the preview's part of the attempt or the original's
    };
    enum class Part { preview, original };

    Kind kind = Kind::failed;
    Part part = Part::preview;
    std::optional<FileStamp> taken;
    std::optional<PresignResponse> presign;
    std::optional<StoredPreview> preview;
    std::optional<AttemptFailure> failure;
    // The original went again because its file changed after it was stored: still one original.
    bool resend = false;
    bool made = false;

    // Where the photo's delivery stands after this step, for the next attempt.
    void applyTo(PhotoProgress &progress) const;
};
