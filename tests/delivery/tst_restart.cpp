// SPDX-License-Identifier: MIT
// The program going away in the middle of a shoot (kill -9, a quit) and started again: the same
// live session goes on, same client, same link, and every photo reaches it once, those the
// camera wrote while the program was away included. The program runs as a process of its own,
// killed for real; the test writes the photos and asks the service what it got.
#include "deliveryjournal.h"
#include "headlessprogram.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "tracedapp.h"

#include <QCoreApplication>
#include <QDir>
#include <QTest>

namespace {
constexpr int settles = 30000; // what a photo takes to be delivered, with room for a busy machine
const QString client = QStringLiteral("Ana Muñoz & Co");

QString photoName(int number) {
    return QStringLiteral("IMG_%1.JPG").arg(number, 4, 10, QLatin1Char('0'));
}
} // namespace

class RestartTest : public QObject {
    Q_OBJECT

    // The program, started afresh on the harness's service, preferences, journal and folder.
    std::unique_ptr<TracedApp> startProgram() {
        auto program = std::make_unique<TracedApp>();
        if (!program->start(HeadlessProgram::path(), HeadlessProgram::environment(m_harness)))
            return {};
        return program;
    }

    // Signed in and recording for the client, on a fresh service.
    std::unique_ptr<TracedApp> startRecording() {
        std::unique_ptr<TracedApp> program = startProgram();
        if (!program || !program->send(QStringLiteral("signin")) ||
            !program->waitFor(QStringLiteral("signed in"), settles) ||
            !program->send(QStringLiteral("start ") + client) ||
            !program->waitFor(QStringLiteral("screen recording 1001"), settles))
            return {};
        return program;
    }

    bool drop(int number) {
        return m_harness.dropPhoto(photoName(number), SessionHarness::photoJpeg(number));
    }

    static void kill(TracedApp &program) {
        program.process().kill();
        program.waitForExit(10000);
    }

    // Each photo's preview registered once with the session and its original stored once.
    void expectDeliveredOnce(qint64 folderId, const QList<int> &numbers) {
        QTRY_COMPARE_WITH_TIMEOUT(m_harness.service().registeredFiles(folderId).size(),
                                  numbers.size(), settles);
        const StoredFiles store(m_harness.service());
        for (const int number : numbers) {
            QVERIFY2(store.registeredCount(folderId, photoName(number)) == 1,
                     qPrintable(photoName(number)));
            QVERIFY2(store.storedCount(photoName(number)) == 1, qPrintable(photoName(number)));
        }
    }

    // The journal as it stands on disk, read while the program runs or after it died.
    bool journalHolds(const QString &name) {
        DeliveryJournal written;
        return written.open(m_harness.preferences().journalPath()) &&
               written.sessions().knownNames(1001).contains(name);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void aKilledShootGoesOnInTheSameSession() {
        std::unique_ptr<TracedApp> shooting = startRecording();
        QVERIFY(shooting);
        for (int i = 1; i <= 3; ++i)
            QVERIFY(drop(i));
        QUILLMERE_EXPECT_LINE(*shooting, QStringLiteral("stored 3"), settles);

        // The next registration is certainly under way when the program dies; the previews and
        // originals of the photos after it are wherever they happen to be.
        DevService &service = m_harness.service();
        QVERIFY(service.injectFault(DevService::Fault::withHold(QStringLiteral("register"))));
        for (int i = 4; i <= 6; ++i)
            QVERIFY(drop(i));
        QTRY_VERIFY_WITH_TIMEOUT(journalHolds(photoName(6)), settles);
        kill(*shooting);
        // The held registration goes on without anyone waiting for its answer.
        QVERIFY(service.releaseHeld());
        // Shot while the program was away.
        QVERIFY(drop(7));
        QVERIFY(drop(8));

        std::unique_ptr<TracedApp> resumed = startProgram();
        QVERIFY(resumed);
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("screen recording 1001"), settles);
        QUILLMERE_EXPECT_LINE(*resumed,
                              QStringLiteral("resumed Sesión retomada tras un cierre "
                                             "inesperado · 2 fotos llegaron mientras tanto"),
                              settles);
        // The watcher goes on: a photo shot after the restart is delivered too.
        QVERIFY(drop(9));
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("stored 9"), 2 * settles);
        QUILLMERE_EXPECT_LATEST(*resumed, QStringLiteral("owed "), QStringLiteral("owed 0"),
                                settles);
        QUILLMERE_EXPECT_LATEST(*resumed, QStringLiteral("uploaded "), QStringLiteral("uploaded 9"),
                                settles);
        expectDeliveredOnce(1001, {1, 2, 3, 4, 5, 6, 7, 8, 9});
        // One session, the one the client has the link of, open still.
        const QList<DevService::OpenedSession> sessions = service.sessions();
        QCOMPARE(sessions.size(), 1);
        QVERIFY(!sessions.first().ended);
    }

    void aPausedSessionComesBackPausedAndSkipsWhatLandedMeanwhile() {
        std::unique_ptr<TracedApp> shooting = startRecording();
        QVERIFY(shooting);
        QVERIFY(drop(1));
        QUILLMERE_EXPECT_LINE(*shooting, QStringLiteral("stored 1"), settles);
        QVERIFY(shooting->send(QStringLiteral("pause")));
        QVERIFY(shooting->waitFor(QStringLiteral("paused 1"), settles));
        QVERIFY(drop(2));
        // Taken by the watcher while paused: skipped for good, and written down as such.
        QTRY_VERIFY_WITH_TIMEOUT(journalHolds(photoName(2)), settles);
        kill(*shooting);
        QVERIFY(drop(3));

        std::unique_ptr<TracedApp> resumed = startProgram();
        QVERIFY(resumed);
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("screen recording 1001"), settles);
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("paused 1"), settles);
        QUILLMERE_EXPECT_LINE(*resumed,
                              QStringLiteral("resumed Sesión retomada en pausa tras un cierre "
                                             "inesperado · 1 foto llegó en pausa y no se envía"),
                              settles);
        QVERIFY(resumed->send(QStringLiteral("unpause")));
        QVERIFY(resumed->waitFor(QStringLiteral("paused 0"), settles));
        QVERIFY(drop(4));
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("stored 2"), settles);
        expectDeliveredOnce(1001, {1, 4});
        const QStringList presigned = StoredFiles(m_harness.service()).presignedNames();
        QVERIFY2(!presigned.contains(photoName(2)) && !presigned.contains(photoName(3)),
                 qPrintable(presigned.join(QLatin1Char(' '))));
    }

    void aQuitSessionIsOfferedAndContinues() {
        std::unique_ptr<TracedApp> shooting = startRecording();
        QVERIFY(shooting);
        QVERIFY(drop(1));
        QUILLMERE_EXPECT_LINE(*shooting, QStringLiteral("stored 1"), settles);
        QVERIFY(shooting->send(QStringLiteral("quit")));
        QVERIFY(shooting->waitForExit(settles));
        QCOMPARE(shooting->process().exitStatus(), QProcess::NormalExit);
        QVERIFY(drop(2));

        // Not taken up by itself: the photographer chose to quit. The setup screen offers it.
        std::unique_ptr<TracedApp> restarted = startProgram();
        QVERIFY(restarted);
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("screen setup 0"), settles);
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("offer ") + client, settles);
        QVERIFY(restarted->send(QStringLiteral("continue")));
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("screen recording 1001"), settles);
        QUILLMERE_EXPECT_LINE(*restarted,
                              QStringLiteral("resumed Sesión retomada · 1 foto llegó "
                                             "mientras tanto"),
                              settles);
        QVERIFY(drop(3));
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("stored 3"), settles);
        expectDeliveredOnce(1001, {1, 2, 3});
        QCOMPARE(m_harness.service().sessions().size(), 1);
    }

    void aNewSessionAfterAQuitLeavesTheOldOneItsOwnPhotos() {
        std::unique_ptr<TracedApp> shooting = startRecording();
        QVERIFY(shooting);
        // The service refuses everything: the photos are owed when the photographer quits.
        QVERIFY(m_harness.service().startOutage(DevService::OutageMode::refuse, 600000));
        QVERIFY(drop(1));
        QVERIFY(drop(2));
        // Both written down and waiting, whatever the line says of why.
        QUILLMERE_EXPECT_LATEST(*shooting, QStringLiteral("owed "), QStringLiteral("owed 2"),
                                settles);
        QUILLMERE_EXPECT_LATEST(*shooting, QStringLiteral("notice "),
                                QStringLiteral("notice 2 fotos en espera — sin conexión"), settles);
        QVERIFY(shooting->send(QStringLiteral("quit")));
        QVERIFY(shooting->waitForExit(settles));
        QVERIFY(m_harness.service().endOutage());

        std::unique_ptr<TracedApp> restarted = startProgram();
        QVERIFY(restarted);
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("offer ") + client, settles);
        QVERIFY(restarted->send(QStringLiteral("start Lucía")));
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("screen recording 1002"), settles);
        QUILLMERE_EXPECT_LATEST(*restarted, QStringLiteral("offer "), QStringLiteral("offer none"),
                                settles);
        QVERIFY(drop(3));
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("stored 1"), settles);
        QUILLMERE_EXPECT_LATEST(*restarted, QStringLiteral("owed "), QStringLiteral("owed 0"),
                                settles);
        // The old session got its own photos, the new one its own; nothing closed the old one.
        expectDeliveredOnce(1001, {1, 2});
        expectDeliveredOnce(1002, {3});
        const QList<DevService::OpenedSession> sessions = m_harness.service().sessions();
        QCOMPARE(sessions.size(), 2);
        QVERIFY(!sessions.first().ended);

        // Left for the new one: not offered again.
        kill(*restarted);
        std::unique_ptr<TracedApp> again = startProgram();
        QVERIFY(again);
        QUILLMERE_EXPECT_LATEST(*again, QStringLiteral("offer "), QStringLiteral("offer none"),
                                settles);
        QUILLMERE_EXPECT_LATEST(*again, QStringLiteral("screen "),
                                QStringLiteral("screen recording 1002"), settles);
    }

    void aStoppedSessionIsNeverTakenUp() {
        std::unique_ptr<TracedApp> shooting = startRecording();
        QVERIFY(shooting);
        QVERIFY(shooting->send(QStringLiteral("stop")));
        QUILLMERE_EXPECT_LINE(*shooting, QStringLiteral("screen finished 1001"), settles);
        kill(*shooting);

        std::unique_ptr<TracedApp> restarted = startProgram();
        QVERIFY(restarted);
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("screen setup 0"), settles);
        QUILLMERE_EXPECT_LINE(*restarted, QStringLiteral("offer none"), settles);
    }

    void aMissingWatchFolderIsToldAndPickedUpWhenBack() {
        std::unique_ptr<TracedApp> shooting = startRecording();
        QVERIFY(shooting);
        QVERIFY(drop(1));
        QUILLMERE_EXPECT_LINE(*shooting, QStringLiteral("stored 1"), settles);
        kill(*shooting);
        // The card is pulled out while the program is away; a photo is on it meanwhile.
        const QString folder = m_harness.folderPath();
        const QString away = folder + QStringLiteral("-away");
        QVERIFY(QDir().rename(folder, away));
        QVERIFY(m_harness.dropPhotoAt(away, photoName(2), SessionHarness::photoJpeg(2)));

        std::unique_ptr<TracedApp> resumed = startProgram();
        QVERIFY(resumed);
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("screen recording 1001"), settles);
        const QString missing = QStringLiteral("folder No se encuentra la carpeta «%1». Las fotos "
                                               "se enviarán en cuanto vuelva.")
                                    .arg(QFileInfo(folder).fileName());
        QUILLMERE_EXPECT_LINE(*resumed, missing, settles);

        QVERIFY(QDir().rename(away, folder));
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("folder ok"), settles);
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("stored 2"), settles);
        expectDeliveredOnce(1001, {1, 2});
    }

    void aSessionTheServiceNoLongerHasIsToldWithItsPhotos() {
        std::unique_ptr<TracedApp> shooting = startRecording();
        QVERIFY(shooting);
        QVERIFY(drop(1));
        QUILLMERE_EXPECT_LINE(*shooting, QStringLiteral("stored 1"), settles);
        kill(*shooting);
        QVERIFY(m_harness.service().removeSession(1001));
        QVERIFY(drop(2));

        std::unique_ptr<TracedApp> resumed = startProgram();
        QVERIFY(resumed);
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("screen recording 1001"), settles);
        QUILLMERE_EXPECT_LINE(*resumed,
                              QStringLiteral("refused La sesión ya no existe en el servicio. "
                                             "No se pudo enviar: IMG_0002.JPG"),
                              settles);
        QVERIFY(drop(3));
        QUILLMERE_EXPECT_LINE(*resumed,
                              QStringLiteral("refused La sesión ya no existe en el servicio. "
                                             "No se pudo enviar: IMG_0002.JPG, IMG_0003.JPG"),
                              settles);
        // Nothing lost silently: the journal keeps both, as refused.
        DeliveryJournal written;
        QVERIFY(written.open(m_harness.preferences().journalPath()));
        QCOMPARE(written.refused(1001).size(), 2);
        QVERIFY(written.owed().isEmpty());
    }

    void aSignInThatExpiredMeanwhileIsAskedForOverTheSession() {
        std::unique_ptr<TracedApp> shooting = startRecording();
        QVERIFY(shooting);
        QVERIFY(drop(1));
        QUILLMERE_EXPECT_LINE(*shooting, QStringLiteral("stored 1"), settles);
        kill(*shooting);
        // The service no longer takes the token the program kept.
        QVERIFY(m_harness.service().injectFault(
            DevService::Fault::withStatus(QStringLiteral("presign"), 401)));
        QVERIFY(drop(2));

        std::unique_ptr<TracedApp> resumed = startProgram();
        QVERIFY(resumed);
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("screen recording 1001"), settles);
        QUILLMERE_EXPECT_LINE(
            *resumed, QStringLiteral("error ") + SessionViewModel::signInExpiredMessage, settles);
        QUILLMERE_EXPECT_LATEST(*resumed, QStringLiteral("notice "),
                                QStringLiteral("notice 1 foto en espera — inicia sesión de nuevo"),
                                settles);
        QVERIFY(!m_harness.preferences().stored(QStringLiteral("api_token")));
        // Signed in again, over the session that went on recording: the photo goes into it.
        QVERIFY(resumed->send(QStringLiteral("signin")));
        QUILLMERE_EXPECT_LINE(*resumed, QStringLiteral("stored 2"), settles);
        QUILLMERE_EXPECT_LATEST(*resumed, QStringLiteral("screen "),
                                QStringLiteral("screen recording 1001"), settles);
        expectDeliveredOnce(1001, {1, 2});
    }

private:
    SessionHarness m_harness;
};

QUILLMERE_HEADLESS_TEST_MAIN(RestartTest)

#include "tst_restart.moc"
