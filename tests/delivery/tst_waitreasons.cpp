// SPDX-License-Identifier: MIT
// Why photos wait, as the photographer reads it: an object store that refuses the uploads for a
// reason other than time, and a network that holds everything behind its sign-in page, each
// said for what it is. The photos wait, nothing is given up, and all go once it is mended.
#include "delivery.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "uploadmanager.h"

#include <QTest>

class WaitReasonsTest : public QObject {
    Q_OBJECT

    // The photo waits for the reason given, is never given up, and arrives once after the
    // service takes it again.
    void waitsFor(const QString &reason, const QString &endpoint)
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Inés")));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_COMPARE_WITH_TIMEOUT(model.deliveryNotice(),
                                  QVariant(QStringLiteral("1 foto en espera — ") + reason), 30000);
        QCOMPARE(model.deliveryReason(), reason);
        // Tried again and again, and still not given up.
        QTRY_VERIFY_WITH_TIMEOUT(m_harness.service().requests(endpoint).size() >= 3, 60000);
        QVERIFY(!model.refusedNotice().isValid());
        QCOMPARE(model.uploadManager()->fullResUploaded(), 0);

        QVERIFY(m_harness.service().clearFaults());
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 120000);
        QTRY_VERIFY_WITH_TIMEOUT(!model.deliveryNotice().isValid(), 10000);
        const StoredFiles store(m_harness.service());
        QCOMPARE(store.registeredCount(*model.session().folderId, QStringLiteral("IMG_0001.JPG")),
                 1);
        QCOMPARE(store.storedCount(QStringLiteral("IMG_0001.JPG")), 1);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void aStoreThatRefusesSaysSo_data()
    {
        QTest::addColumn<QByteArray>("code");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("signature") << QByteArray("SignatureDoesNotMatch")
                                   << QByteArray("The request signature we calculated does not "
                                                 "match the signature you provided.");
        QTest::newRow("access denied") << QByteArray("AccessDenied") << QByteArray("Access Denied");
    }
    void aStoreThatRefusesSaysSo()
    {
        QFETCH(QByteArray, code);
        QFETCH(QByteArray, message);
        QVERIFY(m_harness.service().injectFault(DevService::Fault::withStatus(
            QStringLiteral("upload"), 403, DevService::storageError(code, message), 100000)));
        waitsFor(QStringLiteral("el almacenamiento rechaza las fotos"), QStringLiteral("upload"));
    }

    // The permission of every presign has run out when it reaches the store: that is mended
    // by a fresh one, and the line does not blame the store.
    void anExpiredPermissionIsNotTheStoresRefusal()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Julia")));
        QVERIFY(m_harness.service().setPresignLifetime(0));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_VERIFY_WITH_TIMEOUT(m_harness.service().requests(QStringLiteral("upload")).size() >= 2,
                                 60000);
        QTRY_VERIFY_WITH_TIMEOUT(model.deliveryNotice().isValid(), 30000);
        QCOMPARE(model.deliveryReason(), QStringLiteral("el servicio no responde"));
        QVERIFY(m_harness.service().setPresignLifetime(600000));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 120000);
    }

    void aNetworkThatWantsASignInSaysSo_data()
    {
        QTest::addColumn<bool>("redirect");
        QTest::newRow("redirect to its page") << true;
        QTest::newRow("its page in the service's place") << false;
    }
    void aNetworkThatWantsASignInSaysSo()
    {
        QFETCH(bool, redirect);
        const QString presign = QStringLiteral("presign");
        QVERIFY(m_harness.service().injectFault(
            redirect ? DevService::Fault::withRedirect(
                           presign, 302, QStringLiteral("http://portal.invalid/login"), 100000)
                     : DevService::Fault::withStatus(
                           presign, 200,
                           "<!DOCTYPE html><html><body>Inicia sesión para navegar</body></html>",
                           100000)));
        waitsFor(QStringLiteral("la red pide iniciar sesión en el navegador"), presign);
    }

private:
    SessionHarness m_harness;
};

QTEST_GUILESS_MAIN(WaitReasonsTest)
#include "tst_waitreasons.moc"
