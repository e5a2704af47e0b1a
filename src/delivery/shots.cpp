// SPDX-License-Identifier: MIT
#include "shots.h"

#include "capturetime.h"
#include "deliveryjournal.h"
#include "owedphotos.h"
#include "photoattempt.h"

#include <QCoroFuture>
#include <QThreadPool>
#include <QtConcurrent/qtconcurrenttask.h>

#include <algorithm>

namespace {

// A file whose preview went part of the way (authorised, stored, its registration sent) in an
// earlier attempt: it is the one to finish the shot's preview, not another.
bool previewUnderWay(const PhotoProgress &progress)
{
    return !progress.previewRegistered &&
           (progress.previewPresign || progress.storedPreview || progress.registrationSent);
}

qint64 shotNumber(const JournalPhoto &photo) { return photo.shot > 0 ? photo.shot : photo.id; }

} // namespace

Shots::Shots(std::shared_ptr<DeliveryJournal> journal, OwedPhotos &owed, QObject *parent)
    : QObject(parent)
    , m_journal(std::move(journal))
    , m_owed(owed)
{
}

QCoro::Task<qint64> Shots::find(std::shared_ptr<DeliveryJournal> journal, qint64 photo)
{
    const std::optional<JournalPhoto> handed = journal->photo(photo);
    if (!handed)
        co_return photo; // not written down: a shot of its own, for this run
    QList<JournalPhoto> older = journal->sameBaseName(handed->folderId, handed->baseName);
    older.removeIf([photo](const JournalPhoto &file) { return file.id >= photo; });
    if (older.isEmpty())
        co_return photo;

    // The capture times the journal does not have yet, read together, off the main thread.
    QList<QString> paths{handed->fileURL.toLocalFile()};
    for (const JournalPhoto &file : std::as_const(older)) {
        if (!file.captured)
            paths.append(file.fileURL.toLocalFile());
    }
    QFuture<QList<std::optional<CaptureTime>>> reading =
        QtConcurrent::task([paths] {
            QList<std::optional<CaptureTime>> times;
            for (const QString &path : paths)
                times.append(CaptureTime::of(path));
            return times;
        })
            .onThreadPool(*QThreadPool::globalInstance())
            .withPriority(PhotoAttempt::previewPoolPriority)
            .spawn();
    const QList<std::optional<CaptureTime>> read = co_await reading;

    const std::optional<CaptureTime> mine = read.value(0);
    journal->setCaptured(photo, mine);
    qsizetype next = 1;
    for (JournalPhoto &file : older) {
        if (!file.captured) {
            file.captured = read.value(next++);
            journal->setCaptured(file.id, file.captured);
        }
    }
    // Files of one name taken at other moments are other shots: two bodies numbering alike, a
    // counter that went round. A file that says no time pairs by its name alone.
    for (const JournalPhoto &file : std::as_const(older)) {
        if (!mine || !file.captured || mine->sameMomentAs(*file.captured)) {
            const qint64 shot = shotNumber(file);
            journal->setShot(photo, shot);
            co_return shot;
        }
    }
    co_return photo;
}

qint64 Shots::shotOf(qint64 photo) const
{
    const OwedPhotos::Photo *owed = m_owed.find(photo);
    return owed && owed->shot > 0 ? owed->shot : photo;
}

QList<JournalPhoto> Shots::partners(qint64 photo) const
{
    if (photo <= 0)
        return {};
    const qint64 shot = shotOf(photo);
    QList<JournalPhoto> files = m_journal->shot(shot);
    if (shot != photo) {
        if (const std::optional<JournalPhoto> first = m_journal->photo(shot))
            files.prepend(*first);
    }
    files.removeIf([photo](const JournalPhoto &file) { return file.id == photo; });
    return files;
}

Shots::Next Shots::next(qint64 photo)
{
    const OwedPhotos::Photo *owed = m_owed.find(photo);
    if (!owed || owed->progress.previewRegistered)
        return Next::original;
    const QList<JournalPhoto> others = partners(photo);
    // Once the shot's preview is registered, by a file delivered since or still under way, no
    // other file of it gives another.
    if (std::any_of(others.cbegin(), others.cend(), [](const JournalPhoto &file) {
            return file.progress.previewRegistered && !file.previewByPartner;
        }))
        return Next::joined;

    const qint64 shot = shotOf(photo);
    const auto claimed = m_claims.find(shot);
    if (claimed != m_claims.end() && claimed->second != photo)
        return Next::wait;
    if (claimed == m_claims.end()) {
        // After a restart, the file whose preview went part of the way finishes it.
        for (const JournalPhoto &file : others) {
            if (m_owed.contains(file.id) && previewUnderWay(file.progress)) {
                m_claims[shot] = file.id;
                return Next::wait;
            }
        }
        if (previewUnderWay(owed->progress))
            m_claims[shot] = photo;
    }
    const std::optional<JournalPhoto> written = m_journal->photo(photo);
    if (written && written->previewUnmakeable)
        return anotherCanMakePreview(photo) ? Next::wait : Next::noPreview;
    return Next::preview;
}

bool Shots::claim(qint64 photo)
{
    const qint64 shot = shotOf(photo);
    const auto claimed = m_claims.find(shot);
    if (claimed != m_claims.end() && claimed->second != photo)
        return false;
    m_claims[shot] = photo;
    return true;
}

QList<JournalPhoto> Shots::registered(qint64 photo)
{
    m_claims[shotOf(photo)] = photo;
    QList<JournalPhoto> going;
    for (const JournalPhoto &file : partners(photo)) {
        const OwedPhotos::Photo *owed = m_owed.find(file.id);
        if ((owed && owed->held) || (!owed && file.refusal && file.previewUnmakeable))
            going.append(file);
    }
    return going;
}

QList<qint64> Shots::gaveUp(qint64 photo)
{
    const qint64 shot = shotOf(photo);
    if (const auto claimed = m_claims.find(shot);
        claimed != m_claims.end() && claimed->second == photo)
        m_claims.erase(claimed);
    QList<qint64> waiting;
    for (const JournalPhoto &file : partners(photo)) {
        const OwedPhotos::Photo *owed = m_owed.find(file.id);
        if (owed && owed->held)
            waiting.append(file.id);
    }
    return waiting;
}

bool Shots::anotherCanMakePreview(qint64 photo) const
{
    const QList<JournalPhoto> others = partners(photo);
    return std::any_of(others.cbegin(), others.cend(), [](const JournalPhoto &file) {
        return !file.previewUnmakeable && !file.refusal;
    });
}
