// SPDX-License-Identifier: MIT
#pragma once

#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>

class QFileSystemWatcher;
class QTimer;

// Finds the photos the camera drops into the watch folder and hands each one over once, as
// soon as it is completely written (non-empty and unmodified for more than a second). Polls
// once a second on the main thread; see the implementation for the faster paths on top.
class FolderWatcher : public QObject {
    Q_OBJECT
public:
    using NewFileHandler = std::function<void(const QUrl &file)>;

    FolderWatcher(QUrl watchURL, NewFileHandler onNewFile, QSet<QString> knownFiles,
                  QObject *parent = nullptr);
    ~FolderWatcher() override;

    // Starts polling (the first poll one second from now) and, unless turned off, listening
    // for the file system's change notifications on the folder.
    void start();
    // Stops every timer and notification; the watcher hands nothing over afterwards.
    void invalidateTimer();
    void checkForNewFiles();

    // On by default. Turning them off before start() leaves the one-second poll alone in
    // charge, as on a network share that never reports changes.
    void setNotificationsEnabled(bool enabled);
    bool notificationsEnabled() const { return m_notificationsEnabled; }

    static QSet<QString> listFiles(const QUrl &folder);
    static bool isFileReady(const QUrl &file);

    const QUrl &watchURL() const { return m_watchURL; }
    const QSet<QString> &knownFiles() const { return m_knownFiles; }
    bool isRunning() const;

private:
    void onFolderChanged();
    void checkPendingFiles();
    // Judges the given candidates in name order and hands over those that are ready.
    void handOverReady(QStringList names);
    void scheduleReadyCheck();
    void watchFolderIfPresent();

    QUrl m_watchURL;
    QString m_folderPath;
    NewFileHandler m_onNewFile;
    QSet<QString> m_knownFiles;
    QTimer *m_timer = nullptr;

    // The event source: only the folder itself is watched, never its files.
    QFileSystemWatcher *m_source = nullptr;
    QTimer *m_folderChangeTimer = nullptr;
    qint64 m_lastCheckCost = 0; // milliseconds the last full check took
    // The folder's own modification time when a listing found nothing new and that time lay
    // well in the past; while it stays the same, no name can have been added.
    std::optional<qint64> m_settledFolderStamp;
    // Candidates seen not yet ready, and when each can first be ready if left alone.
    QMap<QString, qint64> m_pending;
    QTimer *m_readyTimer = nullptr;

    bool m_notificationsEnabled = true;
    bool m_invalidated = false;
};
