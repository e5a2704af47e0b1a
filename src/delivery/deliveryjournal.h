// SPDX-License-Identifier: MIT
#pragma once

#include "capturetime.h"
#include "filestamp.h"
#include "journaldatabase.h"
#include "photoprogress.h"
#include "sessionjournal.h"

#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

// One photo the journal holds, with the session it belongs to.
struct JournalPhoto {
    qint64 id = 0;
    qint64 folderId = 0;
    QString slug;
    QString clientName;
    QUrl fileURL;
    qint64 size = 0;       // when it was handed over
    qint64 modifiedMs = 0; // the same, milliseconds since the epoch
    // The file's name without its extension, and when the camera took it, where it says: two
    // files of one shot share both.
    QString baseName;
    std::optional<CaptureTime> captured;
    // The number of the first file of its shot (its own for a shot of one); 0 while unknown.
    qint64 shot = 0;
    PhotoProgress progress;
    // Its preview is registered because another file of its shot gave it: it sends its original.
    bool previewByPartner = false;
    // No preview could be made of it: the shot's preview has to come from another of its files.
    bool previewUnmakeable = false;
    bool originalStored = false;
    std::optional<QString> refusal; // set when a refusal that will not change ended it
};

// The written record of every photo handed to delivery and how far its delivery got, and of the
// live session they belong to, in an SQLite database of the program's own (never in the watch
// folder). Each step is committed before the call returns. Main thread only.
class DeliveryJournal {
public:
    // Where the program keeps its journal: the per-user data folder, or where a test put it.
    static QString defaultPath();
    // Tests give every test a journal of its own; an empty path restores the default.
    static void setPathForTests(const QString &path);

    DeliveryJournal();
    DeliveryJournal(const DeliveryJournal &) = delete;
    DeliveryJournal &operator=(const DeliveryJournal &) = delete;

    // Opens (creating or upgrading when needed) the journal at `path`; false, with
    // errorString(), when it cannot be opened or written.
    bool open(const QString &path);
    bool isOpen() const { return m_database.isOpen(); }
    QString errorString() const { return m_database.errorString(); }
    // Tells when a write could not be made, and when writes go through again.
    JournalDatabase &database() { return m_database; }
    SessionJournal &sessions() { return m_sessions; }
    const SessionJournal &sessions() const { return m_sessions; }

    // The photo's number, given at once, its row written in the background; 0 when the journal
    // is not open.
    qint64 addPhoto(qint64 folderId, const QUrl &fileURL, qint64 size, qint64 modifiedMs);
    void setCaptured(qint64 photo, const std::optional<CaptureTime> &captured);
    void setShot(qint64 photo, qint64 shot);
    // The shot's preview is registered, given by another of its files.
    void setPreviewByPartner(qint64 photo);
    void setPreviewUnmakeable(qint64 photo, bool unmakeable);
    void setPreviewPresign(qint64 photo, const std::optional<PresignResponse> &presign);
    void setPreviewStored(qint64 photo, const StoredPreview &preview);
    void setRegistrationSent(qint64 photo);
    void setPreviewRegistered(qint64 photo);
    void setOriginalPresign(qint64 photo, const std::optional<PresignResponse> &presign);
    void setOriginalStored(qint64 photo);
    void setRefused(qint64 photo, const QString &reason);
    // The file changed after an attempt took it: a refused photo is owed again, a stored
    // original goes again.
    void setRefusalLifted(qint64 photo);
    void setOriginalResend(qint64 photo);

    std::optional<JournalPhoto> photo(qint64 id) const;
    // Every photo whose original is not stored yet and that nothing refused, oldest first.
    QList<JournalPhoto> owed() const;
    // Photos a refusal ended, of one session, oldest first.
    QList<JournalPhoto> refused(qint64 folderId) const;
    // Every photo of one session, oldest first.
    QList<JournalPhoto> photosOf(qint64 folderId) const;

private:
    void update(qint64 photo, const QString &assignments, QVariantList values);
    QList<JournalPhoto> select(const QString &condition, const QVariantList &values) const;

    JournalDatabase m_database;
    SessionJournal m_sessions;
    // Photos are numbered here, not by the database, which writes them a moment later.
    qint64 m_lastPhoto = 0;
};
