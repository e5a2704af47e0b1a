// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>
#include <QStringList>
#include <sys/types.h>

// An Xvfb server on a display number it picks itself (-displayfd), for as long as the object
// lives, so a test can run real X clients without a desktop and without xvfb-run.
class VirtualDisplay {
public:
    VirtualDisplay() = default;
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay &) = delete;
    VirtualDisplay &operator=(const VirtualDisplay &) = delete;

    bool start(QSize screen = QSize(1280, 800));
    // Starts it and makes it this process's display, for a test that grabs its screen; where
    // Xvfb is missing, the process draws offscreen and the test skips what needs the display.
    bool startAsThisProcessDisplay();
    // Runs xdotool on the display this process uses; its output, trimmed, into `output`.
    // False, with a warning that says why, when it fails.
    static bool xdotool(const QStringList &arguments, QString *output = nullptr);
    // The first visible window with that name, or nothing within 20 seconds.
    static QString findWindow(const QString &name);
    // ":N"; empty until started.
    QString name() const { return m_name; }
    QString errorString() const { return m_error; }

private:
    pid_t m_pid = -1;
    QString m_name;
    QString m_error;
};
