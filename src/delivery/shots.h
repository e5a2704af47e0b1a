// SPDX-License-Identifier: MIT
#pragma once

#include <QCoroTask>
#include <QList>
#include <QObject>

#include <map>
#include <memory>

class DeliveryJournal;
class OwedPhotos;
struct JournalPhoto;

// The files of one shot, a RAW and the JPEG the camera wrote beside it, delivered as one photo
// for the client: one preview, registered once, from whichever file has its preview made first,
// and every file's original. Which shot a file belongs to is found when it is handed over: the
// session's older files of its base name, the first whose capture time is its own or that one of
// the two lacks. Before each attempt it says what a file does next; it remembers, for each shot,
// the file whose preview stands for it. Main thread only.
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

    // The shot of a photo handed over (or left unpaired by an earlier run): its own number when
    // no older file of the session shares its base name, at once; else found from the files'
    // capture times, read off the main thread, and written down with them.
    static QCoro::Task<qint64> find(std::shared_ptr<DeliveryJournal> journal, qint64 photo);

    // What the owed photo does next. A file that will give the shot's preview is remembered.
    Next next(qint64 photo);
    // Its preview is made: whether it is the file whose preview stands for the shot. False when
    // another file of the shot had its preview made first.
    bool claim(qint64 photo);
    // Its preview is registered for the shot: the shot's files that wait for it, and those
    // refused for want of a preview of their own, send their originals now.
    QList<JournalPhoto> registered(qint64 photo);
    // It will not give the shot's preview after all: the files that waited for it try theirs.
    QList<qint64> gaveUp(qint64 photo);
    // Whether another file of its shot, not refused, may still make the shot's preview.
    bool anotherCanMakePreview(qint64 photo) const;

private:
    qint64 shotOf(qint64 photo) const;
    // The shot's other files as the journal has them.
    QList<JournalPhoto> partners(qint64 photo) const;

    std::shared_ptr<DeliveryJournal> m_journal;
    OwedPhotos &m_owed;
    std::map<qint64, qint64> m_claims; // shot → the file whose preview stands for it
};
