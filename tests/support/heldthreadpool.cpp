// SPDX-License-Identifier: MIT
#include "heldthreadpool.h"

#include <QThreadPool>

HeldThreadPool::HeldThreadPool()
    : m_threads(QThreadPool::globalInstance()->maxThreadCount())
{
    const auto started = std::make_shared<QSemaphore>();
    for (int i = 0; i < m_threads; ++i)
        QThreadPool::globalInstance()->start([started, released = m_released] {
            started->release();
            released->acquire();
        });
    started->acquire(m_threads);
}

HeldThreadPool::~HeldThreadPool() { release(); }

void HeldThreadPool::release()
{
    if (!m_holding)
        return;
    m_holding = false;
    m_released->release(m_threads);
}
