// SPDX-License-Identifier: MIT
// The controller from sign-in to the next session, headless, against devservice and a real
// watch folder.
#include "apierror.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "taskoutcome.h"
#include "folderwatcher.h"
#include "previewmaker.h"

#include <QSignalSpy>
#include <QTest>

#include <filesystem>

class SessionRunTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void signInKeepsTheEmailAndNeverThePassword()
    {
        m_harness.preferences().store(QStringLiteral("saved_email"), QStringLiteral("otra@estudio.test"));
        SessionViewModel model;
        QCOMPARE(model.email(), QStringLiteral("otra@estudio.test"));
        QList<bool> authenticating;
        connect(&model, &SessionViewModel::isAuthenticatingChanged, this,
                [&] { authenticating << model.isAuthenticating(); });
        QVERIFY(m_harness.signIn(model));
        QCOMPARE(authenticating, (QList<bool>{true, false}));
        QCOMPARE(m_harness.preferences().stored(QStringLiteral("saved_email")), DevService::demoEmail());
        QVERIFY(m_harness.preferences().stored(QStringLiteral("api_token")));
        QCOMPARE(model.state(), AppState::setup);
        QCOMPARE(model.password(), DevService::demoPassword()); // not cleared after sign-in
        QVERIFY(!m_harness.preferences().storageText().contains(DevService::demoPassword()));
        for (const QString &key : m_harness.preferences().storedKeys())
            QVERIFY2(key == QLatin1String("api_token") || key == QLatin1String("saved_email"), qPrintable(key));
    }

    void failedSignInShowsTheMessageAndKeepsEverything()
    {
        m_harness.preferences().store(QStringLiteral("saved_email"), QStringLiteral("antes@estudio.test"));
        SessionViewModel model;
        model.setEmail(QStringLiteral("  nadie@estudio.test"));
        model.setPassword(QStringLiteral("mal"));
        awaitOutcome(model.loginTask());
        QCOMPARE(model.error(), std::optional(QStringLiteral("Email o contraseña incorrectos")));
        QVERIFY(!model.isAuthenticating());
        QVERIFY(!model.hasStoredToken());
        QCOMPARE(model.email(), QStringLiteral("  nadie@estudio.test"));
        QCOMPARE(model.password(), QStringLiteral("mal"));
        QCOMPARE(m_harness.preferences().stored(QStringLiteral("saved_email")), QStringLiteral("antes@estudio.test"));
        // The e-mail goes out exactly as typed.
        const auto requests = m_harness.service().requests(QStringLiteral("authenticate"));
        QVERIFY(requests.last().body.contains("\"  nadie@estudio.test\""));

        // The next attempt starts with a clean error line.
        QVERIFY(m_harness.signIn(model));
        QVERIFY(!model.error());
    }

    void signInThatCannotReachTheServiceShowsTheTransportError()
    {
        SessionViewModel model;
        const qsizetype sentBefore = m_harness.service().requests(QStringLiteral("authenticate")).size();
        QVERIFY(m_harness.service().injectFault(DevService::Fault::withDrop(QStringLiteral("authenticate"))));
        model.setEmail(DevService::demoEmail());
        model.setPassword(DevService::demoPassword());
        awaitOutcome(model.loginTask());
        // The one sign-in went out once, and its lost connection is what the photographer sees.
        QCOMPARE(m_harness.service().requests(QStringLiteral("authenticate")).size(), sentBefore + 1);
        QVERIFY(model.error());
        QVERIFY(*model.error() != APIError::errorDescription(APIError::authFailed));
        QVERIFY(!model.isAuthenticating());
    }

    // The service opened the session but its reply was lost on the way back: the photographer
    // sees the transport error and stays on the setup screen, and the service holds that one
    // session, not a second one sent behind the photographer's back.
    void lostCreateReplyLeavesOneSession()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.service().injectFault(DevService::Fault::withLostReply(
            QStringLiteral("createSession"), DevService::FaultKind::closeAfterWork)));
        QVERIFY(!m_harness.startSession(model, QStringLiteral("Ana")));
        QCOMPARE(model.state(), AppState::setup);
        QVERIFY(model.error());
        QVERIFY(*model.error() != APIError::errorDescription(APIError::sessionCreateFailed));
        QCOMPARE(m_harness.service().requests(QStringLiteral("createSession")).size(), 1);
        QCOMPARE(m_harness.service().sessions().size(), 1);
    }

    void photosAlreadyThereAreNeverSent()
    {
        QVERIFY(m_harness.dropPhoto(QStringLiteral("OLD_0001.JPG"), SessionHarness::photoJpeg(1)));
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("   ")));
        QVERIFY(model.watcher());
        QVERIFY(model.uploadManager());
        QVERIFY(model.watcher()->knownFiles().contains(QStringLiteral("OLD_0001.JPG")));
        // A name of blanks is accepted and sent unchanged.
        QCOMPARE(m_harness.service().requests(QStringLiteral("createSession")).last().body, QByteArray("{\"name\":\"   \"}"));
        QVERIFY(model.session().folderId);
        QVERIFY(model.session().slug);
        QVERIFY(model.session().liveURL);
        QVERIFY(model.session().galleryURL);

        QVERIFY(m_harness.dropPhoto(QStringLiteral("NEW_0002.JPG"), SessionHarness::photoJpeg(2)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        QCOMPARE(StoredFiles(m_harness.service()).presignedNames(),
                 (QStringList{QStringLiteral("preview_NEW_0002.jpg"), QStringLiteral("NEW_0002.JPG")}));
    }

    void aLongQuietFolderStillFindsTheNextPhoto()
    {
        // The watcher stops listing a folder that has not changed for a while; a new photo
        // changes the folder and must be found all the same, also with no notifications.
        QVERIFY(m_harness.dropPhoto(QStringLiteral("OLD.JPG"), SessionHarness::photoJpeg(8)));
        std::error_code error;
        std::filesystem::last_write_time(m_harness.folderPath().toStdString(),
                                         std::filesystem::file_time_type::clock::now() - std::chrono::seconds(30), error);
        QVERIFY(!error);
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        model.watcher()->setNotificationsEnabled(false);
        QTest::qWait(2500);
        QVERIFY(m_harness.dropPhoto(QStringLiteral("NEW.JPG"), SessionHarness::photoJpeg(9)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->uploadedCount(), 1, 20000);
        QVERIFY(!StoredFiles(m_harness.service()).presignedNames().contains(QStringLiteral("preview_OLD.jpg")));
        // The original goes on after the model is gone: left on its way, it would be
        // authorised in the middle of the next test.
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
    }

    void pauseDropsPhotosForGood()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        model.setIsPaused(true);
        // Photos written just now, as a camera writes them: the watcher says each has gone quiet
        // before it hands it over, which while recording starts the preview early. A photo the
        // watcher only looked at once it was ready (the test process held up for most of a
        // second) shows nothing of that, so another one is written then.
        QStringList quiet;
        connect(model.watcher(), &FolderWatcher::candidateQuiet, this,
                [&](const QUrl &file) { quiet << file.fileName(); });
        QStringList paused;
        for (int attempt = 0; attempt < 3 && quiet.isEmpty(); ++attempt) {
            paused << QStringLiteral("PAUSED_%1.JPG").arg(attempt);
            QVERIFY(m_harness.dropPhoto(paused.last(), SessionHarness::photoJpeg(3 + attempt), false));
            QTRY_VERIFY_WITH_TIMEOUT(model.watcher()->knownFiles().contains(paused.last()), 10000);
        }
        QVERIFY2(!quiet.isEmpty(), "the watcher never said a photo had gone quiet");
        QCOMPARE(model.uploadManager()->previews().peakDecodes(), 0); // not even made early

        model.setIsPaused(false);
        QVERIFY(m_harness.dropPhoto(QStringLiteral("RESUMED.JPG"), SessionHarness::photoJpeg(10), false));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        QTest::qWait(1500);
        QCOMPARE(model.uploadManager()->uploadedCount(), 1);
        const QStringList names = StoredFiles(m_harness.service()).presignedNames();
        QCOMPARE(names.join(u", "), QStringLiteral("preview_RESUMED.jpg, RESUMED.JPG"));
        QVERIFY(model.watcher()->knownFiles().contains(paused.first())); // dropped, not deferred
    }

    void stopCopiesTheCountsOnce()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("A.JPG"), SessionHarness::photoJpeg(5)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        // Of the next two uploads, B's preview goes through and B's original is held at the
        // store: the stop happens while it is certainly still on its way.
        DevService &service = m_harness.service();
        QVERIFY(service.injectFault(DevService::Fault::withDelay(QStringLiteral("upload"), 0)));
        QVERIFY(service.injectFault(DevService::Fault::withHold(QStringLiteral("upload"))));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("B.JPG"), SessionHarness::photoJpeg(6)));
        QTRY_COMPARE_WITH_TIMEOUT(service.requests(QStringLiteral("upload")).size(), 4, 30000);
        QCOMPARE(model.uploadManager()->fullResTotal(), 2);
        QCOMPARE(model.uploadManager()->fullResUploaded(), 1);

        awaitOutcome(model.stopSessionTask());
        QCOMPARE(model.state(), AppState::finished);
        QVERIFY(!model.watcher());
        QVERIFY(model.uploadManager());
        QVERIFY(!model.error());
        const LiveSession atStop = model.session();
        QCOMPARE(atStop.uploadedCount, 2);
        QCOMPARE(atStop.fullResTotal, 2);
        QCOMPARE(atStop.fullResUploaded, 1);
        QCOMPARE(atStop.selectedCount, 0);
        const auto ended = m_harness.service().requests(QStringLiteral("endSession"));
        QCOMPARE(ended.size(), 1);
        QCOMPARE(ended[0].path, QStringLiteral("/api/live/sessions/") + *atStop.slug);

        // B's original goes up after the stop; the record keeps the counts of the stop.
        QVERIFY(service.releaseHeld());
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 2, 30000);
        QCOMPARE(model.session(), atStop);
        QCOMPARE(model.session().fullResUploaded, 1);

        model.newSession();
        QCOMPARE(model.state(), AppState::setup);
        QCOMPARE(model.session(), LiveSession());
        QVERIFY(!model.uploadManager());
        QVERIFY(!model.error());
        QVERIFY(!model.isPaused());
    }

    void refusedEndOfSessionStillFinishes()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        model.setIsPaused(true);
        QVERIFY(m_harness.service().injectFault(DevService::Fault::withStatus(QStringLiteral("endSession"), 500)));
        awaitOutcome(model.stopSessionTask());
        QCOMPARE(model.state(), AppState::finished);
        QCOMPARE(model.error(), std::optional(QStringLiteral("No se pudo terminar la sesión")));
        QVERIFY(model.isPaused()); // the stop leaves the pause alone
        QCOMPARE(model.session().uploadedCount, 0);
        model.newSession();
        QVERIFY(!model.error());
    }

    void startIsRefusedWithoutNameOrFolder_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("withFolder");
        QTest::newRow("no name, folder") << QString() << true;
        QTest::newRow("name, no folder") << QStringLiteral("Ana") << false;
        QTest::newRow("nothing") << QString() << false;
    }
    void startIsRefusedWithoutNameOrFolder()
    {
        QFETCH(QString, name);
        QFETCH(bool, withFolder);
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        model.setClientName(name);
        if (withFolder) {
            const QUrl folder = QUrl::fromLocalFile(m_harness.folderPath());
            model.setFolderChooser([folder](const QString &) { return std::optional(folder); });
        }
        model.pickFolder();
        awaitOutcome(model.startSessionTask());
        QCOMPARE(model.error(),
                 std::optional(QStringLiteral("Ingresa el nombre del cliente y selecciona una carpeta")));
        QCOMPARE(model.state(), AppState::setup);
        QVERIFY(!model.uploadManager());
        QVERIFY(!model.watcher());
        // The service is listening, and has heard nothing since the sign-in.
        DevService &service = m_harness.service();
        QCOMPARE(service.requests(QStringLiteral("authenticate")).size(), 1);
        for (const char *endpoint : {"createSession", "endSession", "presign", "register", "upload"})
            QVERIFY2(service.requests(QString::fromLatin1(endpoint)).isEmpty(), endpoint);
    }

    void refusedStartStaysInSetup()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.service().injectFault(DevService::Fault::withStatus(QStringLiteral("createSession"), 500)));
        QVERIFY(!m_harness.startSession(model, QStringLiteral("Boda")));
        QCOMPARE(model.error(), std::optional(QStringLiteral("No se pudo crear la sesión")));
        QCOMPARE(model.state(), AppState::setup);
        QVERIFY(!model.uploadManager());
        QVERIFY(!model.watcher());
        QCOMPARE(model.session().clientName, QStringLiteral("Boda"));
        QVERIFY(model.session().watchFolder);
        // Trying again clears the error and works.
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        QVERIFY(!model.error());
    }

    void startingAgainReplacesTheWatcher()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        QPointer<FolderWatcher> first = model.watcher();
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        QVERIFY(!first);
        QVERIFY(model.watcher());
        QCOMPARE(m_harness.service().requests(QStringLiteral("createSession")).size(), 2);
        QVERIFY(m_harness.dropPhoto(QStringLiteral("ONE.JPG"), SessionHarness::photoJpeg(7)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        QTest::qWait(1500);
        QCOMPARE(model.uploadManager()->uploadedCount(), 1);
    }

private:
    SessionHarness m_harness;
};

QTEST_GUILESS_MAIN(SessionRunTest)
#include "tst_sessionrun.moc"
