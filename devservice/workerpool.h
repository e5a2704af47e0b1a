// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <httplib.h>
#include <mutex>
#include <utility>
#include <pthread.h>
#include <vector>

// The threads that serve connections. httplib's own pool runs them on default-sized stacks,
// where libstdc++'s recursive std::regex (used for routes and for headers such as Range) can
// overflow on an 8 KiB path or header, and a malformed request must never crash the service.
// Each connection holds a thread while it is kept alive, so there are plenty of them.
class WorkerPool : public httplib::TaskQueue {
public:
    WorkerPool(std::size_t threads, std::size_t stackBytes);
    ~WorkerPool() override;
    WorkerPool(const WorkerPool &) = delete;
    WorkerPool &operator=(const WorkerPool &) = delete;

    // cpp-httplib's queues return void from enqueue up to 0.14 and whether they took the job
    // (bool) since 0.15: whichever this httplib.h declares.
    using EnqueueResult =
        decltype(std::declval<httplib::TaskQueue &>().enqueue(std::function<void()>()));
    EnqueueResult enqueue(std::function<void()> job) override;
    void shutdown() override;

private:
    static void *run(void *pool);
    void work();

    std::vector<pthread_t> m_threads;
    std::deque<std::function<void()>> m_jobs;
    std::mutex m_mutex;
    std::condition_variable m_jobArrived;
    bool m_shuttingDown = false;
};
