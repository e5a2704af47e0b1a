// SPDX-License-Identifier: MIT
#include "asyncsemaphore.h"
#include "fatalchild.h"

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
#include <cstdio>
#include <functional>
#include <latch>
#include <limits>
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

// A bare coroutine whose frame stays with the caller, so that one left queued in a destroyed
// semaphore can still be freed by the test.
struct OwnedCoroutine {
    struct promise_type {
        OwnedCoroutine get_return_object()
        {
            return {std::coroutine_handle<promise_type>::from_promise(*this)};
        }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };
    std::coroutine_handle<promise_type> handle;
};

OwnedCoroutine acquireOwned(AsyncSemaphore *semaphore, bool *resumed)
{
    co_await semaphore->wait();
    *resumed = true;
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

// Runs in a child process: the paths that must stop the process cannot be exercised in the
// test process itself.
int runFatalChild(const QByteArray &mode)
{
    FatalChild::expectAbort();
    constexpr qint64 most = std::numeric_limits<qint64>::max();
    if (mode == "at-most") {
        AsyncSemaphore semaphore(most);
        std::printf("count %lld\n", semaphore.count());
        return 0;
    }
    if (mode == "overflow") {
        AsyncSemaphore semaphore(most);
        semaphore.signal();
        std::printf("still alive\n");
        return 0;
    }
    if (mode == "negative") {
        AsyncSemaphore semaphore(-1);
        std::printf("still alive\n");
        return 0;
    }
    return 2;
}

} // namespace

class AsyncSemaphoreTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void freePermitsAreTakenAtOnceThenWaitersQueue()
    {
        const auto semaphore = std::make_shared<AsyncSemaphore>(2);
        int acquired = 0;
        // Nothing processes events between these lines: an immediate permit means the
        // coroutine has already run past its co_await when acquire() returns.
        acquire(semaphore, [&] { ++acquired; });
        QCOMPARE(acquired, 1);
        acquire(semaphore, [&] { ++acquired; });
        QCOMPARE(acquired, 2);
        QCOMPARE(semaphore->count(), 0);

        bool third = false;
        acquire(semaphore, [&] { third = true; });
        QVERIFY(!third);
        QCOMPARE(semaphore->waiterCount(), 1);

        semaphore->signal();
        QVERIFY2(!third, "the waiter ran inside signal() instead of on its event loop");
        QCOMPARE(semaphore->waiterCount(), 0);
        QCOMPARE(semaphore->count(), 0);
        QTRY_VERIFY(third);
        QCOMPARE(semaphore->count(), 0);
    }

    void queuedWaitersAreResumedFirstInFirstOut()
    {
        const auto semaphore = std::make_shared<AsyncSemaphore>(0);
        QList<char> order;
        for (const char name : {'A', 'B', 'C'})
            acquire(semaphore, [&order, name] { order.append(name); });
        QCOMPARE(semaphore->waiterCount(), 3);

        semaphore->signal();
        QTRY_COMPARE(order, QList<char>({'A'}));
        QCOMPARE(semaphore->waiterCount(), 2);
        semaphore->signal();
        semaphore->signal();
        QTRY_COMPARE(order, QList<char>({'A', 'B', 'C'}));
        QCOMPARE(semaphore->count(), 0);
        QCOMPARE(semaphore->waiterCount(), 0);
    }

    void signalWithoutWaiterRaisesCountAboveLimit()
    {
        const auto semaphore = std::make_shared<AsyncSemaphore>(2);
        semaphore->signal();
        QCOMPARE(semaphore->count(), 3);

        int acquired = 0;
        for (int i = 0; i < 3; ++i)
            acquire(semaphore, [&] { ++acquired; });
        QCOMPARE(acquired, 3);
        QCOMPARE(semaphore->count(), 0);
        QCOMPARE(semaphore->waiterCount(), 0);
    }

    void zeroLimitSuspendsEveryWaitUntilSignalled()
    {
        const auto semaphore = std::make_shared<AsyncSemaphore>(0);
        QCOMPARE(semaphore->count(), 0);
        bool first = false;
        bool second = false;
        acquire(semaphore, [&] { first = true; });
        acquire(semaphore, [&] { second = true; });
        QCoreApplication::processEvents();
        QVERIFY(!first);
        QVERIFY(!second);
        QCOMPARE(semaphore->waiterCount(), 2);

        semaphore->signal();
        QTRY_VERIFY(first);
        QVERIFY(!second);
        semaphore->signal();
        QTRY_VERIFY(second);
        QCOMPARE(semaphore->count(), 0);
    }

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

    void resumedWaiterMayUseTheSemaphoreAtOnce()
    {
        const auto semaphore = std::make_shared<AsyncSemaphore>(0);
        bool inSignal = false;
        bool resumedInsideSignal = true;
        qint64 countSeen = -1;
        acquire(semaphore, [&] {
            resumedInsideSignal = inSignal;
            countSeen = semaphore->count();
            semaphore->signal();
        });
        inSignal = true;
        semaphore->signal();
        inSignal = false;
        QTRY_COMPARE(semaphore->count(), 1);
        QVERIFY(!resumedInsideSignal);
        QCOMPARE(countSeen, 0);
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

    void destructionDropsQueuedWaitersUnresumed()
    {
        auto semaphore = std::make_unique<AsyncSemaphore>(0);
        bool resumed = false;
        const OwnedCoroutine waiter = acquireOwned(semaphore.get(), &resumed);
        QVERIFY(!waiter.handle.done());
        QCOMPARE(semaphore->waiterCount(), 1);

        semaphore.reset();
        QCoreApplication::processEvents();
        QVERIFY(!resumed);
        QVERIFY(!waiter.handle.done());
        waiter.handle.destroy(); // still ours to free: the semaphore let go without touching it
    }

    void permitHandedOverSurvivesTheSemaphore()
    {
        auto semaphore = std::make_unique<AsyncSemaphore>(0);
        bool resumed = false;
        const OwnedCoroutine waiter = acquireOwned(semaphore.get(), &resumed);
        semaphore->signal();
        semaphore.reset();
        QTRY_VERIFY(resumed);
        QVERIFY(waiter.handle.done());
        waiter.handle.destroy();
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

    void countAtItsMostIsFine()
    {
        const FatalChild::Result child = FatalChild::run("at-most");
        QCOMPARE(child.status, QProcess::NormalExit);
        QCOMPARE(child.exitCode, 0);
        QCOMPARE(child.output.trimmed(),
                 QByteArray("count ") + QByteArray::number(std::numeric_limits<qint64>::max()));
    }

    void counterOverflowStopsTheProcess()
    {
        const FatalChild::Result child = FatalChild::run("overflow");
        QCOMPARE(child.status, QProcess::CrashExit);
        QVERIFY(!child.output.contains("still alive"));
        QVERIFY2(child.errors.contains("permit counter overflowed"), child.errors.constData());
    }

    void negativeLimitStopsTheProcess()
    {
        const FatalChild::Result child = FatalChild::run("negative");
        QCOMPARE(child.status, QProcess::CrashExit);
        QVERIFY(!child.output.contains("still alive"));
        QVERIFY2(child.errors.contains("must not be negative"), child.errors.constData());
    }
};

int main(int argc, char **argv)
{
    if (const QByteArray fatalMode = FatalChild::mode(); !fatalMode.isEmpty())
        return runFatalChild(fatalMode);

    QCoreApplication app(argc, argv);
    AsyncSemaphoreTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_asyncsemaphore.moc"
