// SPDX-License-Identifier: MIT
#pragma once

#include "capturetime.h"

#include <QCoroTask>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>

#include <map>
#include <memory>
#include <optional>

class DeliveryJournal;
class OwedPhotos;
struct JournalPhoto;

// The files of one shot, a RAW and the JPEG the camera wrote beside it, delivered as one photo
// for the client: one preview, registered once, from whichever file has its preview made first,
// and every file's original. Which shot a file belongs to is found when it is handed over: the
// session's older files of its base name, the first whose capture time is its own or that one of
// the two lacks. Before each attempt it says what a file does next; it remembers, for each shot,
// the file whose preview stands for it.
//
// It keeps the files of the sessions it has met as the journal has them, loaded once and then
// kept up to date as delivery tells it: the journal writes in the background, and what it
// reads back may not hold the latest steps yet. Main thread only.
class Shots : public QObject {
    Q_OBJECT
public:
    enum class Next {
        preview,   // it makes the shot's preview, racing any other file not yet claimed
        original,  // its preview part is done: its original goes
        joined,    // the shot's preview is registered by another file: its original goes
        wait,      // another file is making the shot's preview
        noPreview, // no file of the shot can make a preview
    };

    Shots(std::shared_ptr<DeliveryJournal> journal, OwedPhotos &owed, QObject *parent = nullptr);

    // A file delivery took on: handed over now, or left owed by an earlier run.
    void handedOver(qint64 photo, qint64 folderId, const QUrl &fileURL);
    // Its shot: its own number when no older file of the session shares its base name, at
    // once; else found from the files' capture times, read off the main thread, and written
    // down with them.
    QCoro::Task<qint64> find(qint64 photo);

    // What the owed photo does next. A file that will give the shot's preview is remembered.
    Next next(qint64 photo);
    // Its preview is made: whether it is the file whose preview stands for the shot. False when
    // another file of the shot had its preview made first.
    bool claim(qint64 photo);
    // Its preview is registered for the shot: the numbers of the shot's files that wait for it,
    // and of those refused for want of a preview of their own; they send their originals now.
    QList<qint64> registered(qint64 photo);
    // The shot's preview is registered by another file: this one's original is due.
    void joined(qint64 photo);
    // It will not give the shot's preview after all: the files that waited for it try theirs.
    QList<qint64> gaveUp(qint64 photo);
    // Whether another file of its shot, not refused, may still make the shot's preview.
    bool anotherCanMakePreview(qint64 photo) const;
    void setUnmakeable(qint64 photo, bool unmakeable);
    void setRefused(qint64 photo, bool refused);

private:
    struct File {
        qint64 folderId = 0;
        QString baseName;
        QUrl fileURL;
        std::optional<CaptureTime> captured;
        qint64 shot = 0; // 0: its own
        bool previewGiven = false; // its own preview is registered for the shot
        bool previewByPartner = false;
        bool unmakeable = false;
        bool refused = false;
    };
    void load(qint64 folderId);
    qint64 shotOf(qint64 photo) const;
    // The numbers of the shot's other files.
    QList<qint64> partners(qint64 photo) const;
    bool held(qint64 photo) const;

    std::shared_ptr<DeliveryJournal> m_journal;
    OwedPhotos &m_owed;
    std::map<qint64, File> m_files;
    QSet<qint64> m_loaded;             // sessions whose files are here
    std::map<qint64, qint64> m_claims; // shot → the file whose preview stands for it
};
