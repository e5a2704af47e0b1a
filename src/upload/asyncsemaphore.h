// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <coroutine>
#include <deque>
#include <memory>
#include <mutex>

class QObject;

// A counting semaphore for coroutines: `co_await semaphore->wait()` suspends the calling
// coroutine, never its thread, until a permit is free. Safe from any thread. Waiters are
// admitted first in, first out; a waiter is resumed on the thread it suspended on (that thread
// must run a Qt event loop), never inline under the lock. Shared by reference between the jobs
// of one lane, hence held in a std::shared_ptr.
//
// The waiter's thread has to keep processing events until its waiters have been resumed: a
// resumption posted to a thread that has finished is dropped with the thread's event queue,
// and one posted to a QThreadPool worker (which has an event dispatcher but runs no loop)
// waits for events that are never processed. A thread without any Qt event dispatcher (a
// plain std::thread) cannot be posted to; its waiters are resumed by the signal() that admits
// them, on the signalling thread, after the lock has been released.
class AsyncSemaphore {
public:
    // A negative limit would leave waiters queued while permits are owed, which the direct
    // hand-over in signal() cannot express; it stops the process.
    explicit AsyncSemaphore(qint64 limit);
    // Waiters still queued are dropped without being resumed; their coroutine frames belong to
    // whoever started them.
    ~AsyncSemaphore();
    AsyncSemaphore(const AsyncSemaphore &) = delete;
    AsyncSemaphore &operator=(const AsyncSemaphore &) = delete;

    class Awaiter;
    [[nodiscard]] Awaiter wait();
    // Gives a permit back: straight to the oldest waiter if there is one, otherwise to the
    // pool of free permits, which has no upper bound. Overflowing the counter stops the process.
    void signal();

    // Free permits right now; for tests and diagnostics.
    qint64 count() const;
    qsizetype waiterCount() const;

private:
    struct Waiter {
        std::coroutine_handle<> handle;
        QObject *resumeContext; // an object living on the waiter's thread, or null
    };

    // Takes a permit if one is free; otherwise queues the waiter. One step under the lock, so a
    // signal() can never fall between the test and the enqueue.
    bool tryAcquireOrEnqueue(Waiter waiter);

    mutable std::mutex m_mutex;
    qint64 m_count;
    std::deque<Waiter> m_waiters;
};

class AsyncSemaphore::Awaiter {
public:
    explicit Awaiter(AsyncSemaphore &semaphore)
        : m_semaphore(semaphore)
    {
    }
    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> handle);
    void await_resume() const noexcept {}

private:
    AsyncSemaphore &m_semaphore;
};
