// SPDX-License-Identifier: MIT
// The desktop told through its own notification service, a server of the test's own on a
// private session bus: a refused photo, photos waiting (how many, and why) and then all sent,
// the originals of a stopped session all in; nothing while all is well; each topic's newer
// notification in the place of the older; a click on one asks for the panel. The waits are
// shortened here (tst_notificationpace runs them at their real minute).
#include "delivery.h"
#include "desktopnotifier.h"
#include "notificationserver.h"
#include "privatesessionbus.h"
#include "requiredtool.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "uploadmanager.h"

#include <QSignalSpy>
#include <QTest>

using namespace std::chrono_literals;

class NotificationsTest : public QObject {
    Q_OBJECT

    // The first notification received from `from` on whose summary is `summary`; -1 if none.
    int find(const QString &summary, qsizetype from = 0) const {
        const QList<NotificationServer::Received> &all = m_server.received();
        for (qsizetype i = from; i < all.size(); ++i)
            if (all[i].summary == summary)
                return int(i);
        return -1;
    }

private Q_SLOTS:
    void initTestCase() {
        if (!m_bus.startAsThisProcessBus())
            QUILLMERE_MISSING_TOOL(QStringLiteral("dbus-daemon"), m_bus.errorString());
        QVERIFY2(m_server.start(m_bus.address()), qPrintable(m_server.errorString()));
        QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString()));
    }

    void init() { m_harness.resetForTest(); }

    void aRefusalAWaitAndItsEndReachTheDesktop() {
        SessionViewModel model;
        DesktopNotifier notifier(model, {2s, 1s});
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Ana")));
        const qsizetype before = m_server.received().size();

        // Refused for good.
        QVERIFY(m_harness.service().injectFault(
            DevService::Fault::withStatus(QStringLiteral("presign"), 400)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_VERIFY2_WITH_TIMEOUT(find(QStringLiteral("1 foto rechazada"), before) >= 0,
                                  qPrintable(m_server.transcript()), 30000);
        const NotificationServer::Received refused =
            m_server.received()[find(QStringLiteral("1 foto rechazada"), before)];
        QCOMPARE(refused.body, QStringLiteral("No se pudo enviar: IMG_0001.JPG"));
        QCOMPARE(refused.appName, QStringLiteral("Quillmere Live"));
        QVERIFY(refused.actions.contains(QStringLiteral("default")));
        QCOMPARE(refused.hints.value(QStringLiteral("desktop-entry")).toString(),
                 QStringLiteral("live.quillmere.QuillmereLive"));

        // The network goes: two photos wait, long enough to be told, and why.
        QVERIFY(m_harness.service().startOutage(DevService::OutageMode::refuse, 3600000));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0002.JPG"), SessionHarness::photoJpeg(2)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0003.JPG"), SessionHarness::photoJpeg(3)));
        const auto waitingWithoutNetwork = [this, before] {
            for (qsizetype i = before; i < m_server.received().size(); ++i) {
                const NotificationServer::Received &one = m_server.received()[i];
                if (one.summary == QLatin1String("2 fotos en espera") &&
                    one.body.startsWith(QStringLiteral("Sin conexión.")))
                    return int(i);
            }
            return -1;
        };
        QTRY_VERIFY2_WITH_TIMEOUT(waitingWithoutNetwork() >= 0, qPrintable(m_server.transcript()),
                                  60000);
        const NotificationServer::Received waiting = m_server.received()[waitingWithoutNetwork()];

        // Back: all of them sent, told in the waiting notification's place.
        QVERIFY(m_harness.service().endOutage());
        QTRY_VERIFY2_WITH_TIMEOUT(find(QStringLiteral("Fotos enviadas"), before) >= 0,
                                  qPrintable(m_server.transcript()), 120000);
        const NotificationServer::Received sent =
            m_server.received()[find(QStringLiteral("Fotos enviadas"), before)];
        QCOMPARE(sent.body, QStringLiteral("Las 2 fotos que esperaban ya se enviaron."));
        QCOMPARE(sent.replacesId, waiting.id);
        QVERIFY(sent.id != refused.id);
        QCOMPARE(model.uploadManager()->fullResUploaded(), 2);

        // Never two closer than the gap, and nothing else.
        const QList<NotificationServer::Received> &all = m_server.received();
        for (qsizetype i = before + 1; i < all.size(); ++i)
            QVERIFY2(all[i].atMs - all[i - 1].atMs >= 900, qPrintable(m_server.transcript()));
        for (qsizetype i = before; i < all.size(); ++i) {
            const QString &summary = all[i].summary;
            QVERIFY2(summary == QLatin1String("1 foto rechazada") ||
                         summary == QLatin1String("Fotos enviadas") ||
                         summary.endsWith(QLatin1String(" en espera")),
                     qPrintable(m_server.transcript()));
        }
    }

    void aClickOnOneOpensThePanel() {
        SessionViewModel model;
        DesktopNotifier notifier(model, {0ms, 0ms});
        QSignalSpy opened(&notifier, &DesktopNotifier::openRequested);
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Berta")));
        const qsizetype before = m_server.received().size();
        QVERIFY(m_harness.service().injectFault(
            DevService::Fault::withStatus(QStringLiteral("presign"), 400)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_VERIFY_WITH_TIMEOUT(m_server.received().size() > before, 30000);
        const uint id = m_server.received().last().id;

        // Another program's notification clicked: not ours to answer.
        m_server.click(id + 1000);
        m_server.click(id);
        QTRY_COMPARE_WITH_TIMEOUT(opened.count(), 1, 10000);
        QTest::qWait(200);
        QCOMPARE(opened.count(), 1);
    }

    void theOriginalsOfAStoppedSessionAreToldWhenAllAreIn() {
        SessionViewModel model;
        // The wait itself is not what is looked at here.
        DesktopNotifier notifier(model, {1h, 0ms});
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Carmen")));
        const qsizetype before = m_server.received().size();
        // Stopped while the service cannot be reached: the photo is still owed.
        QVERIFY(m_harness.service().startOutage(DevService::OutageMode::refuse, 3600000));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_COMPARE_WITH_TIMEOUT(model.waitingCount(), 1, 30000);
        QCoro::waitFor(model.stopSessionTask());
        QCOMPARE(model.state(), AppState::finished);
        QCOMPARE(model.originalsOwed(), 1);
        // A new session is begun meanwhile: the stopped one's originals are still told of.
        model.newSession();
        QVERIFY(m_harness.service().endOutage());
        QTRY_VERIFY2_WITH_TIMEOUT(find(QStringLiteral("Originales enviados"), before) >= 0,
                                  qPrintable(m_server.transcript()), 120000);
        QCOMPARE(m_server.received()[find(QStringLiteral("Originales enviados"), before)].body,
                 QStringLiteral("El original que faltaba de «Carmen» ya está en el servicio."));
        QCOMPARE(m_server.received().size(), before + 1);
    }

private:
    PrivateSessionBus m_bus;
    NotificationServer m_server;
    SessionHarness m_harness;
};

QTEST_MAIN(NotificationsTest)
#include "tst_notifications.moc"
