// SPDX-License-Identifier: MIT
#include "asyncsemaphore.h"

#include <QAbstractEventDispatcher>
#include <QMetaObject>
#include <QThread>

#include <limits>

AsyncSemaphore::AsyncSemaphore(qint64 limit)
    : m_count(limit)
{
    if (limit < 0)
        qFatal("AsyncSemaphore: the limit must not be negative (got %lld)", limit);
}

// Nothing to do for queued waiters: resuming them would let them run without a permit, and
// destroying their frames would pull the ground from under whoever started them. The deque
// just forgets the handles.
AsyncSemaphore::~AsyncSemaphore() = default;

AsyncSemaphore::Awaiter AsyncSemaphore::wait()
{
    return Awaiter(*this);
}

bool AsyncSemaphore::Awaiter::await_suspend(std::coroutine_handle<> handle)
{
    // The event dispatcher is a QObject that lives on this thread, which makes it a ready-made
    // target for posting the resumption back here.
    QObject *context = QAbstractEventDispatcher::instance(QThread::currentThread());
    // Once queued, the coroutine may be resumed (and this awaiter destroyed) by another thread
    // at any moment, so nothing after this call may touch `this`.
    return !m_semaphore.tryAcquireOrEnqueue(Waiter{handle, context});
}

bool AsyncSemaphore::tryAcquireOrEnqueue(Waiter waiter)
{
    const std::lock_guard lock(m_mutex);
    if (m_count > 0) {
        --m_count;
        return true;
    }
    m_waiters.push_back(waiter);
    return false;
}

void AsyncSemaphore::signal()
{
    std::unique_lock lock(m_mutex);
    if (m_waiters.empty()) {
        if (m_count == std::numeric_limits<qint64>::max())
            qFatal("AsyncSemaphore: the permit counter overflowed (signal() without matching "
                   "wait() %lld times)",
                   m_count);
        ++m_count;
        return;
    }

    // The permit goes straight to the oldest waiter; the count stays as it is.
    const Waiter next = m_waiters.front();
    m_waiters.pop_front();

    if (next.resumeContext) {
        // Only the posting happens under the lock; the coroutine runs later, on its own
        // thread. Posting here rather than after unlocking keeps two racing signal() calls
        // from delivering their resumptions to one thread in the opposite order of the queue.
        const std::coroutine_handle<> handle = next.handle;
        QMetaObject::invokeMethod(
            next.resumeContext, [handle] { handle.resume(); }, Qt::QueuedConnection);
        return;
    }

    lock.unlock();
    next.handle.resume();
}

qint64 AsyncSemaphore::count() const
{
    const std::lock_guard lock(m_mutex);
    return m_count;
}

qsizetype AsyncSemaphore::waiterCount() const
{
    const std::lock_guard lock(m_mutex);
    return static_cast<qsizetype>(m_waiters.size());
}
