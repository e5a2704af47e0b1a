// SPDX-License-Identifier: MIT
// The semaphore's rules on one thread: permits, order, limits, destruction, and the cases
// that must stop the process.
#include "asyncsemaphore.h"
#include "fatalchild.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QTest>

#include <chrono>
#include <coroutine>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>

using namespace std::chrono_literals;

namespace {

using SharedSemaphore = std::shared_ptr<AsyncSemaphore>;

QCoro::Task<> acquire(SharedSemaphore semaphore, std::function<void()> onAcquired)
{
    co_await semaphore->wait();
    onAcquired();
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
