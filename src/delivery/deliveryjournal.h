// SPDX-License-Identifier: MIT
#pragma once

#include "deliveryledger.h"

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
    std::optional<StoredPreview> storedPreview;
    bool registrationSent = false;
    bool previewRegistered = false;
    std::optional<PresignResponse> originalPresign;
    bool originalStored = false;
    bool originalResend = false;
    std::optional<QString> refusal; // set when a refusal that will not change ended it

    PhotoDelivery delivery() const;
};

// The written record of every photo handed to the pipeline and how far its delivery got, in
// an SQLite database of the program's own (never in the watch folder). Each step is committed
// before the call returns, in write-ahead mode with full syncs, so that a crash, a kill or a
// power cut loses no entry and leaves none half written. Main thread only.
class DeliveryJournal {
public:
    // Where the program keeps its journal: the per-user data folder, or where a test put it.
    static QString defaultPath();
    // Tests give every test a journal of its own; an empty path restores the default.
    static void setPathForTests(const QString &path);

    DeliveryJournal();
    ~DeliveryJournal();
    DeliveryJournal(const DeliveryJournal &) = delete;
    DeliveryJournal &operator=(const DeliveryJournal &) = delete;

    // Opens (creating when new) the journal at `path`; false, with errorString(), when the
    // database cannot be opened or written.
    bool open(const QString &path);
    bool isOpen() const { return m_open; }
    QString errorString() const { return m_error; }

    void recordSession(qint64 folderId, const QString &slug, const QString &clientName);
    // The photo's number; 0 when the journal could not write it down.
    qint64 addPhoto(qint64 folderId, const QUrl &fileURL, qint64 size, qint64 modifiedMs);
    void setPreviewMade(qint64 photo, const std::optional<FileStamp> &taken);
    void setOriginalRead(qint64 photo, const std::optional<FileStamp> &taken);
    void setPreviewStored(qint64 photo, const StoredPreview &preview);
    void setRegistrationSent(qint64 photo);
    void setPreviewRegistered(qint64 photo);
    void setOriginalPresign(qint64 photo, const PresignResponse &presign);
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

private:
    bool exec(const QString &statement, const QVariantList &values = {}) const;
    QList<JournalPhoto> select(const QString &condition, const QVariantList &values) const;
    void fail(const QString &what) const;

    QString m_connection;
    bool m_open = false;
    mutable QString m_error;
};
