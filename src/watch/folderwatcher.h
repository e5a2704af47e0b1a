// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
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
struct FileReadiness;

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

    // How long a candidate has to stay unchanged before candidateQuiet is said of it.
    static constexpr qint64 quietAfterMilliseconds = 200;

    const QUrl &watchURL() const { return m_watchURL; }
    const QSet<QString> &knownFiles() const { return m_knownFiles; }
    bool isRunning() const;
    // Whether the folder was there at the last look: a card pulled out or a network drive that
    // went away is watched for all the same, and picked up again when it is back.
    bool folderAvailable() const { return m_folderAvailable; }

Q_SIGNALS:
    // A candidate that is not handed over yet has not changed for a moment: most likely it is
    // complete, and it will be handed over when its second is up unless it changes again.
    // Said once for each modification time a candidate is seen with, so work can start on the
    // photo early; the hand-over itself keeps the one-second rule.
    void candidateQuiet(const QUrl &file);
    void folderAvailableChanged(bool available);

private:
    void onFolderChanged();
    void checkPendingFiles();
    // Judges the given candidates in name order and hands over those that are ready.
    void handOverReady(QStringList names);
    // A candidate not ready yet: when to look at it next, and candidateQuiet once it has been
    // left alone long enough. False when the signal's receiver stopped or released the watcher.
    bool followUp(const QString &name, const QString &path, const FileReadiness &readiness,
                  qint64 checkTime);
    void scheduleReadyCheck();
    void watchFolderIfPresent();
    void setFolderAvailable(bool available);
    // Whether the folder's own modification time can stand for its listing right now.
    bool folderTimesAreWatched() const;
    static bool keepsFolderTimes(const QString &folder);

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
    bool m_localFolderTimes = false; // the folder is on a file system known to keep its time
    bool m_folderChanged = false;    // a notification came since the last listing
    // Candidates seen not yet ready, and the next moment each is worth a look: when it can be
    // said to be quiet, or else when it can first be ready, if left alone.
    QMap<QString, qint64> m_pending;
    // The modification time each candidate was last said to be quiet with.
    QHash<QString, qint64> m_announcedQuiet;
    QTimer *m_readyTimer = nullptr;

    bool m_notificationsEnabled = true;
    bool m_invalidated = false;
    bool m_folderAvailable = true;
};
