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
class AsyncSemaphore {
public:
    explicit AsyncSemaphore(qint64 limit);
    AsyncSemaphore(const AsyncSemaphore &) = delete;
    AsyncSemaphore &operator=(const AsyncSemaphore &) = delete;

    class Awaiter;
    [[nodiscard]] Awaiter wait();
    void signal();

    // Free permits right now; for tests and diagnostics.
    qint64 count() const;
    qsizetype waiterCount() const;

private:
    struct Waiter {
        std::coroutine_handle<> handle;
        QObject *resumeContext; // an object living on the waiter's thread
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
