// SPDX-License-Identifier: MIT
#include "deliveryjournal.h"

#include <QDateTime>
#include <QFileInfo>
#include <QSqlQuery>
#include <QStandardPaths>

#include <algorithm>

namespace {

QString &pathForTests()
{
    static QString path;
    return path;
}

qint64 now() { return QDateTime::currentMSecsSinceEpoch(); }

// Delivered photos are kept a while, so that what happened to a shoot can still be looked up,
// and then dropped so the journal does not grow for ever; never those of a session that may
// still be taken up again, whose names say what was already sent.
constexpr qint64 keepDeliveredMs = qint64(30) * 24 * 3600 * 1000;

const QString photoColumns = QStringLiteral(
    "p.id, p.folder_id, s.slug, s.client_name, p.path, p.size, p.modified_ms, p.preview_url, "
    "p.preview_key, p.preview_bucket, p.registration_sent, p.preview_registered_at, "
    "p.original_stored_at, p.refusal, p.original_presign, p.original_resend, "
    "p.preview_presign, p.base_name, p.captured_ms, p.captured_exact, p.shot, "
    "p.preview_by_partner, p.preview_unmakeable");

QVariant encoded(const std::optional<PresignResponse> &presign)
{
    return presign ? QVariant(presign->encode()) : QVariant();
}

std::optional<PresignResponse> decoded(const QVariant &stored)
{
    if (stored.isNull())
        return std::nullopt;
    // A permission that no longer reads is simply not reused.
    try {
        return PresignResponse::decode(stored.toByteArray());
    } catch (const std::exception &) {
        return std::nullopt;
    }
}

} // namespace

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
    : m_sessions(m_database)
{
}

bool DeliveryJournal::open(const QString &path)
{
    if (!m_database.open(path))
        return false;
    QSqlQuery numbered = m_database.query();
    if (m_database.read(numbered, QStringLiteral("SELECT MAX(seq) FROM sqlite_sequence WHERE "
                                                 "name = 'photos' UNION ALL SELECT MAX(id) FROM "
                                                 "photos"))) {
        while (numbered.next())
            m_lastPhoto = std::max(m_lastPhoto, numbered.value(0).toLongLong());
    }
    // A failure here is told like any other write's; the journal is still of use.
    m_database.write(QStringLiteral("DELETE FROM photos WHERE original_stored_at < ? AND "
                                    "folder_id NOT IN (SELECT folder_id FROM sessions WHERE "
                                    "ending IN ('recording', 'quit'))"),
                     {now() - keepDeliveredMs});
    m_sessions.forgetFinishedNames();
    return true;
}

qint64 DeliveryJournal::addPhoto(qint64 folderId, const QUrl &fileURL, qint64 size,
                                 qint64 modifiedMs)
{
    if (!m_database.isOpen())
        return 0;
    const qint64 photo = ++m_lastPhoto;
    m_database.write(
        QStringLiteral("INSERT INTO photos (id, folder_id, path, size, modified_ms, handed_at, "
                       "base_name) VALUES (?, ?, ?, ?, ?, ?, ?)"),
        {photo, folderId, fileURL.toLocalFile(), size, modifiedMs, now(),
         QFileInfo(fileURL.fileName()).completeBaseName()});
    return photo;
}

void DeliveryJournal::update(qint64 photo, const QString &assignments, QVariantList values)
{
    // A photo the journal could not write down has no number: nothing to update.
    if (photo <= 0)
        return;
    values.append(photo);
    m_database.write(QStringLiteral("UPDATE photos SET ") + assignments +
                         QStringLiteral(" WHERE id = ?"),
                     values);
}

void DeliveryJournal::setCaptured(qint64 photo, const std::optional<CaptureTime> &captured)
{
    update(photo, QStringLiteral("captured_ms = ?, captured_exact = ?"),
           {captured ? QVariant(captured->msecs) : QVariant(), captured && captured->exact ? 1 : 0});
}

void DeliveryJournal::setShot(qint64 photo, qint64 shot)
{
    update(photo, QStringLiteral("shot = ?"), {shot});
}

void DeliveryJournal::setPreviewByPartner(qint64 photo)
{
    update(photo, QStringLiteral("preview_registered_at = ?, preview_by_partner = 1"), {now()});
}

void DeliveryJournal::setPreviewUnmakeable(qint64 photo, bool unmakeable)
{
    update(photo, QStringLiteral("preview_unmakeable = ?"), {unmakeable ? 1 : 0});
}

void DeliveryJournal::setPreviewPresign(qint64 photo,
                                        const std::optional<PresignResponse> &presign)
{
    update(photo, QStringLiteral("preview_presign = ?"), {encoded(presign)});
}

void DeliveryJournal::setPreviewStored(qint64 photo, const StoredPreview &preview)
{
    update(photo, QStringLiteral("preview_url = ?, preview_key = ?, preview_bucket = ?"),
           {preview.url, preview.key, preview.bucket});
}

void DeliveryJournal::setRegistrationSent(qint64 photo)
{
    update(photo, QStringLiteral("registration_sent = 1"), {});
}

void DeliveryJournal::setPreviewRegistered(qint64 photo)
{
    update(photo, QStringLiteral("preview_registered_at = ?"), {now()});
}

void DeliveryJournal::setOriginalPresign(qint64 photo,
                                         const std::optional<PresignResponse> &presign)
{
    update(photo, QStringLiteral("original_presign = ?"), {encoded(presign)});
}

void DeliveryJournal::setOriginalStored(qint64 photo)
{
    update(photo, QStringLiteral("original_stored_at = ?"), {now()});
}

void DeliveryJournal::setRefused(qint64 photo, const QString &reason)
{
    update(photo, QStringLiteral("refusal = ?, refused_at = ?"), {reason, now()});
}

void DeliveryJournal::setRefusalLifted(qint64 photo)
{
    update(photo, QStringLiteral("refusal = NULL, refused_at = NULL"), {});
}

void DeliveryJournal::setOriginalResend(qint64 photo)
{
    update(photo, QStringLiteral("original_stored_at = NULL, original_resend = 1"), {});
}

QList<JournalPhoto> DeliveryJournal::select(const QString &condition,
                                            const QVariantList &values) const
{
    QList<JournalPhoto> photos;
    QSqlQuery query = m_database.query();
    if (!m_database.read(query,
                         QStringLiteral("SELECT ") + photoColumns +
                             QStringLiteral(" FROM photos p JOIN sessions s ON "
                                            "s.folder_id = p.folder_id WHERE ") +
                             condition + QStringLiteral(" ORDER BY p.id"),
                         values))
        return photos;
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
            photo.progress.storedPreview = StoredPreview{
                query.value(7).toString(), query.value(8).toString(), query.value(9).toString()};
        photo.progress.registrationSent = query.value(10).toBool();
        photo.progress.previewRegistered = !query.value(11).isNull();
        photo.originalStored = !query.value(12).isNull();
        if (!query.value(13).isNull())
            photo.refusal = query.value(13).toString();
        photo.progress.originalPresign = decoded(query.value(14));
        photo.progress.originalResend = query.value(15).toBool();
        photo.progress.previewPresign = decoded(query.value(16));
        photo.baseName = query.value(17).isNull()
                             ? QFileInfo(photo.fileURL.fileName()).completeBaseName()
                             : query.value(17).toString();
        if (!query.value(18).isNull())
            photo.captured = CaptureTime{query.value(18).toLongLong(), query.value(19).toBool()};
        photo.shot = query.value(20).toLongLong();
        photo.previewByPartner = query.value(21).toBool();
        photo.previewUnmakeable = query.value(22).toBool();
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

QList<JournalPhoto> DeliveryJournal::photosOf(qint64 folderId) const
{
    return select(QStringLiteral("p.folder_id = ?"), {folderId});
}
