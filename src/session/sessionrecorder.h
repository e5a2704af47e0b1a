// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>

#include <memory>

class Delivery;
class FolderWatcher;

// A recording session's way from its watch folder to delivery: the folder watcher, the pause
// rule, and the hand-over of every other photo. A photo that becomes ready while the recording
// is paused is dropped for good, not deferred: the watcher counts it as known, and so does the
// journal, for a session taken up again after a restart. Main thread only.
class SessionRecorder : public QObject {
    Q_OBJECT
public:
    // `knownNames` are never handed over: the folder's photos at the session's start, and,
    // for a session taken up again, those skipped or handed over before.
    SessionRecorder(Delivery &delivery, qint64 folderId, const QUrl &folder,
                    QSet<QString> knownNames, QObject *parent = nullptr);
    ~SessionRecorder() override;

    void start();
    // Stops watching for good; nothing is handed over afterwards.
    void stop();
    void setPaused(bool paused) { m_paused = paused; }
    FolderWatcher *watcher() const { return m_watcher.get(); }
    // Whether the watch folder was there at the last look.
    bool folderAvailable() const;

Q_SIGNALS:
    void folderAvailableChanged();

private:
    void handleNewFile(const QUrl &file);

    Delivery &m_delivery;
    const qint64 m_folderId;
    std::unique_ptr<FolderWatcher> m_watcher;
    bool m_paused = false;
};
