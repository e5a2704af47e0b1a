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
};
