// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <chrono>
#include <exception>
#include <optional>

// Why one attempt at a photo did not deliver it, sorted by what waiting can do about it.
struct AttemptFailure {
    enum class Kind {
        passing,      // no network, a timeout, a 5xx, a 429, an expired presign: try again later
        signInNeeded, // the service no longer takes the token
        sessionGone,  // the service no longer knows the session's folder
        refused,      // another refusal that will not change
        unreadable,   // the photo's file could not be read
        undecodable,  // no preview could be made of the file
    };

    // What a failure that passes says of why, beyond "no answer" or "the service is in
    // trouble", for the line the photographer reads.
    enum class Cause {
        unknown,
        storageRefuses, // the object store refuses the uploads for a reason other than time
        networkSignIn,  // the network wants a sign-in in the browser first (a captive portal)
    };

    Kind kind = Kind::passing;
    QString description;
    // The object store refused the upload permission itself: the next attempt asks for a new one.
    bool permissionRefused = false;
    Cause cause = Cause::unknown;
    // A busy server's word on when to come back (429, 503).
    std::optional<std::chrono::milliseconds> retryAfter = std::nullopt;

    bool passes() const { return kind == Kind::passing || kind == Kind::signInNeeded; }

    // A failed service call sorted by its structure: transport errors, non-HTTP replies, replies
    // that do not decode and answers of a network's sign-in page pass; statuses by their
    // meaning. An upload the store refuses passes too, on a fresh presign: an expired one is
    // mended so, and any other refusal may be mended by the service. A file that failed while
    // it was sent is unreadable.
    static AttemptFailure of(const std::exception &error);
};
