// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>

#include <chrono>

class QNetworkReply;

// Keeps an eye on the replies under way: how long each has gone without a byte moving either
// way. A request sent into a dead connection (a link gone quiet, a laptop back from sleep on
// another network) moves nothing until its transfer timeout, a minute later; once a fresh
// connection shows the service answers again, such a request is better given up at once and
// sent anew.
class ReplyWatch : public QObject {
    Q_OBJECT
public:
    void watch(QNetworkReply *reply);

    // The longest any reply under way has gone without progress; zero when none is under way.
    std::chrono::milliseconds longestStall() const;
    // Aborts every reply that has gone without progress for at least `stall`; how many.
    int abortStalled(std::chrono::milliseconds stall);

private:
    struct Watched {
        QPointer<QNetworkReply> reply;
        QElapsedTimer sinceProgress;
    };
    void forgetFinished();

    QList<Watched> m_replies;
};
