// SPDX-License-Identifier: MIT
#include "deliveryjournal.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QUuid>

namespace {

QString &pathForTests()
{
    static QString path;
    return path;
}

qint64 now() { return QDateTime::currentMSecsSinceEpoch(); }

// Delivered photos are kept a while, so that what happened to a shoot can still be looked up,
// and then dropped so the journal does not grow for ever.
constexpr qint64 keepDeliveredMs = qint64(30) * 24 * 3600 * 1000;

const QString photoColumns = QStringLiteral(
    "p.id, p.folder_id, s.slug, s.client_name, p.path, p.size, p.modified_ms, p.preview_url, "
    "p.preview_key, p.preview_bucket, p.registration_sent, p.preview_registered_at, "
    "p.original_stored_at, p.refusal, p.original_presign, p.original_resend");

} // namespace

PhotoDelivery JournalPhoto::delivery() const
{
    return {id,           fileURL,         storedPreview, registrationSent, previewRegistered,
            originalPresign, originalResend};
}

QString DeliveryJournal::defaultPath()
{
    if (!pathForTests().isEmpty())
        return pathForTests();
    // The generic data folder with our own names below it: the same place whatever the
    // application object was named (~/.local/share on Linux, Application Support on macOS,
    // AppData\Local on Windows).
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/Quillmere/QuillmereLive/delivery-journal.sqlite");
}

void DeliveryJournal::setPathForTests(const QString &path) { pathForTests() = path; }

DeliveryJournal::DeliveryJournal()
    : m_connection(QStringLiteral("delivery-journal-") +
                   QUuid::createUuid().toString(QUuid::WithoutBraces))
{
}

DeliveryJournal::~DeliveryJournal()
{
    {
        QSqlDatabase database = QSqlDatabase::database(m_connection, false);
        if (database.isValid())
            database.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

bool DeliveryJournal::open(const QString &path)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        m_error = QStringLiteral("No se pudo crear la carpeta de ") + path;
        return false;
    }
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    database.setDatabaseName(path);
    // A second program writing at the same moment waits for the lock instead of failing.
    database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
    if (!database.open()) {
        m_error = database.lastError().text();
        return false;
    }
    m_open = true;
    // Write-ahead logging with a sync at every commit: a committed step survives a power cut,
    // and a crash mid-write leaves the previous state whole.
    const bool ready =
        exec(QStringLiteral("PRAGMA journal_mode=WAL")) &&
        exec(QStringLiteral("PRAGMA synchronous=FULL")) &&
        exec(QStringLiteral("CREATE TABLE IF NOT EXISTS sessions ("
                            "folder_id INTEGER PRIMARY KEY, slug TEXT, "
                            "client_name TEXT NOT NULL, opened_at INTEGER NOT NULL)")) &&
        exec(QStringLiteral(
            "CREATE TABLE IF NOT EXISTS photos ("
            "id INTEGER PRIMARY KEY AUTOINCREMENT, "
            "folder_id INTEGER NOT NULL REFERENCES sessions(folder_id), "
            "path TEXT NOT NULL, size INTEGER NOT NULL, modified_ms INTEGER NOT NULL, "
            "handed_at INTEGER NOT NULL, "
            "preview_url TEXT, preview_key TEXT, preview_bucket TEXT, "
            "registration_sent INTEGER NOT NULL DEFAULT 0, preview_registered_at INTEGER, "
            "preview_size INTEGER, preview_modified_ms INTEGER, "
            "original_size INTEGER, original_modified_ms INTEGER, "
            "original_presign BLOB, original_stored_at INTEGER, "
            "original_resend INTEGER NOT NULL DEFAULT 0, refusal TEXT, "
            "refused_at INTEGER)")) &&
        exec(QStringLiteral("DELETE FROM photos WHERE original_stored_at < ?"),
             {now() - keepDeliveredMs});
    if (!ready) {
        m_open = false;
        return false;
    }
    return true;
}

void DeliveryJournal::fail(const QString &what) const { m_error = what; }

bool DeliveryJournal::exec(const QString &statement, const QVariantList &values) const
{
    if (!m_open)
        return false;
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    if (!query.prepare(statement)) {
        fail(query.lastError().text());
        return false;
    }
    for (const QVariant &value : values)
        query.addBindValue(value);
    if (!query.exec()) {
        fail(query.lastError().text());
        return false;
    }
    return true;
}

void DeliveryJournal::recordSession(qint64 folderId, const QString &slug,
                                    const QString &clientName)
{
    exec(QStringLiteral("INSERT INTO sessions (folder_id, slug, client_name, opened_at) "
                        "VALUES (?, ?, ?, ?) ON CONFLICT(folder_id) DO UPDATE SET "
                        "slug = excluded.slug, client_name = excluded.client_name"),
         {folderId, slug, clientName, now()});
}

qint64 DeliveryJournal::addPhoto(qint64 folderId, const QUrl &fileURL, qint64 size,
                                 qint64 modifiedMs)
{
    if (!m_open)
        return 0;
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QStringLiteral("INSERT INTO photos (folder_id, path, size, modified_ms, "
                                 "handed_at) VALUES (?, ?, ?, ?, ?)"));
    query.addBindValue(folderId);
    query.addBindValue(fileURL.toLocalFile());
    query.addBindValue(size);
    query.addBindValue(modifiedMs);
    query.addBindValue(now());
    if (!query.exec()) {
        fail(query.lastError().text());
        return 0;
    }
    return query.lastInsertId().toLongLong();
}

namespace {
QVariant sizeOf(const std::optional<FileStamp> &taken)
{
    return taken ? QVariant(taken->size) : QVariant();
}
QVariant modifiedMsOf(const std::optional<FileStamp> &taken)
{
    return taken ? QVariant(taken->modifiedNanoseconds / 1000000) : QVariant();
}
} // namespace

void DeliveryJournal::setPreviewMade(qint64 photo, const std::optional<FileStamp> &taken)
{
    exec(QStringLiteral("UPDATE photos SET preview_size = ?, preview_modified_ms = ? WHERE id = ?"),
         {sizeOf(taken), modifiedMsOf(taken), photo});
}

void DeliveryJournal::setOriginalRead(qint64 photo, const std::optional<FileStamp> &taken)
{
    exec(QStringLiteral("UPDATE photos SET original_size = ?, original_modified_ms = ? "
                        "WHERE id = ?"),
         {sizeOf(taken), modifiedMsOf(taken), photo});
}

void DeliveryJournal::setRefusalLifted(qint64 photo)
{
    exec(QStringLiteral("UPDATE photos SET refusal = NULL, refused_at = NULL WHERE id = ?"),
         {photo});
}

void DeliveryJournal::setOriginalResend(qint64 photo)
{
    exec(QStringLiteral("UPDATE photos SET original_stored_at = NULL, original_resend = 1 "
                        "WHERE id = ?"),
         {photo});
}

void DeliveryJournal::setPreviewStored(qint64 photo, const StoredPreview &preview)
{
    exec(QStringLiteral("UPDATE photos SET preview_url = ?, preview_key = ?, preview_bucket = ? "
                        "WHERE id = ?"),
         {preview.url, preview.key, preview.bucket, photo});
}

void DeliveryJournal::setRegistrationSent(qint64 photo)
{
    exec(QStringLiteral("UPDATE photos SET registration_sent = 1 WHERE id = ?"), {photo});
}

void DeliveryJournal::setPreviewRegistered(qint64 photo)
{
    exec(QStringLiteral("UPDATE photos SET preview_registered_at = ? WHERE id = ?"),
         {now(), photo});
}

void DeliveryJournal::setOriginalPresign(qint64 photo, const PresignResponse &presign)
{
    exec(QStringLiteral("UPDATE photos SET original_presign = ? WHERE id = ?"),
         {presign.encode(), photo});
}

void DeliveryJournal::setOriginalStored(qint64 photo)
{
    exec(QStringLiteral("UPDATE photos SET original_stored_at = ? WHERE id = ?"), {now(), photo});
}

void DeliveryJournal::setRefused(qint64 photo, const QString &reason)
{
    exec(QStringLiteral("UPDATE photos SET refusal = ?, refused_at = ? WHERE id = ?"),
         {reason, now(), photo});
}

QList<JournalPhoto> DeliveryJournal::select(const QString &condition,
                                            const QVariantList &values) const
{
    QList<JournalPhoto> photos;
    if (!m_open)
        return photos;
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT ") + photoColumns +
                  QStringLiteral(" FROM photos p JOIN sessions s ON s.folder_id = p.folder_id "
                                 "WHERE ") +
                  condition + QStringLiteral(" ORDER BY p.id"));
    for (const QVariant &value : values)
        query.addBindValue(value);
    if (!query.exec()) {
        fail(query.lastError().text());
        return photos;
    }
    while (query.next()) {
        JournalPhoto photo;
        photo.id = query.value(0).toLongLong();
        photo.folderId = query.value(1).toLongLong();
        photo.slug = query.value(2).toString();
        photo.clientName = query.value(3).toString();
        photo.fileURL = QUrl::fromLocalFile(query.value(4).toString());
        photo.size = query.value(5).toLongLong();
        photo.modifiedMs = query.value(6).toLongLong();
        if (!query.value(7).isNull())
            photo.storedPreview = StoredPreview{query.value(7).toString(),
                                                query.value(8).toString(),
                                                query.value(9).toString()};
        photo.registrationSent = query.value(10).toBool();
        photo.previewRegistered = !query.value(11).isNull();
        photo.originalStored = !query.value(12).isNull();
        if (!query.value(13).isNull())
            photo.refusal = query.value(13).toString();
        photo.originalResend = query.value(15).toBool();
        if (!query.value(14).isNull()) {
            // A permission that no longer reads is simply not reused.
            try {
                photo.originalPresign = PresignResponse::decode(query.value(14).toByteArray());
            } catch (const std::exception &) {
            }
        }
        photos.append(photo);
    }
    return photos;
}

std::optional<JournalPhoto> DeliveryJournal::photo(qint64 id) const
{
    const QList<JournalPhoto> found = select(QStringLiteral("p.id = ?"), {id});
    return found.isEmpty() ? std::nullopt : std::optional(found.first());
}

QList<JournalPhoto> DeliveryJournal::owed() const
{
    return select(QStringLiteral("p.original_stored_at IS NULL AND p.refusal IS NULL"), {});
}

QList<JournalPhoto> DeliveryJournal::refused(qint64 folderId) const
{
    return select(QStringLiteral("p.folder_id = ? AND p.refusal IS NOT NULL"), {folderId});
}
