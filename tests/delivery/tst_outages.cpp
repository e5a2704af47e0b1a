// SPDX-License-Identifier: MIT
// Photos shot while the service cannot be reached: refused outright, or swallowed without an
// answer. Each waits, says so, and reaches the client exactly once when the service is back.
#include "delivery.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "uploadmanager.h"

#include <QTest>

class OutagesTest : public QObject {
    Q_OBJECT

    // Shoots `count` photos one a second, as a camera on a tripod would.
    QStringList shoot(int first, int count)
    {
        QStringList names;
        for (int i = first; i < first + count; ++i) {
            const QString name = QStringLiteral("IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0'));
            if (!m_harness.dropPhoto(name, SessionHarness::photoJpeg(i)))
                return {};
            names << name;
            QTest::qWait(1000);
        }
        return names;
    }

    // Every photo's preview registered once and its original stored once.
    void expectDeliveredOnce(SessionViewModel &model, const QStringList &names)
    {
        const qint64 folderId = *model.session().folderId;
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), names.size(), 120000);
        QTRY_COMPARE_WITH_TIMEOUT(model.deliveries().unfinishedCount(), 0, 30000);
        QCOMPARE(model.uploadManager()->uploadedCount(), names.size());
        QCOMPARE(model.uploadManager()->fullResTotal(), names.size());
        QCOMPARE(m_harness.service().registeredFiles(folderId).size(), names.size());
        const StoredFiles store(m_harness.service());
        for (const QString &name : names) {
            QVERIFY2(store.registeredCount(folderId, name) == 1, qPrintable(name));
            QVERIFY2(store.storedCount(name) == 1, qPrintable(name));
            QCOMPARE(store.objectNamed(name), std::optional(SessionHarness::photoJpeg(
                                                  name.mid(4, 4).toInt())));
        }
        QVERIFY(!model.deliveryNotice().isValid());
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void photosShotWhileTheServiceRefusesArriveOnceAfterwards()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Ana")));
        QStringList names = shoot(1, 2);
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->uploadedCount(), 2, 30000);

        QVERIFY(m_harness.service().startOutage(DevService::OutageMode::refuse, 20000));
        names += shoot(3, 5);
        // The photographer sees that they wait, and why; the counter keeps what it had.
        QTRY_VERIFY_WITH_TIMEOUT(model.deliveryNotice().toString().contains(QStringLiteral("en espera")),
                                 20000);
        QTRY_VERIFY_WITH_TIMEOUT(
            model.deliveryNotice().toString().contains(QStringLiteral("sin conexión")), 20000);
        QVERIFY(m_harness.service().outage().refused > 0);
        QCOMPARE(model.state(), AppState::recording);

        expectDeliveredOnce(model, names);
    }

    void photosShotWhileTheServiceHangsArriveOnceAfterwards()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Beatriz")));

        QVERIFY(m_harness.service().startOutage(DevService::OutageMode::hang, 75000));
        const QStringList names = shoot(1, 3);
        // Nothing answers and nothing fails for a while: the photos are seen to wait all the same.
        QTRY_VERIFY_WITH_TIMEOUT(model.deliveryNotice().toString().contains(QStringLiteral("3 fotos en espera")),
                                 60000);
        QVERIFY(m_harness.service().outage().hung > 0);

        expectDeliveredOnce(model, names);
    }

    void anExpiredPresignIsNeverAReasonToGiveAPhotoUp()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Carla")));
        // Every permission has expired when it is handed out: the store refuses them all.
        QVERIFY(m_harness.service().setPresignLifetime(0));
        const QStringList names = shoot(1, 1);
        QTRY_VERIFY_WITH_TIMEOUT(model.deliveryNotice().isValid(), 30000);
        QTRY_VERIFY_WITH_TIMEOUT(m_harness.service().requests(QStringLiteral("upload")).size() >= 3,
                                 60000);
        QCOMPARE(model.uploadManager()->uploadedCount(), 0);
        QVERIFY(!model.refusedNotice().isValid());

        QVERIFY(m_harness.service().setPresignLifetime(600000));
        expectDeliveredOnce(model, names);
    }

    // The one ambiguous case: the service registered the preview and its answer was lost. The
    // registration goes again with the same stored key; the service that already holds it
    // refuses the repeat, and that refusal says it is registered: once, never twice.
    void aRegistrationWhoseAnswerWasLostCountsOnce_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("closed") << int(DevService::FaultKind::closeAfterWork);
        QTest::newRow("reset") << int(DevService::FaultKind::resetAfterWork);
        QTest::newRow("cut short") << int(DevService::FaultKind::cutShort);
    }
    void aRegistrationWhoseAnswerWasLostCountsOnce()
    {
        QFETCH(int, kind);
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Elsa")));
        QVERIFY(m_harness.service().injectFault(DevService::Fault::withLostReply(
            QStringLiteral("register"), DevService::FaultKind(kind))));
        const QStringList names = shoot(1, 1);
        expectDeliveredOnce(model, names);
        QCOMPARE(m_harness.service().requests(QStringLiteral("register")).size(), 2);
    }

    void aRefusalThatWillNotChangeIsListedAndNotRetried()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Diana")));
        QVERIFY(m_harness.service().injectFault(
            DevService::Fault::withStatus(QStringLiteral("presign"), 422)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_COMPARE_WITH_TIMEOUT(model.refusedNotice(),
                                  QVariant(QStringLiteral("No se pudo enviar: IMG_0001.JPG")), 30000);
        QCOMPARE(model.uploadManager()->error(),
                 std::optional(QStringLiteral("Error: Error al preparar la subida")));
        QCOMPARE(model.deliveries().unfinishedCount(), 0);
        // Another photo goes through, and the refused one is not asked for again meanwhile.
        const QStringList names = shoot(2, 1);
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        QCOMPARE(StoredFiles(m_harness.service()).presignedNames().count(
                     QStringLiteral("preview_IMG_0001.jpg")),
                 1);
    }

private:
    SessionHarness m_harness;
};

QTEST_GUILESS_MAIN(OutagesTest)
#include "tst_outages.moc"
