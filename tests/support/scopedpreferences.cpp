// SPDX-License-Identifier: MIT
#include "scopedpreferences.h"

#include "deliveryjournal.h"
#include "preferences.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QSettings>

namespace {
// The same store the program uses, opened on its own so a test sees what is on disk.
const QString &organisation = Preferences::organisation;
const QString &application = Preferences::application;
} // namespace

ScopedPreferences::ScopedPreferences()
    : m_file(m_directory.filePath(organisation + QLatin1Char('/') + application +
                                  QStringLiteral(".conf")))
{
    if (!m_directory.isValid())
        qFatal("ScopedPreferences: no temporary folder");
    // The program's store, on every platform, is a file of the test's own. Where the platform's
    // store is a file too (Linux), QSettings' own path leads to the same file, as tests that
    // open QSettings(organisation, application) expect.
    Preferences::useFile(m_file);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_directory.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_directory.path());
    // The delivery journal too: what one test leaves owed is never delivered in the next.
    DeliveryJournal::setPathForTests(journalPath());
}

ScopedPreferences::~ScopedPreferences()
{
    // Nothing may keep writing into the folder about to vanish: point elsewhere harmlessly.
    Preferences::useFile(QDir(QDir::tempPath()).filePath(QStringLiteral("quillmere-preferences-gone.conf")));
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QDir::tempPath());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, QDir::tempPath());
    DeliveryJournal::setPathForTests(QString());
}

QStringList ScopedPreferences::storedKeys() const
{
    return QSettings(m_file, QSettings::IniFormat).allKeys();
}

std::optional<QString> ScopedPreferences::stored(const QString &key) const
{
    const QVariant value = QSettings(m_file, QSettings::IniFormat).value(key);
    return value.isValid() ? std::optional(value.toString()) : std::nullopt;
}

void ScopedPreferences::store(const QString &key, const QString &value)
{
    QSettings settings(m_file, QSettings::IniFormat);
    settings.setValue(key, value);
    settings.sync();
}

void ScopedPreferences::remove(const QString &key)
{
    QSettings settings(m_file, QSettings::IniFormat);
    settings.remove(key);
    settings.sync();
}

QString ScopedPreferences::storageText() const
{
    QString text;
    QDirIterator files(m_directory.path(), QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        if (file.open(QIODevice::ReadOnly))
            text += QString::fromUtf8(file.readAll());
    }
    return text;
}
