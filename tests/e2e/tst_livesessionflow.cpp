// SPDX-License-Identifier: MIT
// Whole live sessions, headless: a camera writing into a real folder, the controller, the
// watcher, the upload pipeline and devservice on loopback.
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "folderwatcher.h"
#include "imageresizer.h"
#include "previewmaker.h"
#include "storedfiles.h"
#include "taskoutcome.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <QTimer>

#include <thread>

namespace {
// Names, sizes, modification times and content hashes of every entry of a folder.
QStringList snapshot(const QString &folder)
{
    QStringList lines;
    const QDir dir(folder);
    for (const QFileInfo &info : dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name)) {
        QFile file(info.filePath());
        QByteArray hash;
        if (info.isFile() && file.open(QIODevice::ReadOnly))
            hash = QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex();
        lines << QStringLiteral("%1 %2 %3 %4").arg(info.fileName()).arg(info.size())
                     .arg(info.lastModified().toMSecsSinceEpoch()).arg(QString::fromLatin1(hash));
    }
    return lines;
}
} // namespace

class LiveSessionFlowTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void cameraWritingInChunksIsHandedOverOnceAfterItsLastWrite()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        const QByteArray photo = SessionHarness::photoJpeg(11, 3000, 2000);
        const QString path = m_harness.pathOf(QStringLiteral("IMG_0001.JPG"));
        // The photo's modification time each time the watcher says it has gone quiet.
        QList<qint64> quietWith;
        connect(model.watcher(), &FolderWatcher::candidateQuiet, this, [&](const QUrl &file) {
            quietWith << QFileInfo(file.toLocalFile()).lastModified().toMSecsSinceEpoch();
        });

        // The camera: twenty pieces, a tenth of a second apart, on a thread of its own.
        std::thread camera([&] {
            QFile file(path);
            if (!file.open(QIODevice::WriteOnly))
                return;
            const qsizetype piece = photo.size() / 20 + 1;
            for (qsizetype at = 0; at < photo.size(); at += piece) {
                file.write(photo.mid(at, piece));
                file.flush();
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        });
        // Wall-clock milliseconds, the clock file times are compared with.
        qint64 handedOverAt = -1;
        QTimer probe;
        connect(&probe, &QTimer::timeout, this, [&] {
            if (handedOverAt < 0 && model.watcher()->knownFiles().contains(QStringLiteral("IMG_0001.JPG")))
                handedOverAt = QDateTime::currentMSecsSinceEpoch();
        });
        probe.start(5);
        QTRY_VERIFY_WITH_TIMEOUT(handedOverAt >= 0, 20000);
        camera.join();
        const qint64 lastWrite = QFileInfo(path).lastModified().toMSecsSinceEpoch();
        QVERIFY2(handedOverAt > lastWrite + 1000,
                 qPrintable(QStringLiteral("handed over %1 ms after the last write").arg(handedOverAt - lastWrite)));

        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 60000);
        QTest::qWait(1200);
        QCOMPARE(model.uploadManager()->uploadedCount(), 1);
        QCOMPARE(m_harness.service().registeredFiles(*model.session().folderId).size(), 1);
        QCOMPARE(StoredFiles(m_harness.service()).objectNamed(QStringLiteral("IMG_0001.JPG")), std::optional(photo));
        // The preview is of the whole photo. It was made while the readiness second ran out
        // exactly when the watcher said the finished photo had gone quiet; a test process held
        // up for most of that second may first have looked at it when it was ready.
        QCOMPARE(StoredFiles(m_harness.service()).objectNamed(QStringLiteral("preview_IMG_0001.jpg")),
                 ImageResizer::createPreview(QUrl::fromLocalFile(path)));
        QCOMPARE(model.uploadManager()->previews().reusedCount(), quietWith.contains(lastWrite) ? 1 : 0);
    }

    void savedUnderATemporaryNameThenRenamed()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        const QByteArray photo = SessionHarness::photoJpeg(12);
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG.tmp"), photo));
        QTest::qWait(1500);
        QCOMPARE(model.uploadManager()->fullResTotal(), 0);
        QVERIFY(QFile::rename(m_harness.pathOf(QStringLiteral("IMG_0001.JPG.tmp")), m_harness.pathOf(QStringLiteral("IMG_0001.JPG"))));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        QTest::qWait(1500);
        QCOMPARE(model.uploadManager()->uploadedCount(), 1);
        QCOMPARE(StoredFiles(m_harness.service()).presignedNames(),
                 (QStringList{QStringLiteral("preview_IMG_0001.jpg"), QStringLiteral("IMG_0001.JPG")}));
        QCOMPARE(StoredFiles(m_harness.service()).objectNamed(QStringLiteral("IMG_0001.JPG")), std::optional(photo));
    }

    void burstOfFiftyLeavesTheFolderUntouched()
    {
        // Photos of an earlier shoot stay where they are and are not sent.
        QVERIFY(m_harness.dropPhoto(QStringLiteral("EARLIER.JPG"), SessionHarness::photoJpeg(99)));
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));

        QHash<QString, QByteArray> photos;
        const QByteArray raw = SessionHarness::photoRaw(5);
        QVERIFY(!raw.isEmpty());
        for (int i = 0; i < 50; ++i) {
            // Every fifth photo a RAW; each JPEG different.
            const bool isRaw = i % 5 == 4;
            const QString name = QStringLiteral("IMG_%1.%2").arg(i, 4, 10, QLatin1Char('0')).arg(isRaw ? QStringLiteral("DNG") : QStringLiteral("JPG"));
            photos.insert(name, isRaw ? raw : SessionHarness::photoJpeg(100 + i, 320, 240));
            QVERIFY(m_harness.dropPhoto(name, photos.value(name)));
        }
        const QStringList before = snapshot(m_harness.folderPath());

        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 50, 180000);
        awaitOutcome(model.stopSessionTask());
        QCOMPARE(model.state(), AppState::finished);
        QCOMPARE(model.session().uploadedCount, 50);
        QCOMPARE(model.session().fullResTotal, 50);
        QCOMPARE(model.session().fullResUploaded, 50);
        QVERIFY(!model.uploadManager()->error());

        QCOMPARE(m_harness.service().registeredFiles(*model.session().folderId).size(), 50);
        const StoredFiles stored(m_harness.service());
        for (auto it = photos.cbegin(); it != photos.cend(); ++it)
            QVERIFY2(stored.objectNamed(it.key()) == std::optional(it.value()), qPrintable(it.key()));
        QVERIFY(!stored.presignedNames().contains(QStringLiteral("EARLIER.JPG")));
        QCOMPARE(snapshot(m_harness.folderPath()), before);
    }

    void faultsDuringASession()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Boda")));
        DevService &service = m_harness.service();

        // A refused preview: reported, nothing counted, its original never sent.
        QVERIFY(service.injectFault(DevService::Fault::withStatus(QStringLiteral("presign"), 403)));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("A.JPG"), SessionHarness::photoJpeg(21)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->error(), std::optional(QStringLiteral("Error: Error al preparar la subida")), 20000);
        QCOMPARE(model.uploadManager()->uploadedCount(), 0);

        // An original that fails once goes up on its second try.
        connect(model.uploadManager(), &UploadManager::uploadedCountChanged, this, [&] {
            QVERIFY(service.injectFault(DevService::Fault::withStatus(QStringLiteral("upload"), 500)));
        }, Qt::SingleShotConnection);
        QVERIFY(m_harness.dropPhoto(QStringLiteral("B.JPG"), SessionHarness::photoJpeg(22)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);

        // A broken photo: reported by name.
        QVERIFY(m_harness.dropPhoto(QStringLiteral("C.CR2"), QByteArray(4096, '\x42')));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->error(), std::optional(QStringLiteral("No se pudo procesar C.CR2")), 20000);

        // The end of the session refused: still finished, with the counts and the message.
        QVERIFY(service.injectFault(DevService::Fault::withStatus(QStringLiteral("endSession"), 503)));
        awaitOutcome(model.stopSessionTask());
        QCOMPARE(model.state(), AppState::finished);
        QCOMPARE(model.error(), std::optional(QStringLiteral("No se pudo terminar la sesión")));
        QCOMPARE(model.session().uploadedCount, 1);
        QCOMPARE(model.session().fullResTotal, 1);
        QCOMPARE(model.session().fullResUploaded, 1);
        QCOMPARE(StoredFiles(service).presignedNames().count(QStringLiteral("A.JPG")), 0);
        QCOMPARE(StoredFiles(service).presignedNames().count(QStringLiteral("B.JPG")), 2);
    }

private:
    SessionHarness m_harness;
};

QTEST_GUILESS_MAIN(LiveSessionFlowTest)
#include "tst_livesessionflow.moc"
