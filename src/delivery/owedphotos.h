// SPDX-License-Identifier: MIT
#pragma once

#include "photoprogress.h"
#include "retryschedule.h"

#include <QDeadlineTimer>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUrl>

#include <map>

// The photos handed to delivery whose original is not stored yet, and when those that wait go
// again: a round after the backoff's next wait, or at once when asked, but never before a busy
// server said to come back. Main thread only.
class OwedPhotos : public QObject {
    Q_OBJECT
public:
    struct Photo {
        qint64 folderId = 0;
        QUrl fileURL;
        PhotoProgress progress;
        bool inFlight = false;
        bool waiting = false; // an attempt failed, or an earlier run left it owed
        int signInEpoch = 0;  // which sign-in its latest attempt went out under
        qint64 shot = 0;      // the shot it belongs to: the number of its first file
        bool pairing = false; // which shot it belongs to is being found out
        bool held = false;    // it waits for another file of its shot
    };

    explicit OwedPhotos(QObject *parent = nullptr);

    void add(qint64 photo, Photo owed);
    void remove(qint64 photo);
    Photo *find(qint64 photo);
    bool contains(qint64 photo) const { return m_owed.contains(photo); }
    bool isEmpty() const { return m_owed.empty(); }
    int size() const { return static_cast<int>(m_owed.size()); }
    int sizeFor(qint64 folderId) const;
    int waitingCount() const;
    bool anyDue() const;

    // Every photo that waits and is not under way nor waiting for another file of its shot.
    QList<qint64> takeDue(int signInEpoch);

    // The next round after the backoff's next wait, unless one is already set.
    void retryLater();
    void cancelRetry() { m_retry.stop(); }
    // Something went through: the next failure starts again from the shortest wait.
    void resetBackoff() { m_schedule.reset(); }
    // A busy server asked for this wait before anything goes again: the next round comes no
    // sooner, and the wait is kept within the backoff's own bounds (a server that asks for
    // nothing gets the shortest wait, one that asks for an hour the longest).
    void holdOff(std::chrono::milliseconds asked);
    // Whether that wait is still on; if so, the next round is set for its end.
    bool waitOutHoldOff();

Q_SIGNALS:
    void retryDue();

private:
    std::chrono::milliseconds holdOffLeft() const;

    std::map<qint64, Photo> m_owed;
    RetrySchedule m_schedule;
    QTimer m_retry;
    QDeadlineTimer m_holdOff; // expired unless a server asked for a wait

};
