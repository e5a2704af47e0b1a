// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>

#include <functional>

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

    void start();
    // Stops every timer and notification; the watcher hands nothing over afterwards.
    void invalidateTimer();
    void checkForNewFiles();

    static QSet<QString> listFiles(const QUrl &folder);
    static bool isFileReady(const QUrl &file);

    const QUrl &watchURL() const { return m_watchURL; }
    const QSet<QString> &knownFiles() const { return m_knownFiles; }
    bool isRunning() const;

private:
    QUrl m_watchURL;
    NewFileHandler m_onNewFile;
    QSet<QString> m_knownFiles;
    QTimer *m_timer = nullptr;
};
