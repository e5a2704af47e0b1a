// SPDX-License-Identifier: MIT
// A five-minute outage with a photo every ten seconds, at the notifications' real pace: the
// desktop hears of the wait once the photos have waited a minute, how many and why, never more
// than once a minute, and then that all of them went out, in the waiting notification's place.
// Some six minutes long: the dev suite runs it, the sanitizer suite does not.
#include "delivery.h"
#include "desktopnotifier.h"
#include "notificationserver.h"
#include "privatesessionbus.h"
#include "requiredtool.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "uploadmanager.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTest>

namespace {
constexpr int photos = 30;
constexpr int photoEveryMs = 10000;
constexpr qint64 minuteMs = 60000;
// What may lie between the notifier's clock and the server's: a hop over the bus.
constexpr qint64 busSlackMs = 500;
} // namespace

class NotificationPaceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        if (!m_bus.startAsThisProcessBus())
            QUILLMERE_MISSING_TOOL(QStringLiteral("dbus-daemon"), m_bus.errorString());
        QVERIFY2(m_server.start(m_bus.address()), qPrintable(m_server.errorString()));
        QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString()));
        m_harness.resetForTest();
    }

    void aFiveMinuteOutageIsToldAtMostOnceAMinute() {
        SessionViewModel model;
        DesktopNotifier notifier(model);
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Dolores")));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0000.JPG"), SessionHarness::photoJpeg(0)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        QVERIFY(m_server.received().isEmpty()); // all is well: nothing said

        QVERIFY(m_harness.service().startOutage(DevService::OutageMode::refuse, 3600000));
        const qint64 outageStartMs = m_server.now();
        QElapsedTimer outage;
        outage.start();
        for (int i = 1; i <= photos; ++i) {
            QVERIFY(
                m_harness.dropPhoto(QStringLiteral("IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0')),
                                    SessionHarness::photoJpeg(i)));
            QTest::qWait(photoEveryMs);
        }
        QCOMPARE(model.uploadManager()->uploadedCount(), 1);
        QCOMPARE(model.waitingCount(), photos);
        QVERIFY(m_harness.service().endOutage());
        const qint64 outageMs = outage.elapsed();

        QTRY_VERIFY2_WITH_TIMEOUT(!m_server.received().isEmpty() &&
                                      m_server.received().last().summary ==
                                          QLatin1String("Fotos enviadas"),
                                  qPrintable(m_server.transcript()), 240000);
        QCOMPARE(model.uploadManager()->fullResUploaded(), photos + 1);
        const QList<NotificationServer::Received> all = m_server.received();
        QVERIFY2(all.last().body ==
                     QStringLiteral("Las %1 fotos que esperaban ya se enviaron.").arg(photos),
                 qPrintable(m_server.transcript()));

        // What waited, said with how many and why, each in the place of the one before.
        const QRegularExpression waitingSummary(QStringLiteral("^(\\d+) fotos? en espera$"));
        int lastCount = 0;
        uint waitingId = 0;
        for (qsizetype i = 0; i + 1 < all.size(); ++i) {
            const QRegularExpressionMatch match = waitingSummary.match(all[i].summary);
            QVERIFY2(match.hasMatch(), qPrintable(m_server.transcript()));
            const int count = match.captured(1).toInt();
            QVERIFY2(count > lastCount && count <= photos, qPrintable(m_server.transcript()));
            lastCount = count;
            QVERIFY2(all[i].body.startsWith(QStringLiteral("Sin conexión.")) ||
                         all[i].body.startsWith(QLatin1String("El servicio no responde.")),
                     qPrintable(m_server.transcript()));
            if (waitingId)
                QCOMPARE(all[i].replacesId, waitingId);
            waitingId = all[i].id;
        }
        QVERIFY2(waitingId != 0, "no notification of the photos waiting");
        QCOMPARE(all.last().replacesId, waitingId);
        // The network is gone, and said so at the latest once a probe has gone unanswered.
        QVERIFY2(std::any_of(all.cbegin(), all.cend(),
                             [](const NotificationServer::Received &one) {
                                 return one.body.startsWith(QStringLiteral("Sin conexión."));
                             }),
                 qPrintable(m_server.transcript()));

        // Not before the photos have waited a minute; never two within a minute; so, over the
        // outage and the minute after it, a handful.
        QVERIFY2(all.first().atMs - outageStartMs >= minuteMs - busSlackMs,
                 qPrintable(m_server.transcript()));
        for (qsizetype i = 1; i < all.size(); ++i)
            QVERIFY2(all[i].atMs - all[i - 1].atMs >= minuteMs - busSlackMs,
                     qPrintable(m_server.transcript()));
        QVERIFY2(all.size() <= outageMs / minuteMs + 2, qPrintable(m_server.transcript()));
        // What the desktop heard, for whoever reads the test's output.
        qInfo().noquote() << "notifications:\n" + m_server.transcript();
    }

private:
    PrivateSessionBus m_bus;
    NotificationServer m_server;
    SessionHarness m_harness;
};

QTEST_MAIN(NotificationPaceTest)
#include "tst_notificationpace.moc"
