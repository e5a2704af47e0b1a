// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <exception>

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

    Kind kind = Kind::passing;
    QString description;
    // The object store refused the upload permission itself: the next attempt asks for a new one.
    bool permissionRefused = false;

    bool passes() const { return kind == Kind::passing || kind == Kind::signInNeeded; }

    // A failed service call sorted by its structure: transport errors, non-HTTP replies and
    // replies that do not decode pass (a captive portal answers with its own page); statuses
    // by their meaning. A presign's upload refused by the store is taken for an expired one. A
    // file that failed while it was sent is unreadable.
    static AttemptFailure of(const std::exception &error);
};
