// SPDX-License-Identifier: MIT
#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

class DevService;
class TracedApp;

// The whole program as a photographer who signed in before finds it, for a test that runs it on
// a virtual X display: a home of its own (the preferences with the token, the journal, a watch
// folder), the service at devservice, and the test trace on.
class SignedInHome {
public:
    // False, with the test failed, when the home cannot be made or the token stored.
    bool prepare(DevService &service, const QString &watchFolderName);

    QString path(const QString &name) const { return m_home.filePath(name); }
    QString watchFolder() const { return m_watchFolder; }
    // For the program on `display` (":N"), in that appearance ("light", "dark").
    QProcessEnvironment environment(const QString &display, const QString &appearance) const;

    // The program on its setup screen: types the client's name into the focused window, takes
    // the watch folder and starts the session. False, with the test failed, when it does not.
    static bool startSession(TracedApp &app, const QString &client);

private:
    QTemporaryDir m_home;
    QString m_watchFolder;
    QString m_serviceURL;
    QString m_storageHost;
};
