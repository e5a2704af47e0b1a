// SPDX-License-Identifier: MIT
// The window an original may have on its way: how it answers the round trips it is told, step
// by step, and, closed in a loop with a model of an uplink that holds a second of queue, that it
// keeps the queue near its target while the link stays busy, and gives the link up to traffic
// that queues anyway.
#include "ledbatwindow.h"

#include <QTest>

#include <algorithm>

using namespace std::chrono_literals;
using Clock = LedbatWindow::Clock;
using std::chrono::microseconds;

namespace {

constexpr qint64 segment = 1448;

LedbatWindow::Measurement measured(microseconds roundTrip, qint64 acknowledged, qint64 inFlight,
                                   bool loss = false)
{
    return {roundTrip, acknowledged, inFlight, segment, loss};
}

// An uplink with a base round trip, a rate and a queue of a given depth, and the upload's own
// bytes on it: the bytes beyond what the path holds wait in the queue, and the queue's wait
// is the delay the round trip tells. Optionally, traffic of others keeps a queue of its own.
struct Uplink {
    double bytesPerSecond;
    microseconds base;
    double queueLimitBytes;
    microseconds othersQueue{0};

    struct Outcome {
        double busyShare = 0;       // of the link's time, carrying the upload
        microseconds meanDelay{0};  // the queueing delay the upload added, on average
        microseconds worstDelay{0};
    };

    // Runs the window against the link in ticks of 10 ms, as the upload looks at its
    // connection, and reports on the last `measuredFor` of it.
    Outcome run(LedbatWindow &window, Clock::time_point &now, std::chrono::seconds duration,
                std::chrono::seconds measuredFor) const
    {
        constexpr auto tick = 10ms;
        const double pathBytes = bytesPerSecond * std::chrono::duration<double>(base).count();
        double inFlight = 0;
        microseconds smoothed{0};
        double carried = 0;
        double delaySum = 0;
        int measuredTicks = 0;
        Outcome outcome;
        const auto end = now + duration;
        const auto measuredFrom = end - measuredFor;
        while (now < end) {
            inFlight = std::max(inFlight, double(window.window())); // the upload fills its window
            bool loss = false;
            double queued = std::max(0.0, inFlight - pathBytes);
            if (queued > queueLimitBytes) {
                inFlight -= queued - queueLimitBytes;
                queued = queueLimitBytes;
                loss = true;
            }
            const auto ownDelay = microseconds(qint64(queued / bytesPerSecond * 1e6));
            const microseconds roundTrip = base + othersQueue + ownDelay;
            // The connection tells its round trip smoothed, as TCP's estimate is: an eighth of
            // each new sample, here a sample a tick, which lags more than TCP's own.
            smoothed = smoothed == microseconds::zero() ? roundTrip
                                                        : smoothed + (roundTrip - smoothed) / 8;
            // What the link delivers in a tick: all it can while the upload has enough on its
            // way, else what the upload's window lets through in a round trip.
            const double perTick = std::chrono::duration<double>(tick).count() *
                                   std::min(bytesPerSecond,
                                            inFlight / std::chrono::duration<double>(roundTrip).count());
            const double acknowledged = std::min(inFlight, perTick);
            inFlight -= acknowledged;
            now += tick;
            window.update(measured(smoothed, qint64(acknowledged), qint64(inFlight), loss), now);
            if (now >= measuredFrom) {
                carried += acknowledged;
                delaySum += double(ownDelay.count());
                outcome.worstDelay = std::max(outcome.worstDelay, ownDelay);
                ++measuredTicks;
            }
        }
        outcome.busyShare = carried / (bytesPerSecond * double(measuredFor.count()));
        outcome.meanDelay = microseconds(qint64(delaySum / std::max(1, measuredTicks)));
        return outcome;
    }
};

// Takes a new window through rounds of slow start on a path of `base` with no queue, a whole
// window acknowledged each round; returns the time it got to.
Clock::time_point slowStarted(LedbatWindow &window, microseconds base, int rounds)
{
    Clock::time_point now{};
    window.update(measured(base, 0, 0), now);
    for (int round = 0; round < rounds; ++round) {
        now += base;
        window.update(measured(base, window.window(), 0), now);
    }
    return now;
}

// Takes a window through slow start to eighty segments on a path of 20 ms, and ends slow start
// with a queue at the target; returns the time it got to.
Clock::time_point pastSlowStart(LedbatWindow &window)
{
    Clock::time_point now = slowStarted(window, 20ms, 3);
    now += 20ms;
    window.update(measured(20ms + LedbatWindow::targetDelay, 1, 0), now);
    return now;
}

} // namespace

class LedbatWindowTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // A new path starts with ten segments, as TCP does, counted in the path's own segments.
    void firstWindowIsTenSegmentsOfThePath()
    {
        LedbatWindow window;
        QCOMPARE(window.window(), 10 * 1448);
        window.update({20ms, 0, 0, 65483, false}, Clock::time_point{});
        QCOMPARE(window.window(), 10 * 65483);
    }

    void slowStartDoublesUntilTheQueueShows()
    {
        LedbatWindow window;
        Clock::time_point now{};
        window.update(measured(20ms, 0, 0), now); // the path's base: 20 ms
        for (int round = 0; round < 3; ++round) {
            const qint64 before = window.window();
            now += 20ms;
            window.update(measured(20ms, before, 0), now);
            QCOMPARE(window.window(), 2 * before);
        }
        // Half the target in the queue ends the doubling for good: from then on a window's
        // worth acknowledged adds a segment at most.
        const qint64 before = window.window();
        now += 20ms;
        window.update(measured(20ms + LedbatWindow::targetDelay / 2, before, 0), now);
        QVERIFY(window.window() <= before + segment);
        const qint64 after = window.window();
        now += 20ms;
        window.update(measured(20ms, after, 0), now);
        QVERIFY(window.window() <= after + segment);
    }

    // Past slow start and below the target: a segment more for each window's worth
    // acknowledged with no queue, half a segment halfway to the target, none at it.
    void growsBelowTheTarget_data()
    {
        QTest::addColumn<int>("queueMs");
        QTest::addColumn<double>("segmentsAdded");
        QTest::newRow("no queue") << 0 << 1.0;
        QTest::newRow("halfway") << int(LedbatWindow::targetDelay.count() / 2) << 0.5;
        QTest::newRow("at the target") << int(LedbatWindow::targetDelay.count()) << 0.0;
    }
    void growsBelowTheTarget()
    {
        QFETCH(int, queueMs);
        QFETCH(double, segmentsAdded);
        LedbatWindow window;
        Clock::time_point now = pastSlowStart(window);
        const qint64 before = window.window();
        // One window's worth, a segment at a time, with the window in use all along.
        for (qint64 acknowledged = 0; acknowledged < before; acknowledged += segment) {
            now += 1ms;
            window.update(measured(20ms + std::chrono::milliseconds(queueMs), segment,
                                   window.window() - segment),
                          now);
        }
        const double added = double(window.window() - before) / double(segment);
        QVERIFY2(std::abs(added - segmentsAdded) <= 0.1, qPrintable(QString::number(added)));
    }

    // Beyond the target the window comes down by half the excess queue at once, and not again
    // until a round trip has shown what that did.
    void comesDownInProportionOnceARoundTrip()
    {
        LedbatWindow window;
        Clock::time_point now = pastSlowStart(window);
        const qint64 before = window.window();
        // 20 ms of path and 75 ms of queue, 50 of them beyond the target: half of 50/95.
        now += 1ms;
        window.update(measured(95ms, segment, before - segment), now);
        const double expected = double(before) * (1.0 - 50.0 / 95.0 / 2.0);
        QVERIFY2(std::abs(double(window.window()) - expected) <= 1.0,
                 qPrintable(QStringLiteral("%1 -> %2").arg(before).arg(window.window())));
        const qint64 cut = window.window();
        now += 50ms; // within the round trip: the queue told is the one already answered
        window.update(measured(95ms, segment, cut), now);
        QCOMPARE(window.window(), cut);
        now += 50ms;
        window.update(measured(95ms, segment, cut), now);
        QVERIFY(window.window() < cut);
    }

    // A window the upload does not fill (its last bytes, a pause for a preview) tells nothing
    // about the path and does not grow; it still shrinks when the queue is long.
    void anUnusedWindowDoesNotGrow()
    {
        LedbatWindow window;
        Clock::time_point now{};
        window.update(measured(20ms, 0, 0), now);
        const qint64 before = window.window();
        for (int i = 0; i < 100; ++i) {
            now += 20ms;
            window.update(measured(20ms, segment, 0), now);
        }
        QCOMPARE(window.window(), before);
    }

    void aLossHalvesTheWindowOnceARoundTrip()
    {
        LedbatWindow window;
        Clock::time_point now = slowStarted(window, 20ms, 4);
        const qint64 before = window.window();
        now += 20ms;
        window.update(measured(20ms, segment, before, true), now);
        QCOMPARE(window.window(), before / 2);
        now += 5ms; // the same round trip: the same loss, seen again
        window.update(measured(20ms, segment, before, true), now);
        QCOMPARE(window.window(), before / 2);
        now += 20ms;
        window.update(measured(20ms, segment, before, true), now);
        QCOMPARE(window.window(), before / 4);
    }

    void neverBelowTwoSegments()
    {
        LedbatWindow window;
        Clock::time_point now{};
        window.update(measured(20ms, 0, 0), now);
        for (int i = 0; i < 200; ++i) {
            now += 30ms;
            window.update(measured(120ms, segment, segment, i % 2 == 0), now);
        }
        QCOMPARE(window.window(), 2 * segment);
    }

    // The base is the shortest round trip of the last two minutes: a longer one does not move
    // it, a shorter one does at once, and once the short ones are two minutes old the path is
    // taken to be as slow as it now looks.
    void theBaseIsTheShortestRoundTripRemembered()
    {
        LedbatWindow window;
        Clock::time_point now{};
        QVERIFY(!window.baseDelay());
        window.update(measured(30ms, 0, 0), now);
        QCOMPARE(*window.baseDelay(), microseconds(30ms));
        now += 1s;
        window.update(measured(50ms, 0, 0), now);
        QCOMPARE(*window.baseDelay(), microseconds(30ms));
        QCOMPARE(window.queueingDelay(), microseconds(20ms));
        now += 1s;
        window.update(measured(25ms, 0, 0), now);
        QCOMPARE(*window.baseDelay(), microseconds(25ms));
        for (int i = 0; i < 130; ++i) {
            now += 1s;
            window.update(measured(80ms, 0, 0), now);
        }
        QCOMPARE(*window.baseDelay(), microseconds(80ms));
        QCOMPARE(window.queueingDelay(), microseconds(0));
    }

    void aNewNetworkIsLearnedAfresh()
    {
        LedbatWindow window;
        Clock::time_point now = slowStarted(window, 10ms, 5);
        QVERIFY(window.window() > 10 * segment);
        window.forgetPath();
        QCOMPARE(window.window(), 10 * segment);
        QVERIFY(!window.baseDelay());
        window.update(measured(90ms, 0, 0), now);
        QCOMPARE(*window.baseDelay(), microseconds(90ms));
    }

    // Closed in a loop with uplinks as photographers have them, each holding a second of queue
    // that an ordinary upload would fill: the queue the upload keeps stays near the target,
    // and the link stays busy.
    void keepsADeepQueueNearTheTargetAndTheLinkBusy_data()
    {
        QTest::addColumn<double>("megabits");
        QTest::addColumn<int>("baseMs");
        QTest::newRow("venue Wi-Fi, 20 Mbit/s") << 20.0 << 10;
        QTest::newRow("4G, 5 Mbit/s") << 5.0 << 50;
        QTest::newRow("weak 4G, 2 Mbit/s") << 2.0 << 80;
        QTest::newRow("fibre, 100 Mbit/s") << 100.0 << 5;
    }
    void keepsADeepQueueNearTheTargetAndTheLinkBusy()
    {
        QFETCH(double, megabits);
        QFETCH(int, baseMs);
        const double bytesPerSecond = megabits * 1e6 / 8;
        const Uplink link{bytesPerSecond, std::chrono::milliseconds(baseMs), bytesPerSecond};
        LedbatWindow window;
        Clock::time_point now{};
        const Uplink::Outcome outcome = link.run(window, now, 60s, 30s);
        const QString figures = QStringLiteral("busy %1, mean delay %2 us, worst %3 us")
                                    .arg(outcome.busyShare)
                                    .arg(outcome.meanDelay.count())
                                    .arg(outcome.worstDelay.count());
        QVERIFY2(outcome.busyShare > 0.97, qPrintable(figures));
        QVERIFY2(outcome.meanDelay <= 3 * LedbatWindow::targetDelay / 2, qPrintable(figures));
        QVERIFY2(outcome.worstDelay <= 3 * LedbatWindow::targetDelay, qPrintable(figures));
    }

    // Traffic of others that keeps a queue of its own (a video call's upload, another machine's
    // backup) beyond the target: the upload steps back to a trickle of its window.
    void givesTheLinkUpToTrafficThatQueuesAnyway()
    {
        const double bytesPerSecond = 5e6 / 8;
        LedbatWindow window;
        Clock::time_point now{};
        const Uplink alone{bytesPerSecond, 40ms, bytesPerSecond};
        QVERIFY(alone.run(window, now, 10s, 5s).busyShare > 0.97);
        const Uplink shared{bytesPerSecond, 40ms, bytesPerSecond, 150ms};
        const Uplink::Outcome outcome = shared.run(window, now, 20s, 10s);
        QCOMPARE(window.window(), 2 * segment);
        QVERIFY2(outcome.busyShare < 0.1, qPrintable(QString::number(outcome.busyShare)));
    }
};

QTEST_GUILESS_MAIN(LedbatWindowTest)
#include "tst_ledbatwindow.moc"
