// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

class QSqlDatabase;

// The journal's tables, release by release. A journal carries the version it was last written
// with (SQLite's user_version); opening it takes it from there to the latest, one version at a
// time, each step in a transaction of its own, so a journal left by any earlier release opens
// with everything it holds and is upgraded in place. A new journal is made by the same steps.
// Version 1 is the journal as first shipped, which carried no number.
class JournalSchema {
public:
    static constexpr int latest = 2;

    // Brings the database to `latest`; false, with `error`, when a step fails or when the
    // journal was written by a newer release, which this one must leave as it is.
    static bool upgrade(QSqlDatabase &database, QString *error);
    // The version the database is at: 0 for an empty one.
    static int versionOf(QSqlDatabase &database);
};
