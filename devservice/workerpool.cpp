// SPDX-License-Identifier: MIT
#include "workerpool.h"

#include <cstdio>

WorkerPool::WorkerPool(std::size_t threads, std::size_t stackBytes) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes);
    for (std::size_t i = 0; i < threads; ++i) {
        pthread_t thread;
        if (pthread_create(&thread, &attributes, &WorkerPool::run, this) == 0)
            m_threads.push_back(thread);
        else
            std::fprintf(stderr, "devservice: could not start worker thread %zu\n", i);
    }
    pthread_attr_destroy(&attributes);
}

WorkerPool::~WorkerPool() {
    shutdown();
}

WorkerPool::EnqueueResult WorkerPool::enqueue(std::function<void()> job) {
    {
        const std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_jobArrived.notify_one();
    return static_cast<EnqueueResult>(true); // every job is taken
}

void WorkerPool::shutdown() {
    {
        const std::lock_guard lock(m_mutex);
        m_shuttingDown = true;
    }
    m_jobArrived.notify_all();
    for (pthread_t thread : m_threads)
        pthread_join(thread, nullptr);
    m_threads.clear();
}

void *WorkerPool::run(void *pool) {
    static_cast<WorkerPool *>(pool)->work();
    return nullptr;
}

void WorkerPool::work() {
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(m_mutex);
            m_jobArrived.wait(lock, [this] { return m_shuttingDown || !m_jobs.empty(); });
            if (m_jobs.empty())
                return;
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        job();
    }
}
