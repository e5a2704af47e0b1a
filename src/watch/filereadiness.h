// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

// What one look at a file's attributes says about whether the camera has finished writing it:
// it is ready when it is non-empty and was last modified more than a second ago.
struct FileReadiness {
    bool ready = false;
    // When it was last written (milliseconds since the epoch); absent when waiting alone
    // cannot make it ready (empty, unreadable or gone).
    std::optional<qint64> lastModified;

    // The first moment at which the file can count as ready if nobody touches it again.
    std::optional<qint64> readyFrom() const;

    // `now` is passed in so that the files of one check are all judged at the same instant.
    static FileReadiness of(const QString &path, qint64 now);
};
