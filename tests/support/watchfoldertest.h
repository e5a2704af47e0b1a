// SPDX-License-Identifier: MIT
#pragma once

#include "folderwatcher.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>

#include <functional>
#include <memory>

// The fixture of the folder watcher's tests: a fresh watch folder for every test function, a
// watcher made the way the session controller makes it, and a record of every hand-over.
class WatchFolderTest : public QObject {
    Q_OBJECT

protected:
    struct HandOver {
        QUrl file;
        QString name;
        qint64 at;       // wall-clock milliseconds when the handler ran
        qint64 size;     // as the handler found the file
        qint64 modified; // as the handler found the file
        bool alreadyKnown;
    };

    static qint64 now();
    static QDateTime longAgo();
    static qint64 modifiedAt(const QString &path);
    // Folders too, where the platform allows.
    static bool setModified(const QString &path, const QDateTime &time);
    static bool writeFile(const QString &path, const QByteArray &content);
    // Names, sizes, modification times and contents of everything in a folder, subfolders
    // included.
    static QStringList snapshot(const QString &folder);
    // The two ways a watcher finds files: with the file system's notifications, and by polling
    // alone.
    static void addModes();

    QString path(const QString &name) const { return m_folder + QLatin1Char('/') + name; }
    QUrl folderUrl() const { return QUrl::fromLocalFile(m_folder); }
    // As the session controller makes it: what is in the folder now is known from the start.
    FolderWatcher &makeWatcher(bool notifications = true);
    QStringList handedNames() const;
    // A complete photo: non-empty and last modified long ago.
    bool writePhoto(const QString &name, const QByteArray &content = "photo bytes");
    // The handler of the watchers made here: notes the hand-over, then runs m_afterHandOver.
    void record(const QUrl &file);

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_folder;
    QList<HandOver> m_handed;
    std::unique_ptr<FolderWatcher> m_watcher;
    // Runs inside the handler, after the hand-over has been recorded.
    std::function<void(const QString &)> m_afterHandOver;

private Q_SLOTS:
    void init();
    void cleanup();
};
