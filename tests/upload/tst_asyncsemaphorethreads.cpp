// SPDX-License-Identifier: MIT
// The semaphore shared between threads: no lost signal, each waiter resumed on its own thread,
// and thousands of waiters keeping their order and the limit.
#include "asyncsemaphore.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QCoroTimer>
#include <QDeadlineTimer>
#include <QSemaphore>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <coroutine>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <numeric>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using SharedSemaphore = std::shared_ptr<AsyncSemaphore>;

// A QThread running its own event loop, with an object living on it to post work to.
class EventLoopThread {
public:
    EventLoopThread()
        : m_context(new QObject)
    {
        m_context->moveToThread(&m_thread);
        QObject::connect(&m_thread, &QThread::finished, m_context, &QObject::deleteLater);
        m_thread.start();
    }
    ~EventLoopThread()
    {
        m_thread.quit();
        m_thread.wait();
    }
    EventLoopThread(const EventLoopThread &) = delete;
    EventLoopThread &operator=(const EventLoopThread &) = delete;

    template<typename Function>
    void post(Function function)
    {
        QMetaObject::invokeMethod(m_context, std::move(function), Qt::QueuedConnection);
    }
    QThread *thread() { return &m_thread; }

private:
    QThread m_thread;
    QObject *m_context;
};

QCoro::Task<> acquire(SharedSemaphore semaphore, std::function<void()> onAcquired)
{
    co_await semaphore->wait();
    onAcquired();
}

struct ThreadReport {
    std::atomic<QThread *> suspendedOn{nullptr};
    std::atomic<QThread *> resumedOn{nullptr};
    QSemaphore resumed;
};

QCoro::Task<> acquireAndReport(SharedSemaphore semaphore, std::shared_ptr<ThreadReport> report)
{
    report->suspendedOn = QThread::currentThread();
    co_await semaphore->wait();
    report->resumedOn = QThread::currentThread();
    report->resumed.release();
}

struct Tally {
    std::atomic<int> inFlight{0};
    std::atomic<int> mostInFlight{0};
    std::atomic<int> acquisitions{0};
    QSemaphore finished;
};

// Holds its permit across a trip through the event loop now and then, so that permits are
// given back from other threads while waiters queue up.
QCoro::Task<> churn(SharedSemaphore semaphore, std::shared_ptr<Tally> tally, int rounds)
{
    for (int round = 0; round < rounds; ++round) {
        co_await semaphore->wait();
        const int inFlight = ++tally->inFlight;
        int most = tally->mostInFlight.load();
        while (inFlight > most && !tally->mostInFlight.compare_exchange_weak(most, inFlight)) {
        }
        ++tally->acquisitions;
        if (round % 2 == 0) {
            // In a statement of its own: GCC 12 mishandles temporaries inside co_await.
            QCoro::Task<> pause = QCoro::sleepFor(0ms);
            co_await pause;
        }
        --tally->inFlight;
        semaphore->signal();
    }
    tally->finished.release();
}

// Waits (other threads do the work) until the condition holds or the time is up: yields at
// first, then naps, so that a busy machine still lets the other threads run.
template<typename Condition>
bool spinUntil(Condition condition, std::chrono::milliseconds timeout = 30s)
{
    const QDeadlineTimer deadline(timeout);
    for (int spins = 0; !condition(); ++spins) {
        if (deadline.hasExpired())
            return false;
        if (spins < 100)
            std::this_thread::yield();
        else
            std::this_thread::sleep_for(50us);
    }
    return true;
}

} // namespace

class AsyncSemaphoreThreadsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void signalRacingWaitIsNotLost()
    {
        const auto semaphore = std::make_shared<AsyncSemaphore>(0);
        EventLoopThread waiterThread;
        EventLoopThread signallerThread;
        QSemaphore resumed;
        constexpr int rounds = 3000;
        for (int round = 0; round < rounds; ++round) {
            // Both sides leave the latch together, so the signal lands anywhere from before
            // the test in wait() to after the suspension.
            const auto start = std::make_shared<std::latch>(2);
            waiterThread.post([start, semaphore, &resumed] {
                start->arrive_and_wait();
                acquire(semaphore, [&resumed] { resumed.release(); });
            });
            signallerThread.post([start, semaphore] {
                start->arrive_and_wait();
                semaphore->signal();
            });
            QVERIFY2(resumed.tryAcquire(1, 30'000),
                     qPrintable(QStringLiteral("waiter %1 was never resumed").arg(round)));
        }
        QVERIFY(spinUntil([&] { return semaphore->waiterCount() == 0; }));
        QCOMPARE(semaphore->count(), 0);
    }

    void waiterIsResumedOnItsOwnThread()
    {
        const auto semaphore = std::make_shared<AsyncSemaphore>(0);
        EventLoopThread first;
        EventLoopThread second;
        const auto firstReport = std::make_shared<ThreadReport>();
        const auto secondReport = std::make_shared<ThreadReport>();
        first.post([semaphore, firstReport] { acquireAndReport(semaphore, firstReport); });
        QVERIFY(spinUntil([&] { return semaphore->waiterCount() == 1; }));
        second.post([semaphore, secondReport] { acquireAndReport(semaphore, secondReport); });
        QVERIFY(spinUntil([&] { return semaphore->waiterCount() == 2; }));

        semaphore->signal(); // from the main thread
        QVERIFY(firstReport->resumed.tryAcquire(1, 30'000));
        std::thread([semaphore] { semaphore->signal(); }).join(); // from a thread of no Qt's
        QVERIFY(secondReport->resumed.tryAcquire(1, 30'000));

        QCOMPARE(firstReport->suspendedOn.load(), first.thread());
        QCOMPARE(firstReport->resumedOn.load(), first.thread());
        QCOMPARE(secondReport->suspendedOn.load(), second.thread());
        QCOMPARE(secondReport->resumedOn.load(), second.thread());
    }

    void waiterOnThreadWithoutEventLoopIsResumedBySignal()
    {
        const auto semaphore = std::make_shared<AsyncSemaphore>(0);
        std::atomic<QThread *> resumedOn{nullptr};
        qint64 countSeen = -1;
        std::thread([&] {
            acquire(semaphore, [&] {
                resumedOn = QThread::currentThread();
                // Takes the lock again: this would hang if the resumption ran under it.
                countSeen = semaphore->count();
                semaphore->signal();
            });
        }).join();
        QCOMPARE(semaphore->waiterCount(), 1);
        QCOMPARE(resumedOn.load(), nullptr);

        semaphore->signal();
        QCOMPARE(resumedOn.load(), QThread::currentThread());
        QCOMPARE(countSeen, 0);
        QCOMPARE(semaphore->count(), 1);
        QCOMPARE(semaphore->waiterCount(), 0);
    }

    void thousandsOfWaitersOnSeveralThreadsKeepTheirOrder()
    {
        constexpr int threadCount = 4;
        constexpr int waiterCount = 4000;
        constexpr int signallerCount = 4;
        constexpr int signalsPerBatch = 400;
        const auto semaphore = std::make_shared<AsyncSemaphore>(0);
        std::vector<std::unique_ptr<EventLoopThread>> threads;
        for (int i = 0; i < threadCount; ++i)
            threads.push_back(std::make_unique<EventLoopThread>());

        std::mutex recordMutex;
        std::vector<int> resumedInOrder;
        std::vector<std::vector<int>> resumedPerThread(threadCount);
        QSemaphore resumed;
        for (int waiter = 0; waiter < waiterCount; ++waiter) {
            const int thread = waiter % threadCount;
            threads[thread]->post([&, semaphore, waiter, thread] {
                acquire(semaphore, [&, waiter, thread] {
                    const std::lock_guard lock(recordMutex);
                    resumedInOrder.push_back(waiter);
                    resumedPerThread[thread].push_back(waiter);
                    resumed.release();
                });
            });
            // One at a time, so the order of the queue is known.
            QVERIFY(spinUntil([&] { return semaphore->waiterCount() == waiter + 1; }));
        }

        for (int handedOver = 0; handedOver < waiterCount; handedOver += signalsPerBatch) {
            std::vector<std::thread> signallers;
            for (int s = 0; s < signallerCount; ++s) {
                signallers.emplace_back([semaphore] {
                    for (int i = 0; i < signalsPerBatch / signallerCount; ++i)
                        semaphore->signal();
                });
            }
            for (std::thread &signaller : signallers)
                signaller.join();
            QVERIFY(resumed.tryAcquire(signalsPerBatch, 60'000));

            // Exactly the oldest waiters have their permits, however the signals interleaved.
            const std::lock_guard lock(recordMutex);
            std::vector<int> admitted = resumedInOrder;
            std::sort(admitted.begin(), admitted.end());
            std::vector<int> oldest(handedOver + signalsPerBatch);
            std::iota(oldest.begin(), oldest.end(), 0);
            QCOMPARE(admitted, oldest);
            QCOMPARE(semaphore->count(), 0);
        }

        for (const std::vector<int> &perThread : resumedPerThread) {
            QCOMPARE(perThread.size(), std::size_t{waiterCount / threadCount});
            QVERIFY(std::is_sorted(perThread.begin(), perThread.end()));
        }
        QCOMPARE(semaphore->waiterCount(), 0);
        QCOMPARE(semaphore->count(), 0);
        semaphore->signal();
        QCOMPARE(semaphore->count(), 1);
    }

    void manyTasksOnSeveralThreadsShareTheLimit()
    {
        constexpr qint64 limit = 3;
        constexpr int threadCount = 4;
        constexpr int tasksPerThread = 250;
        constexpr int rounds = 4;
        const auto semaphore = std::make_shared<AsyncSemaphore>(limit);
        const auto tally = std::make_shared<Tally>();
        std::vector<std::unique_ptr<EventLoopThread>> threads;
        for (int i = 0; i < threadCount; ++i)
            threads.push_back(std::make_unique<EventLoopThread>());

        for (const auto &thread : threads) {
            thread->post([semaphore, tally] {
                for (int task = 0; task < tasksPerThread; ++task)
                    churn(semaphore, tally, rounds);
            });
        }
        QVERIFY2(tally->finished.tryAcquire(threadCount * tasksPerThread, 120'000),
                 "a waiter was never woken");
        QCOMPARE(tally->acquisitions.load(), threadCount * tasksPerThread * rounds);
        QVERIFY(tally->mostInFlight.load() <= limit);
        QCOMPARE(tally->inFlight.load(), 0);
        QCOMPARE(semaphore->count(), limit);
        QCOMPARE(semaphore->waiterCount(), 0);
    }
};

QTEST_GUILESS_MAIN(AsyncSemaphoreThreadsTest)
#include "tst_asyncsemaphorethreads.moc"
