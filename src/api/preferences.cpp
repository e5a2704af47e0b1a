// SPDX-License-Identifier: MIT
#include "preferences.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSettings>

#include <memory>

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

QMutex fileMutex;
QString fileInUse; // guarded by fileMutex

std::unique_ptr<QSettings> openSettings()
{
    const QString path = Preferences::file();
    if (path.isEmpty())
        return std::make_unique<QSettings>(Preferences::organisation, Preferences::application);
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
}

} // namespace

void Preferences::useFile(const QString &path)
{
    const QMutexLocker lock(&fileMutex);
    fileInUse = path;
}

QString Preferences::file()
{
    const QMutexLocker lock(&fileMutex);
    return fileInUse;
}

std::optional<QString> Preferences::string(const QString &key)
{
    const std::unique_ptr<QSettings> opened = openSettings();
    const QSettings &settings = *opened;
    const QVariant value = settings.value(key);
    if (!value.isValid() || value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

void Preferences::setString(const QString &key, const QString &value)
{
    const std::unique_ptr<QSettings> opened = openSettings();
    QSettings &settings = *opened;
    makePrivate(settings);
    settings.setValue(key, value);
    settings.sync();
}

void Preferences::remove(const QString &key)
{
    const std::unique_ptr<QSettings> opened = openSettings();
    opened->remove(key);
    opened->sync();
}
