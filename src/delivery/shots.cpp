// SPDX-License-Identifier: MIT
#include "shots.h"

#include "deliveryjournal.h"
#include "owedphotos.h"
#include "photoattempt.h"

#include <QCoroFuture>
#include <QFileInfo>
#include <QPointer>
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

} // namespace

Shots::Shots(std::shared_ptr<DeliveryJournal> journal, OwedPhotos &owed, QObject *parent)
    : QObject(parent)
    , m_journal(std::move(journal))
    , m_owed(owed)
{
}

void Shots::load(qint64 folderId)
{
    if (m_loaded.contains(folderId))
        return;
    m_loaded.insert(folderId);
    for (const JournalPhoto &photo : m_journal->photosOf(folderId)) {
        File &file = m_files[photo.id];
        file = {photo.folderId, photo.baseName, photo.fileURL, photo.captured, photo.shot,
                photo.progress.previewRegistered && !photo.previewByPartner,
                photo.previewByPartner, photo.previewUnmakeable, photo.refusal.has_value()};
    }
}

void Shots::handedOver(qint64 photo, qint64 folderId, const QUrl &fileURL)
{
    load(folderId);
    if (photo <= 0 || m_files.contains(photo))
        return;
    File &file = m_files[photo];
    file.folderId = folderId;
    file.baseName = QFileInfo(fileURL.fileName()).completeBaseName();
    file.fileURL = fileURL;
}

QCoro::Task<qint64> Shots::find(qint64 photo)
{
    const auto handed = m_files.find(photo);
    if (handed == m_files.end())
        co_return photo; // not written down: a shot of its own, for this run
    const File mine = handed->second;
    QList<qint64> older;
    for (const auto &[id, file] : m_files) {
        if (id < photo && file.folderId == mine.folderId && file.baseName == mine.baseName)
            older.append(id);
    }
    if (older.isEmpty())
        co_return photo;

    // The capture times not known yet, read together, off the main thread.
    QList<qint64> unread{photo};
    QList<QString> paths{mine.fileURL.toLocalFile()};
    for (const qint64 id : std::as_const(older)) {
        if (!m_files[id].captured) {
            unread.append(id);
            paths.append(m_files[id].fileURL.toLocalFile());
        }
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
    QPointer<Shots> self(this);
    const QList<std::optional<CaptureTime>> read = co_await reading;
    if (!self)
        co_return photo;
    for (qsizetype i = 0; i < unread.size(); ++i) {
        m_files[unread[i]].captured = read.value(i);
        m_journal->setCaptured(unread[i], read.value(i));
    }
    // Files of one name taken at other moments are other shots: two bodies numbering alike, a
    // counter that went round. A file that says no time pairs by its name alone.
    const std::optional<CaptureTime> taken = m_files[photo].captured;
    for (const qint64 id : std::as_const(older)) {
        const std::optional<CaptureTime> theirs = m_files[id].captured;
        if (!taken || !theirs || taken->sameMomentAs(*theirs)) {
            const qint64 shot = m_files[id].shot > 0 ? m_files[id].shot : id;
            m_files[photo].shot = shot;
            m_journal->setShot(photo, shot);
            co_return shot;
        }
    }
    co_return photo;
}

qint64 Shots::shotOf(qint64 photo) const
{
    const auto found = m_files.find(photo);
    return found != m_files.end() && found->second.shot > 0 ? found->second.shot : photo;
}

QList<qint64> Shots::partners(qint64 photo) const
{
    const qint64 shot = shotOf(photo);
    QList<qint64> others;
    for (const auto &[id, file] : m_files) {
        if (id != photo && (id == shot || file.shot == shot))
            others.append(id);
    }
    return others;
}

bool Shots::held(qint64 photo) const
{
    const OwedPhotos::Photo *owed = m_owed.find(photo);
    return owed && owed->held;
}

Shots::Next Shots::next(qint64 photo)
{
    const OwedPhotos::Photo *owed = m_owed.find(photo);
    if (!owed || owed->progress.previewRegistered)
        return Next::original;
    const QList<qint64> others = partners(photo);
    // Once the shot's preview is registered, by a file delivered since or still under way, no
    // other file of it gives another.
    if (std::any_of(others.cbegin(), others.cend(),
                    [this](qint64 id) { return m_files.at(id).previewGiven; }))
        return Next::joined;

    const qint64 shot = shotOf(photo);
    const auto claimed = m_claims.find(shot);
    if (claimed != m_claims.end() && claimed->second != photo)
        return Next::wait;
    if (claimed == m_claims.end()) {
        // After a restart, the file whose preview went part of the way finishes it.
        for (const qint64 id : others) {
            const OwedPhotos::Photo *other = m_owed.find(id);
            if (other && previewUnderWay(other->progress)) {
                m_claims[shot] = id;
                return Next::wait;
            }
        }
        if (previewUnderWay(owed->progress))
            m_claims[shot] = photo;
    }
    const auto found = m_files.find(photo);
    if (found != m_files.end() && found->second.unmakeable)
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

QList<qint64> Shots::registered(qint64 photo)
{
    m_claims[shotOf(photo)] = photo;
    if (const auto found = m_files.find(photo); found != m_files.end())
        found->second.previewGiven = true;
    QList<qint64> going;
    for (const qint64 id : partners(photo)) {
        const File &file = m_files.at(id);
        if (held(id) || (!m_owed.contains(id) && file.refused && file.unmakeable))
            going.append(id);
    }
    return going;
}

void Shots::joined(qint64 photo)
{
    if (const auto found = m_files.find(photo); found != m_files.end())
        found->second.previewByPartner = true;
}

QList<qint64> Shots::gaveUp(qint64 photo)
{
    const qint64 shot = shotOf(photo);
    if (const auto claimed = m_claims.find(shot);
        claimed != m_claims.end() && claimed->second == photo)
        m_claims.erase(claimed);
    QList<qint64> waiting = partners(photo);
    waiting.removeIf([this](qint64 id) { return !held(id); });
    return waiting;
}

bool Shots::anotherCanMakePreview(qint64 photo) const
{
    const QList<qint64> others = partners(photo);
    return std::any_of(others.cbegin(), others.cend(), [this](qint64 id) {
        const File &file = m_files.at(id);
        return !file.unmakeable && !file.refused;
    });
}

void Shots::setUnmakeable(qint64 photo, bool unmakeable)
{
    if (const auto found = m_files.find(photo); found != m_files.end())
        found->second.unmakeable = unmakeable;
}

void Shots::setRefused(qint64 photo, bool refused)
{
    if (const auto found = m_files.find(photo); found != m_files.end())
        found->second.refused = refused;
}
