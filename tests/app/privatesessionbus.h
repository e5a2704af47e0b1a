// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>
#include <QString>

// A D-Bus session bus of the test's own (dbus-daemon --session, on a socket of its own), for as
// long as the object lives: what the program sends to the desktop's services reaches the test,
// and nothing of the person's own session. The daemon ends with the test, even one that crashes.
class PrivateSessionBus {
public:
    PrivateSessionBus() = default;
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus &) = delete;
    PrivateSessionBus &operator=(const PrivateSessionBus &) = delete;

    // False, with errorString(), when dbus-daemon is missing or does not start. Then the bus
    // of this process from now on: call it before anything here looks for the session bus.
    bool startAsThisProcessBus();
    // What DBUS_SESSION_BUS_ADDRESS is set to for a program that is to use it.
    QString address() const { return m_address; }
    QString errorString() const { return m_error; }

private:
    QProcess m_daemon;
    QString m_address;
    QString m_error;
};
