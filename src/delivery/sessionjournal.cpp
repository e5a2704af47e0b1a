// SPDX-License-Identifier: MIT
#include "sessionjournal.h"

#include "journaldatabase.h"

#include <QDateTime>
#include <QFileInfo>
#include <QSqlQuery>

namespace {

QString text(RecordedSession::Ending ending)
{
    switch (ending) {
    case RecordedSession::Ending::recording:
        return QStringLiteral("recording");
    case RecordedSession::Ending::quit:
        return QStringLiteral("quit");
    case RecordedSession::Ending::stopped:
        return QStringLiteral("stopped");
    case RecordedSession::Ending::left:
        break;
    }
    return QStringLiteral("left");
}

RecordedSession::Ending ending(const QString &text)
{
    if (text == QLatin1String("recording"))
        return RecordedSession::Ending::recording;
    if (text == QLatin1String("quit"))
        return RecordedSession::Ending::quit;
    if (text == QLatin1String("stopped"))
        return RecordedSession::Ending::stopped;
    return RecordedSession::Ending::left;
}

const QString insertName = QStringLiteral(
    "INSERT OR IGNORE INTO known_names (folder_id, name, skipped) VALUES (?, ?, ?)");

} // namespace

SessionJournal::SessionJournal(JournalDatabase &database)
    : m_database(database)
{
}

void SessionJournal::record(const RecordedSession &session, const QSet<QString> &namesAtStart)
{
    // One turn's writes: the session and its names go to disk together or not at all.
    m_database.write(QStringLiteral("UPDATE sessions SET ending = 'left' WHERE ending IN "
                                    "('recording', 'quit') AND folder_id != ?"),
                     {session.folderId});
    m_database.write(
        QStringLiteral("INSERT INTO sessions (folder_id, slug, client_name, opened_at, "
                       "live_url, gallery_url, watch_folder, paused, ending) "
                       "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT(folder_id) DO UPDATE "
                       "SET slug = excluded.slug, client_name = excluded.client_name, "
                       "live_url = excluded.live_url, gallery_url = excluded.gallery_url, "
                       "watch_folder = excluded.watch_folder, paused = excluded.paused, "
                       "ending = excluded.ending"),
        {session.folderId, session.slug, session.clientName,
         QDateTime::currentMSecsSinceEpoch(), session.liveURL, session.galleryURL,
         session.watchFolder.toLocalFile(), session.paused ? 1 : 0, text(session.ending)});
    for (const QString &name : namesAtStart)
        m_database.write(insertName, {session.folderId, name, 0});
}

void SessionJournal::setPaused(qint64 folderId, bool paused)
{
    m_database.write(QStringLiteral("UPDATE sessions SET paused = ? WHERE folder_id = ?"),
                     {paused ? 1 : 0, folderId});
}

void SessionJournal::setEnding(qint64 folderId, RecordedSession::Ending ending)
{
    m_database.write(QStringLiteral("UPDATE sessions SET ending = ? WHERE folder_id = ?"),
                     {text(ending), folderId});
}

void SessionJournal::addSkippedName(qint64 folderId, const QString &name)
{
    m_database.write(insertName, {folderId, name, 1});
}

void SessionJournal::addSkippedNames(qint64 folderId, const QSet<QString> &names)
{
    if (names.isEmpty())
        return;
    for (const QString &name : names)
        m_database.write(insertName, {folderId, name, 1});
}

std::optional<RecordedSession> SessionJournal::first(const QString &condition,
                                                     const QVariantList &values) const
{
    QSqlQuery query = m_database.query();
    if (!m_database.read(query,
                         QStringLiteral("SELECT folder_id, slug, client_name, live_url, "
                                        "gallery_url, watch_folder, paused, ending FROM sessions "
                                        "WHERE ") +
                             condition + QStringLiteral(" ORDER BY opened_at DESC LIMIT 1"),
                         values) ||
        !query.next())
        return std::nullopt;
    RecordedSession session;
    session.folderId = query.value(0).toLongLong();
    session.slug = query.value(1).toString();
    session.clientName = query.value(2).toString();
    session.liveURL = query.value(3).toString();
    session.galleryURL = query.value(4).toString();
    session.watchFolder = QUrl::fromLocalFile(query.value(5).toString());
    session.paused = query.value(6).toBool();
    session.ending = ending(query.value(7).toString());
    return session;
}

std::optional<RecordedSession> SessionJournal::live() const
{
    // A session without its folder cannot be watched again.
    return first(QStringLiteral("ending IN ('recording', 'quit') AND watch_folder IS NOT NULL "
                                "AND watch_folder != ''"),
                 {});
}

std::optional<RecordedSession> SessionJournal::session(qint64 folderId) const
{
    return first(QStringLiteral("folder_id = ?"), {folderId});
}

QSet<QString> SessionJournal::knownNames(qint64 folderId) const
{
    QSet<QString> names;
    QSqlQuery query = m_database.query();
    if (m_database.read(query, QStringLiteral("SELECT name FROM known_names WHERE folder_id = ?"),
                        {folderId})) {
        while (query.next())
            names.insert(query.value(0).toString());
    }
    QSqlQuery handed = m_database.query();
    if (m_database.read(handed, QStringLiteral("SELECT path FROM photos WHERE folder_id = ?"),
                        {folderId})) {
        while (handed.next())
            names.insert(QFileInfo(handed.value(0).toString()).fileName());
    }
    return names;
}

RecordedCounts SessionJournal::counts(qint64 folderId) const
{
    RecordedCounts counts;
    QSqlQuery query = m_database.query();
    // An original sent again because its file changed was stored before: it counts.
    if (m_database.read(
            query,
            QStringLiteral("SELECT SUM(preview_registered_at IS NOT NULL AND preview_by_partner = 0), "
                           "COUNT(preview_registered_at), "
                           "SUM(original_stored_at IS NOT NULL OR original_resend = 1) "
                           "FROM photos WHERE folder_id = ?"),
            {folderId}) &&
        query.next()) {
        counts.shotsShown = query.value(0).toLongLong();
        counts.originalsDue = query.value(1).toLongLong();
        counts.originalsStored = query.value(2).toLongLong();
    }
    return counts;
}

void SessionJournal::forgetFinishedNames()
{
    m_database.write(QStringLiteral("DELETE FROM known_names WHERE folder_id IN (SELECT folder_id "
                                    "FROM sessions WHERE ending IN ('stopped', 'left'))"));
}
