// SPDX-License-Identifier: MIT
#include "previewmaker.h"
#include "uploadlog.h"

#include "asyncsemaphore.h"
#include "imageresizer.h"
#include "photoattempt.h"

#include <QCoroFuture>
#include <QElapsedTimer>
#include <QThreadPool>
#include <QtConcurrent/qtconcurrenttask.h>

#include <algorithm>

struct PreviewMaker::Work {
    QUrl file;
    bool early = false;
    bool claimed = false; // a job waits for it: it starts before early work nobody waits for
    bool started = false;
    bool finished = false;
    quint64 sequence = 0;
    Made made;
    WaitList waiters; // let through once the work is finished
};

AsyncSemaphore::Awaiter PreviewMaker::WaitList::join()
{
    ++m_waiting;
    return m_permits.wait();
}

void PreviewMaker::WaitList::releaseAll()
{
    for (; m_waiting > 0; --m_waiting)
        m_permits.signal();
}

PreviewMaker::~PreviewMaker() = default;

PreviewMaker::Made PreviewMaker::makeEarly(const QUrl &file)
{
    const QString path = file.toLocalFile();
    const std::optional<FileStamp> before = FileStamp::of(path);
    if (!before || !before->isSettled())
        return {};
    std::optional<QByteArray> preview = ImageResizer::createPreview(file);
    if (FileStamp::of(path) != before)
        return {}; // written to while it was being read
    return {before, std::move(preview)};
}

void PreviewMaker::prepare(const QUrl &file)
{
    if (!file.isLocalFile())
        return;
    if (const auto existing = m_early.find(file.toLocalFile()); existing != m_early.end()) {
        if (!existing->second->started)
            return; // it reads the file as it is when it starts
        forgetEarly(existing->second); // made, or being made, from an earlier state of the file
    }
    auto work = std::make_shared<Work>();
    work->file = file;
    work->early = true;
    work->sequence = m_nextSequence++;
    m_early.insert_or_assign(file.toLocalFile(), work);
    m_waiting.push_back(work);
    limitEarlyWork();
    startWaitingWork();
}

QCoro::Task<std::optional<QByteArray>> PreviewMaker::make(QUrl file)
{
    const std::shared_ptr<PreviewMaker> self = shared_from_this();
    const QString path = file.isLocalFile() ? file.toLocalFile() : QString();
    std::shared_ptr<Work> early;
    if (const auto found = m_early.find(path); found != m_early.end()) {
        early = std::move(found->second);
        m_early.erase(found);
    }
    if (early) {
        if (!early->finished) {
            early->claimed = true;
            co_await early->waiters.join();
        }
        // Equal stamps: nothing has written to the file since the early preview read it.
        if (early->made.stamp && FileStamp::of(path) == early->made.stamp) {
            ++m_reusedCount;
            co_return std::move(early->made.preview);
        }
    }
    auto work = std::make_shared<Work>();
    work->file = file;
    work->claimed = true;
    work->sequence = m_nextSequence++;
    m_waiting.push_back(work);
    AsyncSemaphore::Awaiter finished = work->waiters.join();
    startWaitingWork();
    co_await finished;
    co_return std::move(work->made.preview);
}

void PreviewMaker::dropEarlyWork()
{
    std::erase_if(m_waiting, [](const std::shared_ptr<Work> &work) { return !work->claimed; });
    m_early.clear();
    releaseCaughtUpWaiters();
}

QCoro::Task<> PreviewMaker::caughtUp()
{
    if (m_waiting.empty())
        co_return;
    const std::shared_ptr<PreviewMaker> self = shared_from_this();
    // Held here too: the maker lets go of it as it lets this coroutine through.
    const auto waiters = std::make_shared<WaitList>();
    AsyncSemaphore::Awaiter released = waiters->join();
    m_caughtUpWaiters.push_back({m_finishedDecodes + static_cast<qint64>(m_waiting.size()), waiters});
    co_await released;
}

void PreviewMaker::releaseCaughtUpWaiters()
{
    std::erase_if(m_caughtUpWaiters, [this](const CaughtUpWaiter &waiter) {
        if (!m_waiting.empty() && m_finishedDecodes < waiter.finishedDecodes)
            return false;
        waiter.waiters->releaseAll();
        return true;
    });
}

bool PreviewMaker::hasEarlyPreview(const QUrl &file) const
{
    const auto found = m_early.find(file.toLocalFile());
    return found != m_early.end() && found->second->finished;
}

void PreviewMaker::startWaitingWork()
{
    while (m_running < concurrentDecodes && !m_waiting.empty()) {
        auto next = std::find_if(m_waiting.begin(), m_waiting.end(),
                                 [](const std::shared_ptr<Work> &work) { return work->claimed; });
        if (next == m_waiting.end())
            next = m_waiting.begin();
        std::shared_ptr<Work> work = std::move(*next);
        m_waiting.erase(next);
        work->started = true;
        ++m_running;
        m_peakDecodes = std::max(m_peakDecodes, m_running);
        run(std::move(work));
    }
    releaseCaughtUpWaiters();
}

QCoro::Task<> PreviewMaker::run(std::shared_ptr<Work> work)
{
    // Keeps the bookkeeping alive until the decode is done, whoever lets go of the maker.
    const std::shared_ptr<PreviewMaker> self = shared_from_this();
    // Made in a statement of its own: GCC 12 mishandles the lifetime of non-trivial
    // temporaries inside a co_await expression.
    QFuture<Made> making =
        QtConcurrent::task([file = work->file, early = work->early] {
            QElapsedTimer took;
            took.start();
            Made made = early ? makeEarly(file)
                              : Made{std::nullopt, ImageResizer::createPreview(file)};
            if (made.preview)
                qCDebug(uploadLog, "%s: preview made%s in %lld ms, %lld bytes",
                        qPrintable(file.fileName()), early ? " early" : "", took.elapsed(),
                        qlonglong(made.preview->size()));
            else
                qCDebug(uploadLog, "%s: no preview%s after %lld ms", qPrintable(file.fileName()),
                        early && !made.stamp ? " yet (the file is being written)" : "",
                        took.elapsed());
            return made;
        })
            .onThreadPool(*QThreadPool::globalInstance())
            .withPriority(PhotoAttempt::previewPoolPriority)
            .spawn();
    work->made = co_await making;
    work->finished = true;
    --m_running;
    ++m_finishedDecodes;
    work->waiters.releaseAll();
    startWaitingWork();
}

void PreviewMaker::limitEarlyWork()
{
    while (m_early.size() > earlyLimit) {
        // The oldest goes: finished, its photo was most likely dropped by a pause; waiting, its
        // job will soon decode it anyway.
        const auto oldest = std::min_element(m_early.cbegin(), m_early.cend(),
                                             [](const auto &a, const auto &b) {
                                                 return a.second->sequence < b.second->sequence;
                                             });
        forgetEarly(oldest->second);
    }
}

void PreviewMaker::forgetEarly(const std::shared_ptr<Work> &work)
{
    const std::shared_ptr<Work> keep = work; // the caller's reference may live in the map
    const QString path = keep->file.toLocalFile();
    if (const auto found = m_early.find(path); found != m_early.end() && found->second == keep)
        m_early.erase(found);
    if (!keep->started)
        std::erase(m_waiting, keep);
}
