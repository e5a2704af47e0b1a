// SPDX-License-Identifier: MIT
#include "journalschema.h"

#include "journaldatabase.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

namespace {

// What takes a journal from the version before to this one. Steps are only ever added: a step
// that shipped is never changed, since journals out there went through it as it was.
QStringList stepTo(int version)
{
    switch (version) {
    case 1:
        return {
            QStringLiteral("CREATE TABLE IF NOT EXISTS sessions ("
                           "folder_id INTEGER PRIMARY KEY, slug TEXT, "
                           "client_name TEXT NOT NULL, opened_at INTEGER NOT NULL)"),
            QStringLiteral("CREATE TABLE IF NOT EXISTS photos ("
                           "id INTEGER PRIMARY KEY AUTOINCREMENT, "
                           "folder_id INTEGER NOT NULL REFERENCES sessions(folder_id), "
                           "path TEXT NOT NULL, size INTEGER NOT NULL, "
                           "modified_ms INTEGER NOT NULL, handed_at INTEGER NOT NULL, "
                           "preview_url TEXT, preview_key TEXT, preview_bucket TEXT, "
                           "registration_sent INTEGER NOT NULL DEFAULT 0, "
                           "preview_registered_at INTEGER, "
                           "preview_size INTEGER, preview_modified_ms INTEGER, "
                           "original_size INTEGER, original_modified_ms INTEGER, "
                           "original_presign BLOB, original_stored_at INTEGER, "
                           "original_resend INTEGER NOT NULL DEFAULT 0, refusal TEXT, "
                           "refused_at INTEGER)"),
        };
    case 2:
        // The live session itself, so that it outlives the program: its links, its folder and
        // the names that were in it at the start, whether it is paused, and how its recording
        // ended. Sessions of version 1 were never meant to be taken up again: they read as left.
        return {
            QStringLiteral("ALTER TABLE sessions ADD COLUMN live_url TEXT"),
            QStringLiteral("ALTER TABLE sessions ADD COLUMN gallery_url TEXT"),
            QStringLiteral("ALTER TABLE sessions ADD COLUMN watch_folder TEXT"),
            QStringLiteral("ALTER TABLE sessions ADD COLUMN paused INTEGER NOT NULL DEFAULT 0"),
            QStringLiteral("ALTER TABLE sessions ADD COLUMN ending TEXT NOT NULL DEFAULT 'left'"),
            QStringLiteral("ALTER TABLE photos ADD COLUMN preview_presign BLOB"),
            // The shot a photo belongs to: a RAW and its JPEG are one photo for the client. `shot`
            // is the number of the shot's first file; its preview stands for the shot, and
            // `preview_by_partner` marks a file whose preview another file of the shot gave.
            QStringLiteral("ALTER TABLE photos ADD COLUMN base_name TEXT"),
            QStringLiteral("ALTER TABLE photos ADD COLUMN captured_ms INTEGER"),
            QStringLiteral("ALTER TABLE photos ADD COLUMN captured_exact INTEGER NOT NULL "
                           "DEFAULT 0"),
            QStringLiteral("ALTER TABLE photos ADD COLUMN shot INTEGER"),
            QStringLiteral("ALTER TABLE photos ADD COLUMN preview_by_partner INTEGER NOT NULL "
                           "DEFAULT 0"),
            QStringLiteral("ALTER TABLE photos ADD COLUMN preview_unmakeable INTEGER NOT NULL "
                           "DEFAULT 0"),
            QStringLiteral("CREATE TABLE known_names ("
                           "folder_id INTEGER NOT NULL REFERENCES sessions(folder_id), "
                           "name TEXT NOT NULL, skipped INTEGER NOT NULL, "
                           "PRIMARY KEY (folder_id, name)) WITHOUT ROWID"),
            QStringLiteral("CREATE INDEX photos_by_session ON photos(folder_id)"),
        };
    default:
        return {};
    }
}

bool exec(QSqlDatabase &database, const QString &statement, QString *error)
{
    QSqlQuery query(database);
    if (query.exec(statement))
        return true;
    *error = JournalDatabase::describe(query.lastError());
    return false;
}

} // namespace

int JournalSchema::versionOf(QSqlDatabase &database)
{
    QSqlQuery query(database);
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next())
        return -1;
    const int version = query.value(0).toInt();
    if (version > 0)
        return version;
    // The first release set no version: its tables say it was there.
    return database.tables().contains(QStringLiteral("photos")) ? 1 : 0;
}

bool JournalSchema::upgrade(QSqlDatabase &database, QString *error)
{
    const int found = versionOf(database);
    if (found < 0) {
        *error = JournalDatabase::describe(database.lastError());
        return false;
    }
    if (found > latest) {
        *error = QStringLiteral("lo escribió una versión más nueva de Quillmere Live");
        return false;
    }
    for (int version = found + 1; version <= latest; ++version) {
        if (!database.transaction()) {
            *error = JournalDatabase::describe(database.lastError());
            return false;
        }
        bool ok = true;
        for (const QString &statement : stepTo(version))
            ok = ok && exec(database, statement, error);
        // PRAGMA takes no bound values; the version is a number of ours.
        ok = ok && exec(database, QStringLiteral("PRAGMA user_version = %1").arg(version), error);
        if (!ok || !database.commit()) {
            if (ok)
                *error = JournalDatabase::describe(database.lastError());
            database.rollback();
            return false;
        }
    }
    return true;
}
