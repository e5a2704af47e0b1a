// SPDX-License-Identifier: MIT
#pragma once

#include <QSemaphore>

#include <memory>

// Takes every thread of Qt's global pool until released, so that what a test hands to the pool
// meanwhile certainly waits. Awaiting a future that has already finished does not suspend, so
// pool work that happens to finish at once would otherwise complete inside the call that
// started it, and a test could not tell "under way" from "done".
class HeldThreadPool {
public:
    // Returns once every thread is taken: work queued before waits its turn and runs first.
    HeldThreadPool();
    ~HeldThreadPool();
    HeldThreadPool(const HeldThreadPool &) = delete;
    HeldThreadPool &operator=(const HeldThreadPool &) = delete;

    void release();

private:
    int m_threads = 0;
    // Shared with the holding tasks, which may still be waking when the holder is gone.
    std::shared_ptr<QSemaphore> m_released = std::make_shared<QSemaphore>();
    bool m_holding = true;
};
