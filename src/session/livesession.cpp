// SPDX-License-Identifier: MIT
#include "livesession.h"

namespace {
template<typename T>
QVariant valueOrUndefined(const std::optional<T> &value)
{
    return value ? QVariant::fromValue(*value) : QVariant();
}
} // namespace

QVariant LiveSession::watchFolderValue() const { return valueOrUndefined(watchFolder); }

QVariant LiveSession::watchFolderPathValue() const
{
    return watchFolder ? QVariant(watchFolder->toLocalFile()) : QVariant();
}

QVariant LiveSession::folderIdValue() const { return valueOrUndefined(folderId); }
QVariant LiveSession::slugValue() const { return valueOrUndefined(slug); }
QVariant LiveSession::liveURLValue() const { return valueOrUndefined(liveURL); }
QVariant LiveSession::galleryURLValue() const { return valueOrUndefined(galleryURL); }
