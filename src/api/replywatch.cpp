// SPDX-License-Identifier: MIT
#include "replywatch.h"

#include <QNetworkReply>

#include <algorithm>

void ReplyWatch::watch(QNetworkReply *reply)
{
    forgetFinished();
    QElapsedTimer started;
    started.start();
    m_replies.append({reply, started});
    const auto progressed = [this, reply] {
        for (Watched &watched : m_replies) {
            if (watched.reply == reply)
                watched.sinceProgress.restart();
        }
    };
    connect(reply, &QNetworkReply::uploadProgress, this, progressed);
    connect(reply, &QNetworkReply::downloadProgress, this, progressed);
    connect(reply, &QNetworkReply::metaDataChanged, this, progressed);
}

void ReplyWatch::forgetFinished()
{
    m_replies.removeIf([](const Watched &watched) {
        return !watched.reply || watched.reply->isFinished();
    });
}

std::chrono::milliseconds ReplyWatch::longestStall() const
{
    qint64 longest = 0;
    for (const Watched &watched : m_replies) {
        if (watched.reply && !watched.reply->isFinished())
            longest = std::max(longest, watched.sinceProgress.elapsed());
    }
    return std::chrono::milliseconds(longest);
}

int ReplyWatch::abortStalled(std::chrono::milliseconds stall)
{
    forgetFinished();
    QList<QPointer<QNetworkReply>> stalled;
    for (const Watched &watched : m_replies) {
        if (watched.sinceProgress.elapsed() >= stall.count())
            stalled.append(watched.reply);
    }
    // Aborting finishes the reply at once and resumes whoever awaits it, which may start new
    // requests: the list is settled before the first abort.
    for (const QPointer<QNetworkReply> &reply : stalled) {
        if (reply)
            reply->abort();
    }
    return static_cast<int>(stalled.size());
}
