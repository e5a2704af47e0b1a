// SPDX-License-Identifier: MIT
// The controller's state before any request: defaults, the remembered e-mail, the folder
// choice and the refusals that need no service.
#include "appstate.h"
#include "livesession.h"
#include "scopedpreferences.h"
#include "sessionviewmodel.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

class SessionRecordsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void freshLiveSessionHasEmptyNameAndAbsentValues()
    {
        const LiveSession session;
        QVERIFY(session.clientName.isEmpty());
        QVERIFY(!session.watchFolder);
        QVERIFY(!session.folderId);
        QVERIFY(!session.slug);
        QVERIFY(!session.liveURL);
        QVERIFY(!session.galleryURL);
        QCOMPARE(session.uploadedCount, 0);
        QCOMPARE(session.fullResUploaded, 0);
        QCOMPARE(session.fullResTotal, 0);
        QCOMPARE(session.selectedCount, 0);
        // What the screens see: absent values read as undefined, not as empty or 0.
        QVERIFY(!session.liveURLValue().isValid());
        QVERIFY(!session.folderIdValue().isValid());
        QVERIFY(!session.watchFolderPathValue().isValid());
    }

    void liveSessionIsAValue()
    {
        LiveSession a;
        a.clientName = QStringLiteral("Ana");
        a.folderId = 0;
        LiveSession b = a;
        b.clientName = QStringLiteral("Luis");
        QCOMPARE(a.clientName, QStringLiteral("Ana"));
        QVERIFY(a.folderId.has_value());
        QCOMPARE(a.folderIdValue().toLongLong(), 0);
        QVERIFY(!(a == b));
    }

    void firstStartWithEmptyPreferences()
    {
        ScopedPreferences preferences;
        SessionViewModel model;
        QCOMPARE(model.state(), AppState::setup);
        QVERIFY(model.email().isEmpty());
        QVERIFY(model.password().isEmpty());
        QVERIFY(!model.error());
        QVERIFY(!model.isAuthenticating());
        QVERIFY(!model.isPaused());
        QVERIFY(!model.watcher());
        QVERIFY(!model.uploadManager());
        QVERIFY(!model.hasStoredToken());
        QCOMPARE(model.session(), LiveSession());
    }

    void rememberedEmailIsRestored()
    {
        ScopedPreferences preferences;
        preferences.store(QStringLiteral("saved_email"), QStringLiteral("ana@estudio.test"));
        SessionViewModel model;
        QCOMPARE(model.email(), QStringLiteral("ana@estudio.test"));
    }

    void settersAnnounceOnlyRealChanges()
    {
        ScopedPreferences preferences;
        SessionViewModel model;
        QSignalSpy paused(&model, &SessionViewModel::isPausedChanged);
        QSignalSpy email(&model, &SessionViewModel::emailChanged);
        QSignalSpy session(&model, &SessionViewModel::sessionChanged);
        model.setIsPaused(true);
        model.setIsPaused(true);
        model.setEmail(QStringLiteral("a@b.test"));
        model.setEmail(QStringLiteral("a@b.test"));
        model.setClientName(QStringLiteral("Boda"));
        model.setClientName(QStringLiteral("Boda"));
        QCOMPARE(paused.count(), 1);
        QCOMPARE(email.count(), 1);
        QCOMPARE(session.count(), 1);
        QCOMPARE(model.session().clientName, QStringLiteral("Boda"));
    }

    void pickFolderTakesTheChoiceAndKeepsItOnCancel()
    {
        ScopedPreferences preferences;
        SessionViewModel model;
        QString askedWith;
        std::optional<QUrl> answer = QUrl::fromLocalFile(QStringLiteral("/fotos/boda"));
        model.setFolderChooser([&](const QString &prompt) {
            askedWith = prompt;
            return answer;
        });
        model.pickFolder();
        QCOMPARE(askedWith, QStringLiteral("Selecciona la carpeta donde llegarán las fotos"));
        QCOMPARE(model.session().watchFolder, answer);
        QCOMPARE(model.session().watchFolderPathValue().toString(), QStringLiteral("/fotos/boda"));

        answer.reset();
        model.pickFolder();
        QCOMPARE(model.session().watchFolder, std::optional(QUrl::fromLocalFile(QStringLiteral("/fotos/boda"))));
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
        ScopedPreferences preferences;
        SessionViewModel model;
        model.setClientName(name);
        if (withFolder)
            model.setFolderChooser([](const QString &) { return std::optional(QUrl::fromLocalFile(QDir::tempPath())); });
        model.pickFolder();
        model.startSession();
        QCOMPARE(model.error(),
                 std::optional(QStringLiteral("Ingresa el nombre del cliente y selecciona una carpeta")));
        QCOMPARE(model.state(), AppState::setup);
        QVERIFY(!model.uploadManager());
        QVERIFY(!model.watcher());
    }

    void newSessionClearsEverything()
    {
        ScopedPreferences preferences;
        SessionViewModel model;
        model.setClientName(QStringLiteral("Ana"));
        model.setIsPaused(true);
        model.startSession(); // refused: no folder, leaves an error behind
        QVERIFY(model.error());
        model.newSession();
        QCOMPARE(model.session(), LiveSession());
        QVERIFY(!model.isPaused());
        QVERIFY(!model.error());
        QCOMPARE(model.state(), AppState::setup);
        QVERIFY(!model.uploadManager());
    }
};

QTEST_GUILESS_MAIN(SessionRecordsTest)
#include "tst_sessionrecords.moc"
