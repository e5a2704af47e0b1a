// SPDX-License-Identifier: MIT
#include "journaldatabase.h"

#include "journalschema.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>

// SQLite's primary result codes, as the driver reports them.
QString JournalDatabase::describe(const QSqlError &error)
{
    const QString code = error.nativeErrorCode();
    if (code == QLatin1String("13"))
        return QStringLiteral("el disco está lleno");
    if (code == QLatin1String("8"))
        return QStringLiteral("el archivo es de solo lectura");
    if (code == QLatin1String("10"))
        return QStringLiteral("error al escribir en el disco");
    if (code == QLatin1String("5") || code == QLatin1String("6"))
        return QStringLiteral("otro programa lo tiene bloqueado");
    return error.text();
}

JournalDatabase::JournalDatabase(QObject *parent)
    : QObject(parent)
    , m_connection(QStringLiteral("delivery-journal-") +
                   QUuid::createUuid().toString(QUuid::WithoutBraces))
{
}

JournalDatabase::~JournalDatabase()
{
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
    m_open = true;
    return true;
}

QSqlQuery JournalDatabase::query() const
{
    return QSqlQuery(QSqlDatabase::database(m_connection, false));
}

bool JournalDatabase::run(QSqlQuery &query, const QString &statement, const QVariantList &values)
    const
{
    if (!query.prepare(statement))
        return false;
    for (const QVariant &value : values)
        query.addBindValue(value);
    return query.exec();
}

void JournalDatabase::wrote(bool ok, const QSqlQuery &query)
{
    // Inside a transaction only its commit says whether the writes are on disk.
    if (m_inTransaction) {
        if (!ok)
            m_failedInTransaction = describe(query.lastError());
        return;
    }
    setWriteFailure(ok ? std::nullopt : std::optional(describe(query.lastError())));
}

bool JournalDatabase::write(const QString &statement, const QVariantList &values)
{
    if (!m_open)
        return false;
    QSqlQuery writing = query();
    const bool ok = run(writing, statement, values);
    wrote(ok, writing);
    return ok;
}

qint64 JournalDatabase::insert(const QString &statement, const QVariantList &values)
{
    if (!m_open)
        return 0;
    QSqlQuery inserting = query();
    const bool ok = run(inserting, statement, values);
    wrote(ok, inserting);
    return ok ? inserting.lastInsertId().toLongLong() : 0;
}

bool JournalDatabase::writeTogether(const std::function<bool()> &writes)
{
    if (!m_open)
        return false;
    QSqlDatabase database = QSqlDatabase::database(m_connection, false);
    if (!database.transaction()) {
        setWriteFailure(describe(database.lastError()));
        return false;
    }
    m_inTransaction = true;
    m_failedInTransaction.reset();
    const bool written = writes();
    m_inTransaction = false;
    if (written && database.commit()) {
        setWriteFailure(std::nullopt);
        return true;
    }
    std::optional<QString> failure = std::exchange(m_failedInTransaction, std::nullopt);
    if (!failure)
        failure = describe(database.lastError());
    database.rollback();
    setWriteFailure(std::move(failure));
    return false;
}

bool JournalDatabase::read(QSqlQuery &reading, const QString &statement,
                           const QVariantList &values) const
{
    if (!m_open)
        return false;
    reading.setForwardOnly(true);
    return run(reading, statement, values);
}

void JournalDatabase::setWriteFailure(std::optional<QString> failure)
{
    if (m_writeFailure == failure)
        return;
    m_writeFailure = std::move(failure);
    Q_EMIT writeFailureChanged();
}
