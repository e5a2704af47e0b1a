// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>
#include <QVariantList>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

// Writes the journal on a thread of its own. What the main thread queues is written in order
// and committed in groups. A commit is made as soon as somebody waits for a write to be on disk
// (urge), or when what is queued has waited a quarter of a second: writes nobody waits for ride
// along with the next that somebody does, and everything queued while one commit is syncing
// goes into the next. So on a disk that takes tens of milliseconds to sync, one sync carries
// many steps, and nobody on the main thread ever waits for one. Each queued item is numbered;
// `committed` is told, on this writer's thread, when every item up to a number is on disk or has
// failed, and why.
class JournalWriter {
public:
    using Statement = std::pair<QString, QVariantList>;
    using Committed = std::function<void(quint64 upTo, std::optional<QString> failure)>;

    // Opens a connection of its own to the database at `path` (already made and upgraded).
    JournalWriter(QString path, Committed committed);
    // Writes what is queued, then stops.
    ~JournalWriter();
    JournalWriter(const JournalWriter &) = delete;
    JournalWriter &operator=(const JournalWriter &) = delete;

    static constexpr std::chrono::milliseconds longestWait{250};

    // Statements committed together or not at all; the item's number.
    quint64 queue(QList<Statement> together);
    // Somebody waits for everything up to `number` to be on disk: commit it without lingering.
    void urge(quint64 number);
    // Blocks until every item up to `number` is written or has failed.
    void waitFor(quint64 number);

private:
    struct Item {
        quint64 number = 0;
        QList<Statement> statements;
    };
    void run();
    // One group in one transaction; the failure, if any.
    std::optional<QString> commit(const QString &connection, const std::deque<Item> &group);

    const QString m_path;
    const Committed m_committed;
    std::mutex m_mutex;
    std::condition_variable m_queued;
    std::condition_variable m_written;
    std::deque<Item> m_items;
    quint64 m_last = 0;
    quint64 m_writtenUpTo = 0;
    quint64 m_urgedUpTo = 0;
    std::chrono::steady_clock::time_point m_oldestQueued;
    bool m_stopping = false;
    std::thread m_thread;
};
