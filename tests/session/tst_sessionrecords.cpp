// SPDX-License-Identifier: MIT
// The records and the controller's state before any request: defaults, the remembered e-mail,
// the folder choice.
#include "appstate.h"
#include "livesession.h"
#include "scopedpreferences.h"
#include "sessionviewmodel.h"

#include <QDir>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QTest>

#include <functional>

class SessionRecordsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Nothing here should reach a service. Should a defect send a request all the same, it
        // goes to a closed port on this machine, never to the address fixed at build time.
        qputenv("QUILLMERE_SERVICE_URL", "http://127.0.0.1:1");
    }

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

    void everyFieldCountsAndReachesTheScreens_data()
    {
        // One field set at a time, and what the screens read for it. A folder id of 0 and empty
        // texts are values, unlike absent ones.
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<LiveSession>("edited");
        QTest::addColumn<QVariant>("shown");
        const auto row = [](const char *property, const std::function<void(LiveSession &)> &edit,
                            const QVariant &shown) {
            LiveSession session;
            edit(session);
            QTest::newRow(property) << QByteArray(property) << session << shown;
        };
        const QUrl folder = QUrl::fromLocalFile(QStringLiteral("/fotos/boda"));
        row("clientName", [](LiveSession &s) { s.clientName = QStringLiteral("Ana"); }, QStringLiteral("Ana"));
        row("watchFolder", [&](LiveSession &s) { s.watchFolder = folder; }, folder);
        row("folderId", [](LiveSession &s) { s.folderId = 0; }, qint64(0));
        row("slug", [](LiveSession &s) { s.slug = QString(); }, QString());
        row("liveURL", [](LiveSession &s) { s.liveURL = QStringLiteral("https://x/live"); }, QStringLiteral("https://x/live"));
        row("galleryURL", [](LiveSession &s) { s.galleryURL = QStringLiteral("https://x/g"); }, QStringLiteral("https://x/g"));
        row("uploadedCount", [](LiveSession &s) { s.uploadedCount = 3; }, qint64(3));
        row("fullResUploaded", [](LiveSession &s) { s.fullResUploaded = 4; }, qint64(4));
        row("fullResTotal", [](LiveSession &s) { s.fullResTotal = 5; }, qint64(5));
        row("selectedCount", [](LiveSession &s) { s.selectedCount = 6; }, qint64(6));
    }
    void everyFieldCountsAndReachesTheScreens()
    {
        QFETCH(QByteArray, property);
        QFETCH(LiveSession, edited);
        QFETCH(QVariant, shown);
        // The controller announces a change only when the record differs: equality must see
        // every field.
        const LiveSession fresh;
        QVERIFY(!(edited == fresh));
        // The screens read the record through its properties: the one edited shows the value,
        // every other one reads as in a fresh record.
        const QMetaObject &meta = LiveSession::staticMetaObject;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
            const QMetaProperty field = meta.property(i);
            const QVariant value = field.readOnGadget(&edited);
            const bool isEdited = property == field.name()
                || (property == "watchFolder" && qstrcmp(field.name(), "watchFolderPath") == 0);
            if (!isEdited) {
                QVERIFY2(value == field.readOnGadget(&fresh), field.name());
                continue;
            }
            QVERIFY2(value.isValid(), field.name()); // a value, not undefined
            if (qstrcmp(field.name(), "watchFolderPath") == 0)
                QCOMPARE(value.toString(), shown.toUrl().toLocalFile());
            else
                QCOMPARE(value, shown);
        }
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
