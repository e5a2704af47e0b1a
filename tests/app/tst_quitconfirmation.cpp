// SPDX-License-Identifier: MIT
// Quitting while photos are still owed asks first, says how many and that they go next time;
// with nothing owed it quits at once, asking nothing.
#include "quitconfirmation.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "uploadmanager.h"

#include <QSignalSpy>
#include <QTest>

class QuitConfirmationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void nothingOwedQuitsWithoutAsking()
    {
        SessionViewModel model;
        QStringList asked;
        QuitConfirmation quit(model, [&](const QString &explanation) {
            asked << explanation;
            return false;
        });
        QSignalSpy confirmed(&quit, &QuitConfirmation::quitConfirmed);
        quit.request();
        QCOMPARE(confirmed.size(), 1);
        QVERIFY(asked.isEmpty());
        QVERIFY(!model.quitWarning().isValid());
    }

    void photosOnTheirWayAskFirst()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Gala")));
        // The original is certainly on its way while the question is put.
        QVERIFY(m_harness.service().injectFault(
            DevService::Fault::withHold(QStringLiteral("upload"), 2)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_VERIFY_WITH_TIMEOUT(m_harness.service().requests(QStringLiteral("upload")).size() == 1,
                                 30000);

        QStringList asked;
        bool answer = false;
        QuitConfirmation quit(model, [&](const QString &explanation) {
            asked << explanation;
            return answer;
        });
        QSignalSpy confirmed(&quit, &QuitConfirmation::quitConfirmed);
        quit.request();
        QCOMPARE(asked, QStringList{QStringLiteral(
                            "Queda 1 foto por enviar. Se enviará la próxima vez que abras "
                            "Quillmere Live.")});
        QCOMPARE(confirmed.size(), 0);

        answer = true;
        quit.request();
        QCOMPARE(asked.size(), 2);
        QCOMPARE(confirmed.size(), 1);

        QVERIFY(m_harness.service().releaseHeld());
        QVERIFY(m_harness.service().clearFaults());
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        QTRY_VERIFY_WITH_TIMEOUT(!model.quitWarning().isValid(), 10000);
    }

    void manyPhotosAreCountedInTheQuestion()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Helena")));
        QVERIFY(m_harness.service().injectFault(
            DevService::Fault::withStatus(QStringLiteral("presign"), 503, {}, 1000)));
        for (int i = 1; i <= 3; ++i)
            QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_000%1.JPG").arg(i),
                                        SessionHarness::photoJpeg(i)));
        QTRY_COMPARE_WITH_TIMEOUT(model.waitingCount(), 3, 30000);
        QCOMPARE(model.quitWarning(),
                 QVariant(QStringLiteral("Quedan 3 fotos por enviar. Se enviarán la próxima vez "
                                         "que abras Quillmere Live.")));
        QVERIFY(m_harness.service().clearFaults());
    }

private:
    SessionHarness m_harness;
};

QTEST_MAIN(QuitConfirmationTest)
#include "tst_quitconfirmation.moc"
