// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

// Every state the screenshot program draws, each in both appearances: <state>-light.png and
// <state>-dark.png.
namespace ScreenshotNames {
inline const QStringList states = {
    QStringLiteral("login-empty"),
    QStringLiteral("login-error"),
    QStringLiteral("login-signing-in"),
    QStringLiteral("setup-empty"),
    QStringLiteral("setup-long-folder"),
    QStringLiteral("setup-error"),
    QStringLiteral("recording-live"),
    QStringLiteral("recording-one-photo"),
    QStringLiteral("recording-qr"),
    QStringLiteral("recording-paused"),
    QStringLiteral("recording-no-link"),
    QStringLiteral("recording-five-digits"),
    QStringLiteral("recording-waiting"),
    QStringLiteral("setup-continue"),
    QStringLiteral("recording-resumed"),
    QStringLiteral("finished-waiting"),
    QStringLiteral("finished-originals-gallery"),
    QStringLiteral("finished-originals-only"),
    QStringLiteral("finished-gallery-only"),
    QStringLiteral("finished-qr"),
    QStringLiteral("finished-plain"),
};
// The tray's picture, on a bar of the appearance's colour: tray-idle-light.png and so on.
inline const QStringList trayStates = {QStringLiteral("tray-idle"),
                                       QStringLiteral("tray-recording"),
                                       QStringLiteral("tray-waiting")};
inline const QStringList appearances = {QStringLiteral("light"), QStringLiteral("dark")};

inline QString fileName(const QString &state, const QString &appearance) {
    return state + QLatin1Char('-') + appearance + QStringLiteral(".png");
}
} // namespace ScreenshotNames
