// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>
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
    // ":N"; empty until started.
    QString name() const { return m_name; }
    QString errorString() const { return m_error; }

private:
    pid_t m_pid = -1;
    QString m_name;
    QString m_error;
};
