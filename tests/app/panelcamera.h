// SPDX-License-Identifier: MIT
#pragma once

#include <QDir>
#include <QString>
#include <QStringList>

class QQuickItem;
class QQuickWindow;
class Theme;

// Grabs the panel window, as the offscreen platform renders it, in the light and the dark
// appearance, into <state>-light.png and <state>-dark.png.
class PanelCamera {
public:
    PanelCamera(QQuickWindow &window, Theme &theme, const QDir &output);

    bool shoot(const QString &state);
    // The tray icon as the status item draws it, idle and recording, on a bar in each
    // appearance, at the screen's pixel ratio.
    bool shootTrayIcons();
    QStringList written() const { return m_written; }
    QString errorString() const { return m_error; }

    // Lets the event loop run for a while: layouts, bindings and replies catch up.
    static void settle(int milliseconds);

private:
    // The pulsing badge is caught at full strength, so every picture shows it the same way.
    void waitForSteadyBadge();
    QQuickItem *find(const char *objectName) const;

    QQuickWindow &m_window;
    Theme &m_theme;
    QDir m_output;
    QStringList m_written;
    QString m_error;
};
