// SPDX-License-Identifier: MIT
#pragma once

#include "filestamp.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <map>
#include <optional>

// Looks again, once a second, at photos whose file may not have been finished when it was
// handed over: a camera's transfer over Wi-Fi that stalled halfway, a file written again under
// the same name. When such a file has changed since the stamp it was taken at, and has then been
// quiet for a second (the folder watcher's own rule), it is due for another attempt. A file that
// does not change is let go after a while.
class SettleWatch : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::minutes watchFor{10};
    static constexpr std::chrono::seconds quietFor{1};

    explicit SettleWatch(QObject *parent = nullptr);

    // `taken` is the file as the attempt saw it; none when it could not be looked at.
    void watch(qint64 photo, const QString &path, std::optional<FileStamp> taken);
    void forget(qint64 photo);
    bool isWatching(qint64 photo) const { return m_watched.contains(photo); }

Q_SIGNALS:
    // The file is not what the attempt took, and has been quiet for a second since.
    void changedAndSettled(qint64 photo);

private:
    struct Watched {
        QString path;
        std::optional<FileStamp> taken;
        std::optional<FileStamp> last;
        bool changed = false;
        QElapsedTimer sinceWatched;
        QElapsedTimer sinceLastChange;
    };
    void look();

    std::map<qint64, Watched> m_watched;
    QTimer m_tick;
};
