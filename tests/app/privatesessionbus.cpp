// SPDX-License-Identifier: MIT
#include "privatesessionbus.h"

#include <QStandardPaths>
#include <csignal>
#include <sys/prctl.h>

PrivateSessionBus::~PrivateSessionBus() {
    if (m_daemon.state() == QProcess::NotRunning)
        return;
    m_daemon.terminate();
    if (!m_daemon.waitForFinished(5000))
        m_daemon.kill();
    m_daemon.waitForFinished(5000);
}

bool PrivateSessionBus::startAsThisProcessBus() {
    const QString daemon = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
    if (daemon.isEmpty()) {
        m_error = QStringLiteral("dbus-daemon is not installed (package dbus-daemon)");
        return false;
    }
    // Gone with the test, however the test ends.
    m_daemon.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    m_daemon.setProcessChannelMode(QProcess::SeparateChannels);
    m_daemon.setStandardErrorFile(QProcess::nullDevice());
    m_daemon.start(daemon, {QStringLiteral("--session"), QStringLiteral("--nofork"),
                            QStringLiteral("--nopidfile"), QStringLiteral("--print-address=1")});
    if (!m_daemon.waitForStarted(10000)) {
        m_error = QStringLiteral("dbus-daemon did not start: ") + m_daemon.errorString();
        return false;
    }
    while (!m_daemon.canReadLine()) {
        if (!m_daemon.waitForReadyRead(10000)) {
            m_error = QStringLiteral("dbus-daemon did not say its address");
            return false;
        }
    }
    m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
    if (m_address.isEmpty()) {
        m_error = QStringLiteral("dbus-daemon said an empty address");
        return false;
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());
    return true;
}
