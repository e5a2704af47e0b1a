// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantList>

#include <coroutine>
#include <memory>
#include <optional>
#include <vector>

class JournalWriter;
class QSqlError;
class QSqlQuery;

// The SQLite database the journal lives in, in write-ahead mode: a committed write survives a
// power cut, and a crash mid-write leaves the previous state whole. It is brought up to the
// program's schema when opened. Writes go to a writer of their own (JournalWriter), which
// commits them in groups on its own thread, so the main thread never waits for a disk: the
// writes of one turn of the event loop go as one, and whoever must know that what it wrote is
// on disk before it goes on (a photo handed over, before its first request) awaits durable().
// Reads are the main thread's, on a connection of their own, and see what is on disk. A write it cannot make (a full disk, a read-only file) is told, from
// the first failure until writes have gone through again for a while. Main thread only.
class JournalDatabase : public QObject {
    Q_OBJECT
public:
    explicit JournalDatabase(QObject *parent = nullptr);
    // What is queued is written first.
    ~JournalDatabase() override;

    // Opens (creating when new) and upgrades the database at `path`; false, with
    // errorString(), when it cannot be opened or brought to this program's schema.
    bool open(const QString &path);
    bool isOpen() const { return m_open; }
    QString errorString() const { return m_error; }
    // Why the latest write failed, in the photographer's words ("el disco está lleno"); none
    // while writes go through.
    const std::optional<QString> &writeFailure() const { return m_writeFailure; }

    // Queued; written in order with everything else. The writes of one turn of the event loop
    // are committed together or not at all.
    void write(const QString &statement, const QVariantList &values = {});
    // co_await: goes on once everything queued so far is on disk, or has failed; at once when
    // asked for now, or when it goes with the next commit somebody waits for.
    enum class Urgency { now, whenConvenient };
    class Durable;
    [[nodiscard]] Durable durable(Urgency urgency = Urgency::now);
    // The same, waiting: for closing, and for a test that reads what it wrote.
    void waitForWrites();
    // Everything queued so far goes to disk now, without waiting for it: what will be waited
    // for a little later is on disk by then.
    void hurry();

    // A read of what is on disk; rows are taken with next(). False when it fails.
    bool read(QSqlQuery &query, const QString &statement, const QVariantList &values = {}) const;
    QSqlQuery query() const;

    // What went wrong, in the photographer's words where SQLite says it plainly ("el disco
    // está lleno"), else as SQLite says it.
    static QString describe(const QSqlError &error);

Q_SIGNALS:
    void writeFailureChanged();

private:
    void committed(quint64 number, std::optional<QString> failure);
    // The writes of this turn go to the writer.
    void handOver();
    void setWriteFailure(std::optional<QString> failure);

    QString m_connection;
    bool m_open = false;
    QString m_error;
    std::optional<QString> m_writeFailure;
    std::unique_ptr<JournalWriter> m_writer;
    QList<std::pair<QString, QVariantList>> m_pending;
    bool m_handOverPosted = false;
    quint64 m_queued = 0;
    quint64 m_committed = 0;
    struct Waiter {
        quint64 upTo;
        std::coroutine_handle<> handle;
    };
    std::vector<Waiter> m_waiters;
    static constexpr qint64 failureSticksMs = 10000;
    QElapsedTimer m_lastFailure;
    QTimer m_clearFailure;
};

class JournalDatabase::Durable {
public:
    Durable(JournalDatabase &database, quint64 upTo)
        : m_database(database)
        , m_upTo(upTo) {}
    bool await_ready() const noexcept { return m_database.m_committed >= m_upTo; }
    void await_suspend(std::coroutine_handle<> handle) {
        m_database.m_waiters.push_back({m_upTo, handle});
    }
    void await_resume() const noexcept {}

private:
    JournalDatabase &m_database;
    quint64 m_upTo;
};
