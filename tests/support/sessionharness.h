// SPDX-License-Identifier: MIT
#pragma once

#include "devservicefixture.h"
#include "scopedpreferences.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class SessionViewModel;

// Everything a test of a whole live session needs: devservice on loopback with the process-wide
// client pointed at it, preferences in a temporary place, a watch folder, and ways to drive the
// controller through its real operations.
class SessionHarness {
public:
    // Starts devservice and points the process-wide client at it; call once per test program,
    // before anything touches APIClient::shared().
    bool start();
    QString errorString() const { return m_service.errorString(); }

    // Fresh service state, preferences and watch folder for the next test.
    void resetForTest();

    DevService &service() { return m_service; }
    ScopedPreferences &preferences() { return *m_preferences; }
    QString folderPath() const { return m_folder->path(); }
    QString pathOf(const QString &name) const { return m_folder->filePath(name); }

    // Signs in with the demo account through the controller's own login.
    bool signIn(SessionViewModel &model);
    // Names the client, answers the folder panel with the watch folder and starts the session.
    bool startSession(SessionViewModel &model, const QString &clientName);

    // A photo as the camera leaves it: written whole, then its modification time set back two
    // seconds so it is ready at the watcher's next look.
    bool dropPhoto(const QString &name, const QByteArray &bytes, bool alreadySettled = true);
    // The same into another folder: a card's, while it is out of the machine.
    static bool dropPhotoAt(const QString &folder, const QString &name, const QByteArray &bytes,
                            bool alreadySettled = true);

    // A small photographic JPEG, different for every seed.
    static QByteArray photoJpeg(int seed, int width = 480, int height = 320);
    // A small camera RAW (DNG) whose preview must come from the raw data.
    static QByteArray photoRaw(int seed);

private:
    DevService m_service;
    std::unique_ptr<ScopedPreferences> m_preferences;
    std::unique_ptr<QTemporaryDir> m_folder;
};
