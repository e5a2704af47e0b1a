// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

// What the file system says about a file's identity and last change: enough to tell whether
// the file may have been written to between two looks. Writing always moves the change time,
// which no program can set back, so equal stamps mean untouched contents (see isSettled).
struct FileStamp {
    qint64 size = 0;
    qint64 modifiedNanoseconds = 0;
    qint64 changedNanoseconds = 0;
    quint64 device = 0;
    quint64 inode = 0;

    // Absent when the file cannot be looked at.
    static std::optional<FileStamp> of(const QString &path);

    // File systems keep times to a tick (a few milliseconds on Linux). A write in the same
    // tick as the last one leaves the times alone, so a stamp tells later writes apart only
    // once the last one lies at least a tick in the past, here with a wide margin.
    bool isSettled() const;

    friend bool operator==(const FileStamp &, const FileStamp &) = default;
};
