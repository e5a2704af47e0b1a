// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

// The two values the program keeps between runs, in the platform's per-user settings store
// (organisation "Quillmere", application "QuillmereLive"). Every call opens its own QSettings,
// so it is safe from any thread.
class Preferences {
public:
    static inline const QString organisation = QStringLiteral("Quillmere");
    static inline const QString application = QStringLiteral("QuillmereLive");
    static inline const QString apiTokenKey = QStringLiteral("api_token");
    static inline const QString savedEmailKey = QStringLiteral("saved_email");

    static std::optional<QString> string(const QString &key);
    static void setString(const QString &key, const QString &value);
    static void remove(const QString &key);

    // Keeps the values in an INI file of their own instead of the platform's store, until given
    // an empty path: how tests keep off the user's real preferences on every platform, since
    // QSettings::setPath reaches neither the Windows registry nor macOS's preferences.
    static void useFile(const QString &path);
    // The file useFile() named; empty while the platform's store is used.
    static QString file();
};
