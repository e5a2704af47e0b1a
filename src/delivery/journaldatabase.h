// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>

#include <functional>
#include <optional>

class QSqlError;
class QSqlQuery;

// The SQLite database the journal lives in: opened in write-ahead mode with a full sync at
// every commit, so that a committed write survives a power cut and a crash mid-write leaves the
// previous state whole; brought up to the program's schema; and watched for writes it cannot
// make (a full disk, a read-only file). The photographer must be told of those: the first
// failure is announced, and so is the next write that goes through again. Main thread only.
class JournalDatabase : public QObject {
    Q_OBJECT
public:
    explicit JournalDatabase(QObject *parent = nullptr);
    ~JournalDatabase() override;

    // Opens (creating when new) and upgrades the database at `path`; false, with
    // errorString(), when it cannot be opened or brought to this program's schema.
    bool open(const QString &path);
    bool isOpen() const { return m_open; }
    QString errorString() const { return m_error; }
    // Why the latest write failed, in the photographer's words ("el disco está lleno"); none
    // while writes go through.
    const std::optional<QString> &writeFailure() const { return m_writeFailure; }

    // One write, committed before it returns.
    bool write(const QString &statement, const QVariantList &values = {});
    // An insert; the new row's id, or 0 when it could not be written.
    qint64 insert(const QString &statement, const QVariantList &values);
    // Several writes that are committed together or not at all.
    bool writeTogether(const std::function<bool()> &writes);
    // A read; rows are taken with next(). False (and nothing to take) when it fails.
    bool read(QSqlQuery &query, const QString &statement, const QVariantList &values = {}) const;
    // A query on this database, for read().
    QSqlQuery query() const;

    // What went wrong, in the photographer's words where SQLite says it plainly ("el disco
    // está lleno"), else as SQLite says it.
    static QString describe(const QSqlError &error);

Q_SIGNALS:
    void writeFailureChanged();

private:
    bool run(QSqlQuery &query, const QString &statement, const QVariantList &values) const;
    void wrote(bool ok, const QSqlQuery &query);
    void setWriteFailure(std::optional<QString> failure);

    QString m_connection;
    bool m_open = false;
    bool m_inTransaction = false;
    std::optional<QString> m_failedInTransaction;
    QString m_error;
    std::optional<QString> m_writeFailure;
};
