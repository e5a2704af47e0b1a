// SPDX-License-Identifier: MIT
// The program killed at every step of one photo's way, right before the journal writes the step
// down and right after, then started again: every time, the photo's preview is registered once
// and its original stored once, in the session it was shot for. The development build's
// QUILLMERE_TEST_CRASH_AT makes the program kill itself (SIGKILL) at the step named.
#include "headlessprogram.h"
#include "sessionharness.h"
#include "storedfiles.h"
#include "tracedapp.h"

#include <QCoreApplication>
#include <QTest>

namespace {
constexpr int settles = 30000;
const QString photo = QStringLiteral("IMG_0042.JPG");
} // namespace

class CrashStepsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void aPhotoSurvivesAKillAtEveryStep_data() {
        QTest::addColumn<QString>("crashAt");
        const QStringList steps{
            QStringLiteral("handedOver"),        QStringLiteral("previewPresigned"),
            QStringLiteral("previewStored"),     QStringLiteral("registrationSent"),
            QStringLiteral("previewRegistered"), QStringLiteral("originalPresigned"),
            QStringLiteral("originalStored")};
        for (const QString &step : steps) {
            for (const QString &when : {QStringLiteral("before"), QStringLiteral("after")}) {
                const QString crashAt = when + QLatin1Char(':') + step;
                QTest::newRow(qPrintable(crashAt)) << crashAt;
            }
        }
    }

    void aPhotoSurvivesAKillAtEveryStep() {
        QFETCH(QString, crashAt);
        {
            QProcessEnvironment environment = HeadlessProgram::environment(m_harness);
            environment.insert(QStringLiteral("QUILLMERE_TEST_CRASH_AT"), crashAt);
            TracedApp dying;
            QVERIFY(dying.start(HeadlessProgram::path(), environment));
            QVERIFY(dying.send(QStringLiteral("signin")));
            QUILLMERE_EXPECT_LINE(dying, QStringLiteral("signed in"), settles);
            QVERIFY(dying.send(QStringLiteral("start Fernanda")));
            QUILLMERE_EXPECT_LINE(dying, QStringLiteral("screen recording 1001"), settles);
            QVERIFY(m_harness.dropPhoto(photo, SessionHarness::photoJpeg(42)));
            QVERIFY2(dying.waitForExit(settles), qPrintable(dying.transcript()));
            // It killed itself where it was told to, not anywhere else.
            QCOMPARE(dying.process().exitStatus(), QProcess::CrashExit);
        }

        TracedApp resumed;
        QVERIFY(resumed.start(HeadlessProgram::path(), HeadlessProgram::environment(m_harness)));
        QUILLMERE_EXPECT_LINE(resumed, QStringLiteral("screen recording 1001"), settles);
        QUILLMERE_EXPECT_LATEST(resumed, QStringLiteral("stored "), QStringLiteral("stored 1"),
                                settles);
        QUILLMERE_EXPECT_LATEST(resumed, QStringLiteral("owed "), QStringLiteral("owed 0"),
                                settles);
        QUILLMERE_EXPECT_LATEST(resumed, QStringLiteral("uploaded "), QStringLiteral("uploaded 1"),
                                settles);

        const StoredFiles store(m_harness.service());
        QCOMPARE(m_harness.service().registeredFiles(1001).size(), 1);
        QCOMPARE(store.registeredCount(1001, photo), 1);
        QCOMPARE(store.storedCount(photo), 1);
        QCOMPARE(store.storedCount(QStringLiteral("preview_IMG_0042.jpg")), 1);
        QCOMPARE(store.objectNamed(photo), std::optional(SessionHarness::photoJpeg(42)));
        QCOMPARE(m_harness.service().sessions().size(), 1);
    }

private:
    SessionHarness m_harness;
};

QUILLMERE_HEADLESS_TEST_MAIN(CrashStepsTest)

#include "tst_crashsteps.moc"
