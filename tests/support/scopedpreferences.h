// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QTemporaryDir>

#include <optional>

// Points the program's per-user preferences at a file in a fresh temporary folder for the life
// of the object, on every platform, and its delivery journal beside it, so a test never reads or
// writes the real user's token, e-mail or owed photos.
class ScopedPreferences {
public:
    ScopedPreferences();
    ~ScopedPreferences();
    ScopedPreferences(const ScopedPreferences &) = delete;
    ScopedPreferences &operator=(const ScopedPreferences &) = delete;

    // Every key and value as stored on disk right now, read back by a separate QSettings, so
    // a test can tell exactly what the program wrote.
    QStringList storedKeys() const;
    std::optional<QString> stored(const QString &key) const;
    void store(const QString &key, const QString &value);
    void remove(const QString &key);
    QString storageText() const;
    QString journalPath() const { return m_directory.filePath(QStringLiteral("delivery.sqlite")); }
    // The preferences file itself, for a program of the test's own to use.
    QString file() const { return m_file; }

private:
    QTemporaryDir m_directory;
    QString m_file;
};
