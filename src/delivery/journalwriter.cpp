// SPDX-License-Identifier: MIT
#include "journalwriter.h"

#include "deliverylog.h"
#include "journaldatabase.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QElapsedTimer>
#include <QUuid>

JournalWriter::JournalWriter(QString path, Committed committed)
    : m_path(std::move(path))
    , m_committed(std::move(committed))
    , m_thread([this] { run(); })
{
}

JournalWriter::~JournalWriter()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_queued.notify_one();
    m_thread.join();
}

quint64 JournalWriter::queue(QList<Statement> together)
{
    quint64 number = 0;
    {
        const std::lock_guard lock(m_mutex);
        number = ++m_last;
        if (m_items.empty())
            m_oldestQueued = std::chrono::steady_clock::now();
        m_items.push_back({number, std::move(together)});
    }
    m_queued.notify_one();
    return number;
}

void JournalWriter::urge(quint64 number)
{
    {
        const std::lock_guard lock(m_mutex);
        m_urgedUpTo = std::max(m_urgedUpTo, number);
    }
    m_queued.notify_one();
}

void JournalWriter::waitFor(quint64 number)
{
    urge(number);
    std::unique_lock lock(m_mutex);
    m_written.wait(lock, [&] { return m_writtenUpTo >= number; });
}

void JournalWriter::run()
{
    // A connection belongs to the thread that uses it.
    const QString connection = QStringLiteral("delivery-journal-writer-") +
                               QUuid::createUuid().toString(QUuid::WithoutBraces);
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        database.setDatabaseName(m_path);
        database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
        std::optional<QString> failure;
        if (!database.open())
            failure = JournalDatabase::describe(database.lastError());
        QSqlQuery pragma(database);
        // A commit is on disk when it returns: a step written down survives a power cut.
        if (!failure && !pragma.exec(QStringLiteral("PRAGMA synchronous=FULL")))
            failure = JournalDatabase::describe(pragma.lastError());

        for (;;) {
            std::deque<Item> group;
            {
                std::unique_lock lock(m_mutex);
                m_queued.wait(lock, [&] { return m_stopping || !m_items.empty(); });
                // Written now when somebody waits for it, else once it has waited long enough.
                m_queued.wait_until(lock, m_oldestQueued + longestWait, [&] {
                    return m_stopping || m_urgedUpTo > m_writtenUpTo;
                });
                if (m_items.empty())
                    break; // stopping, with nothing left
                group.swap(m_items);
            }
            QElapsedTimer took;
            took.start();
            const std::optional<QString> failed = failure ? failure : commit(connection, group);
            const quint64 upTo = group.back().number;
            qsizetype statements = 0;
            for (const Item &item : group)
                statements += item.statements.size();
            if (failed)
                qCWarning(journalLog, "writes %llu to %llu (%lld statements) failed in %lld ms: %s",
                          group.front().number, upTo, qlonglong(statements), took.elapsed(),
                          qPrintable(*failed));
            else
                qCDebug(journalLog, "writes %llu to %llu (%lld statements) on disk in %lld ms",
                        group.front().number, upTo, qlonglong(statements), took.elapsed());
            {
                const std::lock_guard lock(m_mutex);
                m_writtenUpTo = upTo;
            }
            m_written.notify_all();
            m_committed(upTo, failed);
        }
        database.close();
    }
    QSqlDatabase::removeDatabase(connection);
}

std::optional<QString> JournalWriter::commit(const QString &connection,
                                             const std::deque<Item> &group)
{
    // The transaction's statements made here rather than by QSqlDatabase, whose failed commit
    // loses SQLite's error code, and with it the full disk's own words.
    QSqlDatabase database = QSqlDatabase::database(connection, false);
    QSqlQuery transaction(database);
    if (!transaction.exec(QStringLiteral("BEGIN")))
        return JournalDatabase::describe(transaction.lastError());
    for (const Item &item : group) {
        for (const auto &[statement, values] : item.statements) {
            QSqlQuery query(database);
            bool ok = query.prepare(statement);
            for (const QVariant &value : values)
                query.addBindValue(value);
            if (!ok || !query.exec()) {
                const QString failure = JournalDatabase::describe(query.lastError());
                transaction.exec(QStringLiteral("ROLLBACK"));
                return failure;
            }
        }
    }
    if (!transaction.exec(QStringLiteral("COMMIT"))) {
        const QString failure = JournalDatabase::describe(transaction.lastError());
        transaction.exec(QStringLiteral("ROLLBACK"));
        return failure;
    }
    return std::nullopt;
}
