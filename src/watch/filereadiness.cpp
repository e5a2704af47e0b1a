// SPDX-License-Identifier: MIT
#include "filereadiness.h"

#include <QDateTime>
#include <QFileInfo>

namespace {
// Both the modification time and the clock come truncated to whole milliseconds, so each may
// lie up to a millisecond below the truth. Requiring 1001 ms between the truncated values
// guarantees that more than one full second has really passed.
constexpr qint64 quietMilliseconds = 1001;
} // namespace

FileReadiness FileReadiness::of(const QString &path, qint64 now)
{
    const QFileInfo info(path); // a fresh look: QFileInfo caches nothing across instances
    if (!info.exists())
        return {};
    if (info.size() <= 0)
        return {};
    const QDateTime modified = info.lastModified();
    if (!modified.isValid())
        return {true, std::nullopt};
    // A modification time in the future (a camera clock running ahead) is simply not ready
    // until that moment has passed by more than a second.
    FileReadiness readiness{false, modified.toMSecsSinceEpoch()};
    readiness.ready = now >= *readiness.readyFrom();
    return readiness;
}

std::optional<qint64> FileReadiness::readyFrom() const
{
    if (!lastModified)
        return std::nullopt;
    return *lastModified + quietMilliseconds;
}
