// SPDX-License-Identifier: MIT
// The journal across releases: one written by the first release, which carried no version
// number, opens, is upgraded in place and keeps every photo it owes, which then reach their
// session once; one written by a newer release is left as it is and the photographer is told,
// while photos still go out.
#include "apiclient.h"
#include "delivery.h"
#include "deliveryjournal.h"
#include "journalschema.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "taskoutcome.h"
#include "uploadmanager.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

namespace {

constexpr int settles = 30000;

// The journal's tables exactly as the first release created them.
const QStringList firstRelease{
    QStringLiteral("PRAGMA journal_mode=WAL"),
    QStringLiteral("CREATE TABLE IF NOT EXISTS sessions (folder_id INTEGER PRIMARY KEY, slug TEXT, "
                   "client_name TEXT NOT NULL, opened_at INTEGER NOT NULL)"),
    QStringLiteral(
        "CREATE TABLE IF NOT EXISTS photos (id INTEGER PRIMARY KEY AUTOINCREMENT, "
        "folder_id INTEGER NOT NULL REFERENCES sessions(folder_id), path TEXT NOT NULL, "
        "size INTEGER NOT NULL, modified_ms INTEGER NOT NULL, handed_at INTEGER NOT NULL, "
        "preview_url TEXT, preview_key TEXT, preview_bucket TEXT, registration_sent "
        "INTEGER NOT NULL DEFAULT 0, preview_registered_at INTEGER, preview_size INTEGER, "
        "preview_modified_ms INTEGER, original_size INTEGER, original_modified_ms "
        "INTEGER, original_presign BLOB, original_stored_at INTEGER, original_resend "
        "INTEGER NOT NULL DEFAULT 0, refusal TEXT, refused_at INTEGER)"),
};

// Runs statements on a database of the test's own, as another program would.
bool runOn(const QString &path, const QStringList &statements,
           const QList<QVariantList> &values = {}) {
    bool ok = true;
    {
        QSqlDatabase database =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("by-hand"));
        database.setDatabaseName(path);
        ok = database.open();
        for (qsizetype i = 0; ok && i < statements.size(); ++i) {
            QSqlQuery query(database);
            ok = query.prepare(statements.at(i));
            for (const QVariant &value : values.value(i))
                query.addBindValue(value);
            ok = ok && query.exec();
            if (!ok)
                qWarning() << statements.at(i) << query.lastError().text();
        }
        database.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("by-hand"));
    return ok;
}

int versionOf(const QString &path) {
    int version = -1;
    {
        QSqlDatabase database =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("version"));
        database.setDatabaseName(path);
        if (database.open())
            version = JournalSchema::versionOf(database);
        database.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("version"));
    return version;
}

} // namespace

class JournalSchemaTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void aFirstReleaseJournalIsUpgradedWithWhatItOwes() {
        // A session the first release opened, and the photos it owed it when it stopped.
        m_harness.preferences().store(QStringLiteral("api_token"), m_harness.service().demoToken());
        const TaskOutcome<SessionResponse> created =
            awaitOutcome(APIClient::shared().createSession(QStringLiteral("Ana")));
        QVERIFY(created.value);
        const SessionResponse opened = *created.value;
        QCOMPARE(opened.folder_id, 1001);
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0002.JPG"), SessionHarness::photoJpeg(2)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0003.JPG"), SessionHarness::photoJpeg(3)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0004.JPG"), SessionHarness::photoJpeg(4)));
        const QString journal = m_harness.preferences().journalPath();
        const QString insertPhoto = QStringLiteral("INSERT INTO photos (folder_id, path, size, "
                                                   "modified_ms, handed_at, original_stored_at, "
                                                   "refusal) VALUES (1001, ?, 1, 1, 1, ?, ?)");
        QVERIFY(
            runOn(journal,
                  firstRelease + QStringList{QStringLiteral("INSERT INTO sessions VALUES (1001, "
                                                            "?, 'Ana', 1)"),
                                             insertPhoto, insertPhoto, insertPhoto, insertPhoto},
                  {{},
                   {},
                   {},
                   {opened.slug},
                   {m_harness.pathOf(QStringLiteral("IMG_0001.JPG")), QVariant(), QVariant()},
                   {m_harness.pathOf(QStringLiteral("IMG_0002.JPG")), QVariant(), QVariant()},
                   {m_harness.pathOf(QStringLiteral("IMG_0003.JPG")), 12345, QVariant()},
                   {m_harness.pathOf(QStringLiteral("IMG_0004.JPG")), QVariant(),
                    QStringLiteral("Error al registrar la imagen")}}));
        QCOMPARE(versionOf(journal), 1);

        {
            DeliveryJournal upgraded;
            QVERIFY2(upgraded.open(journal), qPrintable(upgraded.errorString()));
            const QList<JournalPhoto> owed = upgraded.owed();
            QCOMPARE(owed.size(), 2);
            QCOMPARE(owed.at(0).fileURL.fileName(), QStringLiteral("IMG_0001.JPG"));
            QCOMPARE(owed.at(1).fileURL.fileName(), QStringLiteral("IMG_0002.JPG"));
            QCOMPARE(owed.at(0).slug, opened.slug);
            QCOMPARE(owed.at(0).clientName, QStringLiteral("Ana"));
            QCOMPARE(upgraded.refused(1001).size(), 1);
            // The first release kept no live session: nothing is taken up, nothing offered.
            QVERIFY(!upgraded.sessions().live());
        }
        QCOMPARE(versionOf(journal), JournalSchema::latest);

        SessionViewModel model;
        QCOMPARE(model.state(), AppState::setup);
        QVERIFY(!model.resumeOffer().isValid());
        QVERIFY(!model.journalNotice().isValid());
        QTRY_COMPARE_WITH_TIMEOUT(model.deliveries().unfinishedCount(), 0, settles);
        const StoredFiles store(m_harness.service());
        QCOMPARE(m_harness.service().registeredFiles(1001).size(), 2);
        for (const QString &name :
             {QStringLiteral("IMG_0001.JPG"), QStringLiteral("IMG_0002.JPG")}) {
            QCOMPARE(store.registeredCount(1001, name), 1);
            QCOMPARE(store.storedCount(name), 1);
        }
        QCOMPARE(store.storedCount(QStringLiteral("IMG_0003.JPG")), 0);
    }

    void aJournalOfANewerReleaseIsLeftAloneAndTold() {
        const QString journal = m_harness.preferences().journalPath();
        QVERIFY(runOn(journal, {QStringLiteral("CREATE TABLE photos (id INTEGER PRIMARY KEY, "
                                               "something_new TEXT)"),
                                QStringLiteral("PRAGMA user_version = 99")}));

        SessionViewModel model;
        QTRY_COMPARE_WITH_TIMEOUT(
            model.journalNotice(),
            QVariant(QStringLiteral("No se puede guardar el registro de envíos (lo escribió una "
                                    "versión más nueva de Quillmere Live). Las fotos se siguen "
                                    "enviando, pero no se retomarán si Quillmere Live se cierra.")),
            settles);
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Ana")));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, settles);
        QCOMPARE(m_harness.service().registeredFiles(1001).size(), 1);
        QCOMPARE(versionOf(journal), 99);
    }

private:
    SessionHarness m_harness;
};

QTEST_GUILESS_MAIN(JournalSchemaTest)
#include "tst_journalschema.moc"
