// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>
#include <string_view>

// When the camera took a photo, as its file says: EXIF DateTimeOriginal, with its
// SubSecTimeOriginal where the file has one. The camera's clock has no zone; it is read as this
// machine's local time, as LibRaw reads a RAW's, so the two files a camera writes of one shot
// (a RAW and its JPEG) carry the same time.
struct CaptureTime {
    qint64 msecs = 0;   // since the epoch
    bool exact = false; // the sub-seconds are known

    // Reads only the file's metadata: a JPEG's Exif block, a TIFF's Exif directory, a camera
    // RAW's through LibRaw (to the second). None when the file carries no capture time, or
    // cannot be read.
    static std::optional<CaptureTime> of(const QString &path);
    // "2026:03:14 09:26:53" and an optional "042" (a decimal fraction of the second).
    static std::optional<CaptureTime> parse(std::string_view dateTime, std::string_view subSeconds);

    // The same moment, to the millisecond when both know their sub-seconds, else to the second.
    bool sameMomentAs(const CaptureTime &other) const;

    friend bool operator==(const CaptureTime &, const CaptureTime &) = default;
};
