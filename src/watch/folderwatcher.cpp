// SPDX-License-Identifier: MIT
#include "folderwatcher.h"
#include "watchlog.h"

#include "filereadiness.h"
#include "photofilenames.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QPointer>
#include <QStorageInfo>
#include <QTimer>

#include <algorithm>
#include <utility>

// How a photo gets handed over soon after it is complete without relying on notifications:
//
// - The one-second poll is the floor. It lists the folder, and is enough on its own,
//   including on network shares that never report a change.
// - A candidate that is not ready yet, but would become ready by being left alone, gets a
//   deadline: the moment its modification time will be more than a second old. One
//   single-shot timer fires just after the earliest deadline and looks again at those few
//   files only, without listing the folder. A file still being written has a newer
//   modification time by then, and its deadline moves along with it. So a photo is handed
//   over a few milliseconds after it has been quiet for a second, not at whichever poll
//   comes next.
// - Notifications on the folder itself (a name appeared, vanished or moved) bring the next
//   check forward. That matters for a file that is ready the moment it appears: renamed from
//   a temporary name, or copied with its original modification time. A burst of
//   notifications is coalesced into one check.
//
// - Looking at a candidate once it has been left alone for a fifth of a second, and saying so
//   (candidateQuiet), lets the preview be made while the rest of the second runs out.
//
// Changes to a file's content are not listened for: the deadline already follows them, and
// watching each file would bring a storm of events for every chunk the camera writes.
//
// Whichever path finds a file, it is judged afresh right before it is handed over, and its
// name goes into m_knownFiles before the handler runs, so the one-second rule and the
// once-only hand-over hold however the checks interleave.

namespace {
constexpr int pollInterval = 1000;
// Fire just after the deadline rather than on it: a timer may come due a millisecond early
// by the wall clock the modification times are measured with.
constexpr qint64 readyCheckSlack = 10;
// Longest single wait for a deadline (a camera clock far ahead); the polls go on meanwhile.
constexpr qint64 longestReadyWait = 60'000;
// After a notification, wait a little for the rest of the burst, and about four times as long
// as the last listing took, so that a huge folder being filled by some other tool costs at
// most a fraction of a core.
constexpr qint64 shortestCoalescing = 10;
constexpr qint64 longestCoalescing = 250;

// FAT and exFAT keep modification times to two seconds; everything else is finer.
constexpr qint64 settledFolderAge = 2'500;

qint64 now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

std::optional<qint64> modificationTime(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    const QDateTime modified = info.lastModified();
    return modified.isValid() ? std::optional(modified.toMSecsSinceEpoch()) : std::nullopt;
}
} // namespace

FolderWatcher::FolderWatcher(QUrl watchURL, NewFileHandler onNewFile, QSet<QString> knownFiles,
                             QObject *parent)
    : QObject(parent)
    , m_watchURL(std::move(watchURL))
    , m_folderPath(m_watchURL.isLocalFile() ? m_watchURL.toLocalFile() : QString())
    , m_onNewFile(std::move(onNewFile))
    , m_knownFiles(std::move(knownFiles))
    , m_folderChangeTimer(new QTimer(this))
    , m_readyTimer(new QTimer(this))
{
    m_folderChangeTimer->setSingleShot(true);
    connect(m_folderChangeTimer, &QTimer::timeout, this, &FolderWatcher::checkForNewFiles);
    m_readyTimer->setSingleShot(true);
    m_readyTimer->setTimerType(Qt::PreciseTimer);
    connect(m_readyTimer, &QTimer::timeout, this, &FolderWatcher::checkPendingFiles);
}

FolderWatcher::~FolderWatcher() = default;

void FolderWatcher::start()
{
    if (m_invalidated)
        return; // each session makes a new watcher
    if (!m_timer) {
        m_timer = new QTimer(this);
        m_timer->setInterval(pollInterval);
        connect(m_timer, &QTimer::timeout, this, &FolderWatcher::checkForNewFiles);
    }
    m_timer->start();
    qCDebug(watchLog, "watching %s, %lld names known", qPrintable(m_folderPath),
            qlonglong(m_knownFiles.size()));
    setNotificationsEnabled(m_notificationsEnabled);
    setFolderAvailable(QFileInfo(m_folderPath).isDir());
    scheduleReadyCheck();
}

void FolderWatcher::setFolderAvailable(bool available)
{
    if (m_folderAvailable == available)
        return;
    m_folderAvailable = available;
    qCDebug(watchLog, "%s %s", qPrintable(m_folderPath),
            available ? "is there" : "is missing or unreadable");
    Q_EMIT folderAvailableChanged(available);
}

void FolderWatcher::invalidateTimer()
{
    m_invalidated = true;
    if (m_timer)
        m_timer->stop();
    m_folderChangeTimer->stop();
    m_readyTimer->stop();
    m_pending.clear();
    m_announcedQuiet.clear();
    delete m_source;
    m_source = nullptr;
}

bool FolderWatcher::isRunning() const
{
    return !m_invalidated && m_timer && m_timer->isActive();
}

void FolderWatcher::setNotificationsEnabled(bool enabled)
{
    m_notificationsEnabled = enabled;
    if (!enabled || !isRunning()) {
        delete m_source;
        m_source = nullptr;
        return;
    }
    if (!m_source) {
        m_source = new QFileSystemWatcher(this);
        connect(m_source, &QFileSystemWatcher::directoryChanged, this,
                &FolderWatcher::onFolderChanged);
    }
    watchFolderIfPresent();
}

void FolderWatcher::watchFolderIfPresent()
{
    if (!m_source || !m_source->directories().isEmpty())
        return;
    // Also after the folder was removed and made again: the old watch went with the old folder.
    if (QFileInfo(m_folderPath).isDir() && m_source->addPath(m_folderPath)) {
        // The folder may be another one now, on another file system.
        m_localFolderTimes = keepsFolderTimes(m_folderPath);
        m_folderChanged = true;
    }
}

bool FolderWatcher::folderTimesAreWatched() const
{
    return m_localFolderTimes && m_source && !m_source->directories().isEmpty();
}

bool FolderWatcher::keepsFolderTimes(const QString &folder)
{
    // Local file systems that change a folder's time with every name added, and whose
    // notifications report every change; anything else (nfs, cifs, smb3, fuse.*, 9p, ...) is
    // listed at every poll.
    static const QSet<QByteArray> local{"ext2", "ext3", "ext4",  "xfs", "btrfs", "f2fs",
                                        "zfs",  "tmpfs", "overlay", "apfs", "hfs"};
    return local.contains(QStorageInfo(folder).fileSystemType());
}

void FolderWatcher::onFolderChanged()
{
    if (m_invalidated)
        return;
    // Something changed in the folder, whatever its own modification time says.
    m_folderChanged = true;
    if (m_folderChangeTimer->isActive())
        return;
    m_folderChangeTimer->start(
        static_cast<int>(std::clamp(4 * m_lastCheckCost, shortestCoalescing, longestCoalescing)));
}

void FolderWatcher::checkForNewFiles()
{
    if (m_invalidated)
        return;
    watchFolderIfPresent();

    // A folder of thousands of photos costs milliseconds to list, every second of a long
    // session. On a local disk, adding, removing or renaming an entry changes the folder's own
    // modification time, so while that time stands still a settled folder need not be listed
    // again. Network shares, FUSE mounts and cloud-drive folders don't all keep that promise;
    // there the folder is listed at every poll. Even on a local disk the saving is only taken
    // while the file system's notifications watch the folder, and a notification always leads
    // to a listing, so a name added without touching the folder's time is found all the same.
    // The stamp is only trusted once it lies further back than any file system's timestamp
    // granularity.
    const std::optional<qint64> folderStamp = modificationTime(m_folderPath);
    const QPointer<FolderWatcher> alive(this);
    setFolderAvailable(folderStamp.has_value());
    if (!alive || m_invalidated)
        return; // the receiver stopped or released the watcher
    const qint64 checkStart = now();
    const bool folderChanged = std::exchange(m_folderChanged, false);
    if (folderStamp && folderStamp == m_settledFolderStamp && !folderChanged &&
        folderTimesAreWatched())
        return;
    m_settledFolderStamp.reset();

    QElapsedTimer listing;
    listing.start();
    QStringList candidates;
    // Known names, by far the most in a long session, cost one lookup each and nothing else.
    for (const QString &name : PhotoFileNames::entries(m_folderPath)) {
        if (!m_knownFiles.contains(name) && PhotoFileNames::isAccepted(name))
            candidates.append(name);
    }
    m_lastCheckCost = listing.elapsed();
    if (candidates.isEmpty() && folderStamp && checkStart - *folderStamp > settledFolderAge)
        m_settledFolderStamp = folderStamp;

    // Every candidate is judged again below; one that has gone keeps no deadline.
    m_pending.clear();
    for (auto it = m_announcedQuiet.begin(); it != m_announcedQuiet.end();)
        it = candidates.contains(it.key()) ? std::next(it) : m_announcedQuiet.erase(it);
    handOverReady(std::move(candidates));
}

void FolderWatcher::checkPendingFiles()
{
    if (!m_invalidated)
        handOverReady(m_pending.keys());
}

void FolderWatcher::handOverReady(QStringList names)
{
    std::sort(names.begin(), names.end(), PhotoFileNames::precedes);
    // One instant for the whole check, taken before any attributes are read: a file modified
    // meanwhile only looks younger, and files written together are judged together.
    const qint64 checkTime = now();
    const QDir folder(m_folderPath);
    const QPointer<FolderWatcher> alive(this);
    for (const QString &name : std::as_const(names)) {
        if (m_knownFiles.contains(name)) {
            // Handed over by a check that ran inside the handler.
            m_pending.remove(name);
            continue;
        }
        const QString path = folder.filePath(name);
        const FileReadiness readiness = FileReadiness::of(path, checkTime);
        if (!readiness.ready) {
            if (!followUp(name, path, readiness, checkTime))
                return; // the receiver of candidateQuiet stopped or released the watcher
            continue;
        }
        m_pending.remove(name);
        m_announcedQuiet.remove(name);
        m_knownFiles.insert(name);
        qCDebug(watchLog, "%s: new, handed over", qPrintable(name));
        // A copy, so that a handler that releases the watcher does not destroy itself mid-call.
        const NewFileHandler handler = m_onNewFile;
        handler(QUrl::fromLocalFile(path));
        if (!alive || m_invalidated)
            return; // the handler stopped or released the watcher
    }
    scheduleReadyCheck();
}

bool FolderWatcher::followUp(const QString &name, const QString &path,
                             const FileReadiness &readiness, qint64 checkTime)
{
    if (!readiness.lastModified) {
        m_pending.remove(name); // only a poll can tell when it changes
        return true;
    }
    const qint64 modified = *readiness.lastModified;
    const auto announced = m_announcedQuiet.constFind(name);
    if (announced != m_announcedQuiet.cend() && *announced == modified) {
        m_pending.insert(name, *readiness.readyFrom());
        return true;
    }
    const qint64 quietFrom = modified + quietAfterMilliseconds;
    if (checkTime < quietFrom) {
        m_pending.insert(name, quietFrom);
        return true;
    }
    m_pending.insert(name, *readiness.readyFrom());
    m_announcedQuiet.insert(name, modified);
    qCDebug(watchLog, "%s: quiet, but not ready to read yet", qPrintable(name));
    const QPointer<FolderWatcher> alive(this);
    Q_EMIT candidateQuiet(QUrl::fromLocalFile(path));
    return alive && !m_invalidated;
}

void FolderWatcher::scheduleReadyCheck()
{
    if (m_pending.isEmpty() || !isRunning()) {
        m_readyTimer->stop();
        return;
    }
    const qint64 earliest = *std::min_element(m_pending.cbegin(), m_pending.cend());
    const qint64 wait = std::clamp(earliest + readyCheckSlack - now(), qint64{0}, longestReadyWait);
    m_readyTimer->start(static_cast<int>(wait));
}

QSet<QString> FolderWatcher::listFiles(const QUrl &folder)
{
    QSet<QString> names;
    if (!folder.isLocalFile())
        return names;
    for (const QString &name : PhotoFileNames::entries(folder.toLocalFile())) {
        if (PhotoFileNames::isAccepted(name))
            names.insert(name);
    }
    return names;
}

bool FolderWatcher::isFileReady(const QUrl &file)
{
    return file.isLocalFile() && FileReadiness::of(file.toLocalFile(), now()).ready;
}
