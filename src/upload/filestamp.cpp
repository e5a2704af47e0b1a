// SPDX-License-Identifier: MIT
#include "filestamp.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace {
constexpr qint64 settledNanoseconds = 100'000'000;
constexpr qint64 nanosecondsPerMillisecond = 1'000'000;
} // namespace

std::optional<FileStamp> FileStamp::of(const QString &path)
{
#ifdef Q_OS_UNIX
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return std::nullopt;
    const auto nanoseconds = [](const timespec &time) {
        return qint64(time.tv_sec) * 1'000'000'000 + qint64(time.tv_nsec);
    };
#ifdef Q_OS_DARWIN
    const timespec &modified = status.st_mtimespec;
    const timespec &changed = status.st_ctimespec;
#else
    const timespec &modified = status.st_mtim;
    const timespec &changed = status.st_ctim;
#endif
    return FileStamp{qint64(status.st_size), nanoseconds(modified), nanoseconds(changed),
                     quint64(status.st_dev), quint64(status.st_ino)};
#else
    // Qt's times come to the millisecond; the size and the metadata change time make up for
    // most of what that loses.
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    const auto nanoseconds = [](const QDateTime &time) {
        return time.isValid() ? time.toMSecsSinceEpoch() * nanosecondsPerMillisecond : 0;
    };
    return FileStamp{info.size(), nanoseconds(info.lastModified()),
                     nanoseconds(info.metadataChangeTime()), 0, 0};
#endif
}

bool FileStamp::isSettled() const
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch() * nanosecondsPerMillisecond;
    return now - std::max(modifiedNanoseconds, changedNanoseconds) >= settledNanoseconds;
}
