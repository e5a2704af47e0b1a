// SPDX-License-Identifier: MIT
// When the desktop is told about delivery: not while all is well, not before photos have waited
// long enough, never two alerts closer than the gap, and each as things stand when it goes out.
// The waits are shortened here; the whole program's test runs them at their real minute.
#include "deliveryalerts.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace std::chrono_literals;
using Reason = DeliveryStatus::Reason;

namespace {
DeliveryAlerts::Alert alertAt(const QSignalSpy &spy, int index)
{
    return spy.at(index).at(0).value<DeliveryAlerts::Alert>();
}
} // namespace

class DeliveryAlertsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<DeliveryAlerts::Alert>(); }

    void aShortWaitIsNotTold()
    {
        DeliveryAlerts alerts({1h, 0ms});
        QSignalSpy told(&alerts, &DeliveryAlerts::alert);
        alerts.setWaiting(2, Reason::offline);
        alerts.setWaiting(3, Reason::offline);
        alerts.setWaiting(0, Reason::sending);
        QTest::qWait(50);
        QCOMPARE(told.count(), 0);
    }

    void photosThatWaitedLongAreToldWithHowManyAndWhyAndThenTheirEnd()
    {
        DeliveryAlerts alerts({100ms, 0ms});
        QSignalSpy told(&alerts, &DeliveryAlerts::alert);
        alerts.setWaiting(3, Reason::offline);
        QCOMPARE(told.count(), 0);
        QTRY_COMPARE(told.count(), 1);
        QCOMPARE(alertAt(told, 0).topic, DeliveryAlerts::Topic::waiting);
        QCOMPARE(alertAt(told, 0).title, QStringLiteral("3 fotos en espera"));
        QVERIFY(alertAt(told, 0).text.startsWith(QStringLiteral("Sin conexión.")));

        // More photos, or another reason: told again.
        alerts.setWaiting(5, Reason::offline);
        QCOMPARE(told.count(), 2);
        QCOMPARE(alertAt(told, 1).title, QStringLiteral("5 fotos en espera"));
        alerts.setWaiting(5, Reason::signInNeeded);
        QCOMPARE(told.count(), 3);
        QVERIFY(alertAt(told, 2).text.startsWith(QStringLiteral("Inicia sesión de nuevo.")));
        // Fewer, or on their way again: nothing until the end of the wait.
        alerts.setWaiting(4, Reason::signInNeeded);
        alerts.setWaiting(2, Reason::sending);
        QCOMPARE(told.count(), 3);
        alerts.setWaiting(0, Reason::none);
        QCOMPARE(told.count(), 4);
        QCOMPARE(alertAt(told, 3).topic, DeliveryAlerts::Topic::waiting);
        QVERIFY(alertAt(told, 3).waitOver);
        QCOMPARE(alertAt(told, 3).text, QStringLiteral("Las 5 fotos que esperaban ya se enviaron."));
    }

    void everyReasonIsToldInItsOwnWords_data()
    {
        QTest::addColumn<int>("reason");
        QTest::addColumn<QString>("text");
        QTest::newRow("offline") << int(Reason::offline) << QStringLiteral("Sin conexión.");
        QTest::newRow("service") << int(Reason::serviceTrouble)
                                 << QStringLiteral("El servicio no responde.");
        QTest::newRow("sign-in") << int(Reason::signInNeeded)
                                 << QStringLiteral("Inicia sesión de nuevo.");
        QTest::newRow("store") << int(Reason::storageRefuses)
                               << QStringLiteral("El almacenamiento rechaza las fotos.");
        QTest::newRow("portal") << int(Reason::networkSignIn)
                                << QStringLiteral("La red pide iniciar sesión en el navegador.");
    }
    void everyReasonIsToldInItsOwnWords()
    {
        QFETCH(int, reason);
        QFETCH(QString, text);
        DeliveryAlerts alerts({0ms, 0ms});
        QSignalSpy told(&alerts, &DeliveryAlerts::alert);
        alerts.setWaiting(1, Reason(reason));
        QTRY_COMPARE(told.count(), 1);
        QCOMPARE(alertAt(told, 0).title, QStringLiteral("1 foto en espera"));
        QVERIFY2(alertAt(told, 0).text.startsWith(text), qPrintable(alertAt(told, 0).text));
    }

    void aRefusalIsToldAtOnceWithHowMany()
    {
        DeliveryAlerts alerts({1h, 0ms});
        QSignalSpy told(&alerts, &DeliveryAlerts::alert);
        alerts.setRefused(1, QStringLiteral("No se pudo enviar: A.JPG"));
        QCOMPARE(told.count(), 1);
        QCOMPARE(alertAt(told, 0).topic, DeliveryAlerts::Topic::refused);
        QCOMPARE(alertAt(told, 0).title, QStringLiteral("1 foto rechazada"));
        QCOMPARE(alertAt(told, 0).text, QStringLiteral("No se pudo enviar: A.JPG"));
        // The same refusals said again are no news; one more is.
        alerts.setRefused(1, QStringLiteral("No se pudo enviar: A.JPG"));
        QCOMPARE(told.count(), 1);
        alerts.setRefused(2, QStringLiteral("No se pudo enviar: A.JPG, B.JPG"));
        QCOMPARE(told.count(), 2);
        QCOMPARE(alertAt(told, 1).title, QStringLiteral("2 fotos rechazadas"));
    }

    void theOriginalsOfAStoppedSessionAreToldWhenAllAreIn()
    {
        DeliveryAlerts alerts({1h, 0ms});
        QSignalSpy told(&alerts, &DeliveryAlerts::alert);
        // Nothing owed at the stop: nothing to tell.
        alerts.sessionStopped(1001, QStringLiteral("Ana"), 0);
        QVERIFY(alerts.stoppedSessionsOwed().isEmpty());
        alerts.setOwed(1001, 0);
        QCOMPARE(told.count(), 0);

        alerts.sessionStopped(1002, QStringLiteral("Ana"), 3);
        alerts.sessionStopped(1003, QStringLiteral("Bea"), 1);
        QCOMPARE(alerts.stoppedSessionsOwed(), (QList<qint64>{1002, 1003}));
        alerts.setOwed(1002, 1);
        QCOMPARE(told.count(), 0);
        alerts.setOwed(1002, 0);
        QCOMPARE(told.count(), 1);
        QCOMPARE(alertAt(told, 0).topic, DeliveryAlerts::Topic::originals);
        QCOMPARE(alertAt(told, 0).text,
                 QStringLiteral("Los 3 originales que faltaban de «Ana» ya están en el servicio."));
        alerts.setOwed(1002, 0);
        QCOMPARE(told.count(), 1);
        // Another session's, told on its own.
        alerts.setOwed(1003, 0);
        QCOMPARE(told.count(), 2);
        QCOMPARE(alertAt(told, 1).text,
                 QStringLiteral("El original que faltaba de «Bea» ya está en el servicio."));
        QVERIFY(alerts.stoppedSessionsOwed().isEmpty());
    }

    void neverTwoWithinTheGapAndTheLatestOfEachTopicStands()
    {
        constexpr auto gap = 400ms;
        DeliveryAlerts alerts({0ms, gap});
        QSignalSpy told(&alerts, &DeliveryAlerts::alert);
        QElapsedTimer clock;
        clock.start();
        QList<qint64> at;
        connect(&alerts, &DeliveryAlerts::alert, this, [&] { at << clock.nsecsElapsed(); });

        alerts.setRefused(1, QStringLiteral("No se pudo enviar: A.JPG"));
        QCOMPARE(told.count(), 1);
        // Within the gap: held, and each topic only as it last stood.
        alerts.setWaiting(2, Reason::offline);
        alerts.setWaiting(4, Reason::offline);
        alerts.setRefused(2, QStringLiteral("No se pudo enviar: A.JPG, B.JPG"));
        alerts.setRefused(3, QStringLiteral("No se pudo enviar: A.JPG, B.JPG, C.JPG"));
        QCOMPARE(told.count(), 1);
        QTRY_COMPARE(told.count(), 3);
        QTest::qWait(int(2 * gap.count()));
        QCOMPARE(told.count(), 3);
        // The refusal first, then what waits.
        QCOMPARE(alertAt(told, 1).title, QStringLiteral("3 fotos rechazadas"));
        QCOMPARE(alertAt(told, 2).title, QStringLiteral("4 fotos en espera"));
        for (int i = 1; i < at.size(); ++i)
            QVERIFY2(at[i] - at[i - 1] >= std::chrono::nanoseconds(gap).count() - 2000000,
                     qPrintable(QStringLiteral("%1 ns apart").arg(at[i] - at[i - 1])));
    }

    // A wait that ended, or whose photos are on their way again, before its alert could go out
    // is not told late: that would say what is no longer so.
    void aHeldAlertThatNoLongerHoldsIsDropped()
    {
        constexpr auto gap = 3s;
        DeliveryAlerts alerts({0ms, gap});
        QSignalSpy told(&alerts, &DeliveryAlerts::alert);
        alerts.setRefused(1, QStringLiteral("No se pudo enviar: A.JPG"));
        alerts.setWaiting(2, Reason::offline);
        // The wait is long enough at once: its alert is held behind the refusal's.
        QTest::qWait(50);
        alerts.setWaiting(2, Reason::sending);
        alerts.setWaiting(0, Reason::none);
        QTest::qWait(int(std::chrono::milliseconds(gap).count()) + 1000);
        QCOMPARE(told.count(), 1);
    }
};

QTEST_GUILESS_MAIN(DeliveryAlertsTest)
#include "tst_deliveryalerts.moc"
