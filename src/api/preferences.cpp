// SPDX-License-Identifier: MIT
#include "preferences.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

namespace {

// The token opens the photographer's account: the file that keeps it, and its folder, are the
// user's alone. They are made so before anything goes into the file, and QSettings keeps them
// so: it rewrites the file through a temporary copy that QSaveFile creates readable by the
// owner only when the file exists, and that takes over the file's mode when it replaces it.
// On Windows the settings live in the user's own registry hive, and on macOS in the user's own
// Library folder, both private already.
void makePrivate(const QSettings &settings) {
#if defined(Q_OS_UNIX) && !defined(Q_OS_DARWIN)
    const QFileInfo file(settings.fileName());
    const QString folder = file.absolutePath();
    const QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner;
    if (!QFileInfo::exists(folder)) {
        QDir().mkpath(QFileInfo(folder).absolutePath());
        QDir().mkdir(folder, ownerOnly | QFile::ExeOwner);
    } else {
        QFile::setPermissions(folder, ownerOnly | QFile::ExeOwner);
    }
    if (file.exists()) {
        QFile::setPermissions(file.absoluteFilePath(), ownerOnly);
    } else {
        QFile created(file.absoluteFilePath());
        created.open(QIODevice::WriteOnly | QIODevice::NewOnly, ownerOnly);
    }
#else
    Q_UNUSED(settings);
#endif
}

} // namespace

std::optional<QString> Preferences::string(const QString &key)
{
    const QSettings settings(organisation, application);
    const QVariant value = settings.value(key);
    if (!value.isValid() || value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

void Preferences::setString(const QString &key, const QString &value)
{
    QSettings settings(organisation, application);
    makePrivate(settings);
    settings.setValue(key, value);
    settings.sync();
}

void Preferences::remove(const QString &key)
{
    QSettings settings(organisation, application);
    settings.remove(key);
    settings.sync();
}
