// SPDX-License-Identifier: MIT
// A sign-in that expires in the middle of a shoot: deliveries stop and wait, the photographer
// is asked to sign in again without leaving the session, and everything goes after.
#include "delivery.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "uploadmanager.h"

#include <QTest>

class SignInExpiryTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void photosWaitForANewSignInAndAllGoAfterIt()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Elena")));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);

        // The service stops taking the token.
        QVERIFY(m_harness.service().injectFault(
            DevService::Fault::withStatus(QStringLiteral("presign"), 401)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0002.JPG"), SessionHarness::photoJpeg(2)));
        QTRY_VERIFY_WITH_TIMEOUT(!model.hasStoredToken(), 30000);
        QCOMPARE(model.error(), std::optional(SessionViewModel::signInExpiredMessage));
        QCOMPARE(model.state(), AppState::recording);
        QVERIFY(model.uploadManager());
        QTRY_COMPARE_WITH_TIMEOUT(model.deliveryNotice(),
                                  QVariant(QStringLiteral("1 foto en espera — inicia sesión de nuevo")),
                                  10000);

        // Photos keep coming while signed out: they wait too, and nothing is refused.
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0003.JPG"), SessionHarness::photoJpeg(3)));
        QTRY_COMPARE_WITH_TIMEOUT(model.deliveryNotice(),
                                  QVariant(QStringLiteral("2 fotos en espera — inicia sesión de nuevo")),
                                  30000);
        QCOMPARE(model.uploadManager()->uploadedCount(), 1);
        QVERIFY(!model.refusedNotice().isValid());

        QVERIFY(m_harness.signIn(model));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 3, 60000);
        QCOMPARE(model.uploadManager()->uploadedCount(), 3);
        QCOMPARE(m_harness.service().registeredFiles(*model.session().folderId).size(), 3);
        const StoredFiles store(m_harness.service());
        for (int i = 1; i <= 3; ++i)
            QCOMPARE(store.storedCount(QStringLiteral("IMG_000%1.JPG").arg(i)), 1);
        QTRY_VERIFY_WITH_TIMEOUT(!model.deliveryNotice().isValid(), 10000);
        QCOMPARE(model.state(), AppState::recording);
    }

private:
    SessionHarness m_harness;
};

QTEST_GUILESS_MAIN(SignInExpiryTest)
#include "tst_signinexpiry.moc"
