// SPDX-License-Identifier: MIT
#include "journaldatabase.h"

#include "journalschema.h"
#include "journalwriter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>

// SQLite's result codes, as the driver reports them; an extended code keeps its primary one in
// its low byte.
QString JournalDatabase::describe(const QSqlError &error)
{
    bool numeric = false;
    const int code = error.nativeErrorCode().toInt(&numeric) & 0xFF;
    if (numeric && code == 13)
        return QStringLiteral("el disco está lleno");
    if (numeric && code == 8)
        return QStringLiteral("el archivo es de solo lectura");
    if (numeric && code == 10)
        return QStringLiteral("error al escribir en el disco");
    if (numeric && (code == 5 || code == 6))
        return QStringLiteral("otro programa lo tiene bloqueado");
    return error.text();
}

JournalDatabase::JournalDatabase(QObject *parent)
    : QObject(parent)
    , m_connection(QStringLiteral("delivery-journal-") +
                   QUuid::createUuid().toString(QUuid::WithoutBraces))
{
    m_clearFailure.setSingleShot(true);
    connect(&m_clearFailure, &QTimer::timeout, this, [this] {
        m_writeFailure.reset();
        Q_EMIT writeFailureChanged();
    });
}

JournalDatabase::~JournalDatabase()
{
    if (m_writer)
        handOver();
    m_writer.reset();
    {
        QSqlDatabase database = QSqlDatabase::database(m_connection, false);
        if (database.isValid())
            database.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

bool JournalDatabase::open(const QString &path)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        m_error = QStringLiteral("no se pudo crear su carpeta, ") + QFileInfo(path).absolutePath();
        return false;
    }
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    database.setDatabaseName(path);
    // A second program writing at the same moment waits for the lock instead of failing.
    database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
    if (!database.open()) {
        m_error = describe(database.lastError());
        return false;
    }
    QSqlQuery pragma(database);
    if (!pragma.exec(QStringLiteral("PRAGMA journal_mode=WAL")) ||
        !pragma.exec(QStringLiteral("PRAGMA synchronous=FULL"))) {
        m_error = describe(pragma.lastError());
        return false;
    }
    if (!JournalSchema::upgrade(database, &m_error))
        return false;
    // Told on the writer's thread, which ends before this object does; what it means is the
    // main thread's business.
    m_writer = std::make_unique<JournalWriter>(
        path, [this](quint64 upTo, std::optional<QString> failure) {
            QMetaObject::invokeMethod(
                this, [this, upTo, failure] { committed(upTo, failure); }, Qt::QueuedConnection);
        });
    m_open = true;
    return true;
}

QSqlQuery JournalDatabase::query() const
{
    return QSqlQuery(QSqlDatabase::database(m_connection, false));
}

void JournalDatabase::write(const QString &statement, const QVariantList &values)
{
    if (!m_open)
        return;
    m_pending.append({statement, values});
    // A photo's steps often come several in a turn (its preview stored, its registration about
    // to go): they make one transaction, one sync.
    if (!m_handOverPosted) {
        m_handOverPosted = true;
        QMetaObject::invokeMethod(this, &JournalDatabase::handOver, Qt::QueuedConnection);
    }
}

void JournalDatabase::handOver()
{
    m_handOverPosted = false;
    if (!m_pending.isEmpty())
        m_queued = m_writer->queue(std::exchange(m_pending, {}));
}

JournalDatabase::Durable JournalDatabase::durable(Urgency urgency)
{
    // Whoever waits holds the journal, which holds this database: it outlives the wait. What
    // it waits for goes now, not at the end of the turn.
    if (!m_open)
        return Durable(*this, 0);
    handOver();
    if (urgency == Urgency::now && m_committed < m_queued)
        m_writer->urge(m_queued);
    return Durable(*this, m_queued);
}

void JournalDatabase::hurry()
{
    if (!m_writer)
        return;
    handOver();
    m_writer->urge(m_queued);
}

void JournalDatabase::waitForWrites()
{
    if (!m_writer)
        return;
    handOver();
    m_writer->waitFor(m_queued);
    // What the writer said on its way is taken in now, not at some later turn.
    QCoreApplication::sendPostedEvents(this);
}

void JournalDatabase::committed(quint64 number, std::optional<QString> failure)
{
    m_committed = std::max(m_committed, number);
    setWriteFailure(std::move(failure));
    // Taken out before any is resumed: a waiter that goes on may queue and wait again.
    std::vector<std::coroutine_handle<>> ready;
    std::erase_if(m_waiters, [&](const Waiter &waiter) {
        if (waiter.upTo > m_committed)
            return false;
        ready.push_back(waiter.handle);
        return true;
    });
    for (const std::coroutine_handle<> handle : ready)
        handle.resume();
}

bool JournalDatabase::read(QSqlQuery &reading, const QString &statement,
                           const QVariantList &values) const
{
    if (!m_open)
        return false;
    reading.setForwardOnly(true);
    if (!reading.prepare(statement))
        return false;
    for (const QVariant &value : values)
        reading.addBindValue(value);
    return reading.exec();
}

void JournalDatabase::setWriteFailure(std::optional<QString> failure)
{
    // On a disk that is full, a small write sometimes finds room where a larger one did not:
    // the photographer is told until writes have gone through for a while, not in flickers.
    if (failure) {
        m_lastFailure.start();
        m_clearFailure.stop();
    } else if (m_writeFailure && !m_lastFailure.hasExpired(failureSticksMs)) {
        if (!m_clearFailure.isActive())
            m_clearFailure.start(int(failureSticksMs - m_lastFailure.elapsed()));
        return;
    }
    if (m_writeFailure == failure)
        return;
    m_writeFailure = std::move(failure);
    Q_EMIT writeFailureChanged();
}
