// SPDX-License-Identifier: MIT
// The delivery journal: what it writes down survives the program, a kill in the middle of
// writing included, and it tells which photos are still owed and how far each got.
#include "deliveryjournal.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

namespace {

RecordedSession recorded(qint64 folderId, const QString &slug, const QString &clientName)
{
    RecordedSession session;
    session.folderId = folderId;
    session.slug = slug;
    session.clientName = clientName;
    session.watchFolder = QUrl::fromLocalFile(QStringLiteral("/shoot"));
    return session;
}

constexpr const char *writerVariable = "QUILLMERE_JOURNAL_WRITER";

// The child: writes photos and their steps as fast as it can, saying after each commit which
// photo it finished, until it is killed.
int runWriter(const QString &path)
{
    DeliveryJournal journal;
    if (!journal.open(path))
        return 2;
    journal.sessions().record(recorded(1001, QStringLiteral("boda"), QStringLiteral("Ana")), {});
    for (int i = 0;; ++i) {
        const QString name = QStringLiteral("IMG_%1.JPG").arg(i);
        const qint64 photo =
            journal.addPhoto(1001, QUrl::fromLocalFile(QStringLiteral("/shoot/") + name), i, i);
        journal.setPreviewStored(photo, {QStringLiteral("https://s/") + name, name,
                                         QStringLiteral("bucket")});
        journal.setRegistrationSent(photo);
        journal.setPreviewRegistered(photo);
        // Said once it is on disk, as a step the photographer is told of.
        journal.database().waitForWrites();
        std::printf("%lld\n", photo);
        std::fflush(stdout);
    }
}

} // namespace

class DeliveryJournalTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void photosAreOwedUntilTheirOriginalIsStored()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("nested/journal.sqlite"));
        {
            DeliveryJournal journal;
            QVERIFY2(journal.open(path), qPrintable(journal.errorString()));
            journal.sessions().record(
                recorded(1001, QStringLiteral("boda-ana"), QStringLiteral("Ana")), {});
            const qint64 a = journal.addPhoto(1001, QUrl::fromLocalFile(QStringLiteral("/f/A.JPG")),
                                              1234, 5678);
            const qint64 b = journal.addPhoto(1001, QUrl::fromLocalFile(QStringLiteral("/f/B.CR3")),
                                              99, 100);
            const qint64 c = journal.addPhoto(1001, QUrl::fromLocalFile(QStringLiteral("/f/C.JPG")),
                                              1, 2);
            QVERIFY(a > 0 && b > a && c > b);
            journal.setPreviewStored(b, {QStringLiteral("https://s/b"), QStringLiteral("k/b"),
                                         QStringLiteral("bucket")});
            journal.setRegistrationSent(b);
            PresignResponse permission{QStringLiteral("POST"), QStringLiteral("https://s/upload"),
                                       {{QStringLiteral("key"), QStringLiteral("o/B.CR3")}},
                                       QStringLiteral("o/B.CR3"), QStringLiteral("bucket"),
                                       std::nullopt};
            journal.setOriginalPresign(b, permission);
            journal.setPreviewRegistered(a);
            journal.setOriginalStored(a);
            journal.setRefused(c, QStringLiteral("No se pudo procesar C.JPG"));
        }

        // Another run of the program finds what the first one left.
        DeliveryJournal journal;
        QVERIFY(journal.open(path));
        const QList<JournalPhoto> owed = journal.owed();
        QCOMPARE(owed.size(), 1);
        const JournalPhoto &b = owed.first();
        QCOMPARE(b.fileURL.fileName(), QStringLiteral("B.CR3"));
        QCOMPARE(b.folderId, 1001);
        QCOMPARE(b.slug, QStringLiteral("boda-ana"));
        QCOMPARE(b.clientName, QStringLiteral("Ana"));
        QCOMPARE(b.size, 99);
        QCOMPARE(b.modifiedMs, 100);
        QVERIFY(b.progress.storedPreview);
        QCOMPARE(b.progress.storedPreview->key, QStringLiteral("k/b"));
        QVERIFY(b.progress.registrationSent);
        QVERIFY(!b.progress.previewRegistered);
        QVERIFY(b.progress.originalPresign);
        QCOMPARE(b.progress.originalPresign->key, QStringLiteral("o/B.CR3"));
        QCOMPARE(b.progress.originalPresign->fields.value(QStringLiteral("key")),
                 QStringLiteral("o/B.CR3"));
        QVERIFY(!b.progress.originalPresign->host);
        QVERIFY(!b.progress.previewPresign);

        const QList<JournalPhoto> refused = journal.refused(1001);
        QCOMPARE(refused.size(), 1);
        QCOMPARE(refused.first().refusal, std::optional(QStringLiteral("No se pudo procesar C.JPG")));
        QVERIFY(journal.refused(1002).isEmpty());
    }

    void aJournalThatCannotBeOpenedSaysWhy()
    {
        QTemporaryDir folder;
        // A file stands where the journal's folder should be.
        QFile blocker(folder.filePath(QStringLiteral("taken")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        DeliveryJournal journal;
        QVERIFY(!journal.open(folder.filePath(QStringLiteral("taken/journal.sqlite"))));
        QVERIFY(!journal.errorString().isEmpty());
        QVERIFY(!journal.isOpen());
        QCOMPARE(journal.addPhoto(1, QUrl::fromLocalFile(QStringLiteral("/x.jpg")), 1, 1), 0);
        QVERIFY(journal.owed().isEmpty());
    }

    void aKillWhileWritingLosesNothingCommitted()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("journal.sqlite"));
        for (int round = 0; round < 3; ++round) {
            QProcess writer;
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(QString::fromLatin1(writerVariable), path);
            writer.setProcessEnvironment(environment);
            writer.start(QCoreApplication::applicationFilePath(), {});
            QVERIFY(writer.waitForStarted());
            // Killed at a different point of its writing each round.
            QByteArray printed;
            while (printed.count('\n') < 20 + 7 * round) {
                QVERIFY2(writer.waitForReadyRead(30000), writer.readAllStandardError().constData());
                printed += writer.readAllStandardOutput();
            }
            writer.kill();
            QVERIFY(writer.waitForFinished());
            printed += writer.readAllStandardOutput();

            DeliveryJournal journal;
            QVERIFY2(journal.open(path), qPrintable(journal.errorString()));
            {
                QSqlDatabase check = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"),
                                                               QStringLiteral("check"));
                check.setDatabaseName(path);
                QVERIFY(check.open());
                QSqlQuery integrity(check);
                QVERIFY(integrity.exec(QStringLiteral("PRAGMA integrity_check")) && integrity.next());
                QCOMPARE(integrity.value(0).toString(), QStringLiteral("ok"));
            }
            QSqlDatabase::removeDatabase(QStringLiteral("check"));
            // Every photo the writer reported finished is there, with every step it wrote.
            for (const QByteArray &line : printed.split('\n')) {
                if (line.isEmpty())
                    continue;
                const std::optional<JournalPhoto> photo = journal.photo(line.toLongLong());
                QVERIFY2(photo, line.constData());
                QVERIFY(photo->progress.previewRegistered && photo->progress.registrationSent &&
                        photo->progress.storedPreview);
            }
        }
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (const QString path = qEnvironmentVariable(writerVariable); !path.isEmpty())
        return runWriter(path);
    DeliveryJournalTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_deliveryjournal.moc"
