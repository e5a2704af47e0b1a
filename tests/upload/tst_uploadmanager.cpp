// SPDX-License-Identifier: MIT
// One photo from disk to a registered preview and a stored original, against devservice, with
// real images in a real folder.
#include "apiclient.h"
#include "devservicefixture.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "rawdngwriter.h"
#include "scopedpreferences.h"
#include "storedfiles.h"
#include "taskoutcome.h"
#include "uploadmanager.h"

#include <QDir>
#include <QScopeGuard>
#include <QSocketNotifier>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#ifdef Q_OS_LINUX
#include <sys/inotify.h>
#include <unistd.h>
#endif


class UploadManagerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
        APIClient::redirectShared(m_service.baseURL(), m_service.storageHost());
        m_jpeg = PhotoFiles::encodeJpeg(PhotoGenerator(QSize(1200, 800), 7).image8(), 90);
        QVERIFY(!m_jpeg.isEmpty());
    }

    void init()
    {
        QVERIFY(m_service.reset());
        m_preferences.reset();
        m_preferences = std::make_unique<ScopedPreferences>();
        QVERIFY(awaitOutcome(APIClient::shared().authenticate(DevService::demoEmail(), DevService::demoPassword())).value);
        const auto session = awaitOutcome(APIClient::shared().createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        m_folderId = session.value->folder_id;
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }

    void previewNameRule_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QString>("previewName");
        QTest::newRow("raw") << QStringLiteral("IMG_0001.CR3") << QStringLiteral("preview_IMG_0001.jpg");
        QTest::newRow("jpeg") << QStringLiteral("IMG_0002.jpg") << QStringLiteral("preview_IMG_0002.jpg");
        QTest::newRow("upper-case jpeg") << QStringLiteral("DSC_0042.JPG") << QStringLiteral("preview_DSC_0042.jpg");
        QTest::newRow("every occurrence") << QStringLiteral("raw_7.raw") << QStringLiteral("preview_jpg_7.jpg");
        QTest::newRow("case-sensitive") << QStringLiteral("NEF_1.nef") << QStringLiteral("preview_NEF_1.jpg");
        QTest::newRow("no extension") << QStringLiteral("photo") << QStringLiteral("preview_photo");
    }
    void previewNameRule()
    {
        QFETCH(QString, fileName);
        QFETCH(QString, previewName);
        QCOMPARE(UploadManager::previewName(fileName, QFileInfo(fileName).suffix()), previewName);
    }

    void onePhotoGoesAllTheWay()
    {
        const QString path = writePhoto(QStringLiteral("DSC_0042.JPG"), m_jpeg);
        UploadManager manager(m_folderId);
        QSignalSpy uploaded(&manager, &UploadManager::uploadedCountChanged);
        QSignalSpy totals(&manager, &UploadManager::fullResTotalChanged);
        // Both counters move in one turn, and before the original is even asked for.
        bool sameTurn = false;
        bool turnEnded = false;
        qint64 totalAtFirstSignal = -1;
        int originalRequestsAtFirstSignal = -1;
        connect(&manager, &UploadManager::uploadedCountChanged, this, [&] {
            totalAtFirstSignal = manager.fullResTotal();
            originalRequestsAtFirstSignal = int(StoredFiles(m_service).presignedNames().count(QStringLiteral("DSC_0042.JPG")));
            QTimer::singleShot(0, this, [&] { turnEnded = true; });
            connect(&manager, &UploadManager::fullResTotalChanged, this, [&] { sameTurn = !turnEnded; });
        });

        manager.uploadFile(QUrl::fromLocalFile(path));
        QTRY_COMPARE_WITH_TIMEOUT(manager.fullResUploaded(), 1, 30000);
        QCOMPARE(manager.uploadedCount(), 1);
        QCOMPARE(manager.fullResTotal(), 1);
        QCOMPARE(uploaded.count(), 1);
        QCOMPARE(totals.count(), 1);
        QCOMPARE(totalAtFirstSignal, 1);
        QCOMPARE(originalRequestsAtFirstSignal, 0);
        QVERIFY(sameTurn);
        QVERIFY(!manager.error());

        QCOMPARE(StoredFiles(m_service).presignedNames(), (QStringList{QStringLiteral("preview_DSC_0042.jpg"), QStringLiteral("DSC_0042.JPG")}));
        for (const auto &request : m_service.requests(QStringLiteral("presign")))
            QCOMPARE(request.query.value(1).second, QStringLiteral("image/jpeg"));
        const auto files = m_service.registeredFiles(m_folderId);
        QCOMPARE(files.size(), 1);
        QVERIFY(files[0].key.endsWith(QStringLiteral("preview_DSC_0042.jpg")));
        const std::optional<QByteArray> preview = m_service.storedObject(files[0].key);
        QVERIFY(preview);
        QCOMPARE(PhotoFiles::decodeJpeg(*preview).size(), QSize(1200, 800));
        QCOMPARE(StoredFiles(m_service).objectNamed(QStringLiteral("DSC_0042.JPG")), std::optional(m_jpeg));
    }

    void rawOriginalIsAnnouncedAsJpeg()
    {
        const QImage sensor = PhotoGenerator(QSize(640, 426), 3).image8();
        const QString path = m_folder->filePath(QStringLiteral("IMG_0007.dng"));
        QVERIFY(RawDngWriter::write(path, sensor, sensor.scaled(160, 106)));
        UploadManager manager(m_folderId);
        manager.uploadFile(QUrl::fromLocalFile(path));
        QTRY_COMPARE_WITH_TIMEOUT(manager.fullResUploaded(), 1, 30000);
        QCOMPARE(StoredFiles(m_service).presignedNames(), (QStringList{QStringLiteral("preview_IMG_0007.jpg"), QStringLiteral("IMG_0007.dng")}));
        QCOMPARE(m_service.requests(QStringLiteral("presign")).at(1).query.value(1).second, QStringLiteral("image/jpeg"));
        QFile source(path);
        QVERIFY(source.open(QIODevice::ReadOnly));
        QCOMPARE(StoredFiles(m_service).objectNamed(QStringLiteral("IMG_0007.dng")), std::optional(source.readAll()));
    }

    void threePhotosAtOnceRunTwoPreviews()
    {
        // The first two authorisations are held at the service until the test lets them go.
        QVERIFY(m_service.injectFault(DevService::Fault::withHold(QStringLiteral("presign"), 2)));
        UploadManager manager(m_folderId);
        for (const char *name : {"A.jpg", "B.jpg", "C.jpg"})
            manager.uploadFile(QUrl::fromLocalFile(writePhoto(QString::fromLatin1(name), m_jpeg)));
        QTRY_COMPARE_WITH_TIMEOUT(m_service.requests(QStringLiteral("presign")).size(), 2, 20000);
        // The third waits for a permit, which both jobs keep through their authorisations:
        // given time to overtake, it does not.
        QTest::qWait(800);
        QCOMPARE(m_service.requests(QStringLiteral("presign")).size(), 2);
        QVERIFY(m_service.releaseHeld());
        QTRY_COMPARE_WITH_TIMEOUT(manager.uploadedCount(), 3, 30000);
        QTRY_COMPARE_WITH_TIMEOUT(manager.fullResUploaded(), 3, 30000);
    }

    // From the start of its job to its registration a preview has the uplink: an original under
    // way meanwhile holds back its body (two megabytes, which loopback carries in milliseconds)
    // while the preview's authorisation or registration is kept waiting at the service, and goes
    // on once the preview is registered.
    void aPreviewHoldsTheOriginalsBackUntilItIsRegistered_data()
    {
        QTest::addColumn<QString>("heldStep");
        QTest::newRow("authorisation") << QStringLiteral("presign");
        QTest::newRow("registration") << QStringLiteral("register");
    }
    void aPreviewHoldsTheOriginalsBackUntilItIsRegistered()
    {
        QFETCH(QString, heldStep);
        const auto original = awaitOutcome(APIClient::shared().presign(
            m_folderId, QStringLiteral("EARLIER.JPG"), QStringLiteral("image/jpeg")));
        QVERIFY(original.value);
        QVERIFY(m_service.injectFault(DevService::Fault::withHold(heldStep)));
        UploadManager manager(m_folderId);
        manager.uploadFile(QUrl::fromLocalFile(writePhoto(QStringLiteral("A.JPG"), m_jpeg)));
        QTRY_COMPARE_WITH_TIMEOUT(m_service.pendingFaults(), 0, 20000);

        const QByteArray originalBytes(2 * 1024 * 1024, 'o');
        QCoro::Task<QString> storing = APIClient::shared().uploadToStorage(
            *original.value, originalBytes, QNetworkRequest::LowPriority);
        QVERIFY(!QTest::qWaitFor(
            [&] { return m_service.storedObject(original.value->key).has_value(); }, 2000));
        QCOMPARE(manager.uploadedCount(), 0);

        QVERIFY(m_service.releaseHeld());
        QVERIFY(awaitOutcome(std::move(storing)).value);
        QCOMPARE(m_service.storedObject(original.value->key), std::optional(originalBytes));
        QTRY_COMPARE_WITH_TIMEOUT(manager.uploadedCount(), 1, 20000);
        QTRY_COMPARE_WITH_TIMEOUT(manager.fullResUploaded(), 1, 20000);
    }

    void undecodablePhotoReachesNoService()
    {
        UploadManager manager(m_folderId);
        manager.uploadFile(QUrl::fromLocalFile(writePhoto(QStringLiteral("IMG_0100.CR2"), "not a photo at all")));
        QTRY_VERIFY_WITH_TIMEOUT(manager.error().has_value(), 20000);
        QCOMPARE(*manager.error(), QStringLiteral("No se pudo procesar IMG_0100.CR2"));
        QCOMPARE(manager.uploadedCount(), 0);
        QCOMPARE(manager.fullResTotal(), 0);
        QVERIFY(m_service.requests(QStringLiteral("presign")).isEmpty());
        QVERIFY(m_service.requests(QStringLiteral("upload")).isEmpty());
    }

    void missingPhotoIsReportedToo()
    {
        UploadManager manager(m_folderId);
        manager.uploadFile(QUrl::fromLocalFile(m_folder->filePath(QStringLiteral("gone.jpg"))));
        QTRY_COMPARE_WITH_TIMEOUT(manager.error(), std::optional(QStringLiteral("No se pudo procesar gone.jpg")), 20000);
    }

    void failedPreviewStepsAreReported_data()
    {
        QTest::addColumn<QString>("endpoint");
        QTest::addColumn<QString>("message");
        QTest::newRow("presign") << QStringLiteral("presign") << QStringLiteral("Error: Error al preparar la subida");
        QTest::newRow("upload") << QStringLiteral("upload") << QStringLiteral("Error: Error al subir la imagen");
        QTest::newRow("register") << QStringLiteral("register") << QStringLiteral("Error: Error al registrar la imagen");
    }
    void failedPreviewStepsAreReported()
    {
        QFETCH(QString, endpoint);
        QFETCH(QString, message);
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus(endpoint, 500)));
        UploadManager manager(m_folderId);
        manager.uploadFile(QUrl::fromLocalFile(writePhoto(QStringLiteral("IMG_0001.JPG"), m_jpeg)));
        QTRY_COMPARE_WITH_TIMEOUT(manager.error(), std::optional(message), 20000);
        QTest::qWait(300);
        QCOMPARE(manager.uploadedCount(), 0);
        QCOMPARE(manager.fullResTotal(), 0);
        // No retry of a preview, and its original is never sent.
        QVERIFY(!StoredFiles(m_service).presignedNames().contains(QStringLiteral("IMG_0001.JPG")));
        QVERIFY(StoredFiles(m_service).presignedNames().size() <= 1);
    }

    void transportFailureOfAPreviewIsReported()
    {
        const qsizetype sentBefore = m_service.requests(QStringLiteral("register")).size();
        QVERIFY(m_service.injectFault(DevService::Fault::withDrop(QStringLiteral("register"))));
        UploadManager manager(m_folderId);
        manager.uploadFile(QUrl::fromLocalFile(writePhoto(QStringLiteral("IMG_0003.JPG"), m_jpeg)));
        QTRY_VERIFY_WITH_TIMEOUT(manager.error().has_value(), 20000);
        QVERIFY(manager.error()->startsWith(QStringLiteral("Error: ")));
        QVERIFY(manager.error()->size() > 7);
        // The preview's registration went out once: the lost connection was not tried again
        // (only a presign or a storage upload would be, and only when unanswered).
        QCOMPARE(m_service.requests(QStringLiteral("register")).size(), sentBefore + 1);
    }

    void originalIsRetriedOnceAfterFiveSeconds()
    {
        UploadManager manager(m_folderId);
        // Faults are served in the order planned: the first authorisation (the preview's) goes
        // through untouched, the second (its original's) is refused.
        QVERIFY(m_service.injectFault(DevService::Fault::withDelay(QStringLiteral("presign"), 0)));
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus(QStringLiteral("presign"), 503)));
        manager.uploadFile(QUrl::fromLocalFile(writePhoto(QStringLiteral("A.JPG"), m_jpeg)));
        QTRY_COMPARE_WITH_TIMEOUT(StoredFiles(m_service).presignedNames(),
                                  (QStringList{QStringLiteral("preview_A.jpg"), QStringLiteral("A.JPG")}), 20000);
        // A second photo's original must wait behind the first one's pause.
        manager.uploadFile(QUrl::fromLocalFile(writePhoto(QStringLiteral("B.JPG"), m_jpeg)));
        QTRY_COMPARE_WITH_TIMEOUT(manager.fullResUploaded(), 2, 40000);
        QVERIFY(!manager.error());
        const QList<DevService::ReceivedRequest> presigns = m_service.requests(QStringLiteral("presign"));
        QStringList names;
        for (const DevService::ReceivedRequest &presign : presigns)
            names << presign.query.value(0).second;
        QCOMPARE(names.count(QStringLiteral("A.JPG")), 2);
        QCOMPARE(names.count(QStringLiteral("B.JPG")), 1);
        QVERIFY(names.lastIndexOf(QStringLiteral("A.JPG")) < names.indexOf(QStringLiteral("B.JPG")));
        // The retry was authorised no sooner than five seconds after the refusal (the service's
        // clock, each reading cut to the millisecond).
        const qint64 pause = presigns[names.lastIndexOf(QStringLiteral("A.JPG"))].receivedAt.toMSecsSinceEpoch()
            - presigns[names.indexOf(QStringLiteral("A.JPG"))].receivedAt.toMSecsSinceEpoch();
        QVERIFY2(pause >= 5000 - 1, qPrintable(QString::number(pause)));
        QCOMPARE(StoredFiles(m_service).objectNamed(QStringLiteral("A.JPG")), std::optional(m_jpeg));
    }

    void originalFailingTwiceIsSilent()
    {
        UploadManager manager(m_folderId);
        connect(&manager, &UploadManager::uploadedCountChanged, this, [&] {
            QVERIFY(m_service.injectFault(DevService::Fault::withStatus(QStringLiteral("upload"), 500, {}, 2)));
        });
        manager.uploadFile(QUrl::fromLocalFile(writePhoto(QStringLiteral("A.JPG"), m_jpeg)));
        QTRY_COMPARE_WITH_TIMEOUT(StoredFiles(m_service).presignedNames().count(QStringLiteral("A.JPG")), 2, 20000);
        QTRY_COMPARE_WITH_TIMEOUT(m_service.requests(QStringLiteral("upload")).size(), 3, 20000);
        QTest::qWait(500);
        QCOMPARE(manager.uploadedCount(), 1);
        QCOMPARE(manager.fullResTotal(), 1);
        QCOMPARE(manager.fullResUploaded(), 0);
        QVERIFY(!manager.error());
    }

    void vanishedOriginalIsSilent()
    {
        const QString path = writePhoto(QStringLiteral("A.JPG"), m_jpeg);
        UploadManager manager(m_folderId);
        connect(&manager, &UploadManager::uploadedCountChanged, this, [&] { QVERIFY(QFile::remove(path)); });
        manager.uploadFile(QUrl::fromLocalFile(path));
        QTRY_COMPARE_WITH_TIMEOUT(manager.uploadedCount(), 1, 20000);
        QTest::qWait(1000);
        QCOMPARE(manager.fullResTotal(), 1);
        QCOMPARE(manager.fullResUploaded(), 0);
        QVERIFY(!manager.error());
        QVERIFY(!StoredFiles(m_service).presignedNames().contains(QStringLiteral("A.JPG")));
    }

#ifdef Q_OS_LINUX
    // An original that cannot be read ends its job at once: no pause and no second read, and
    // the next original goes ahead. Once its preview is done, the photo gives way to a folder
    // (which opens, but cannot be read), and comes back as soon as the job has tried it: a job
    // that paused and read again would find it and store it.
    void unreadableOriginalEndsAtOnce()
    {
        const QString path = writePhoto(QStringLiteral("A.JPG"), m_jpeg);
        const QString aside = m_folder->filePath(QStringLiteral("A.aside"));
        const QString folder = m_folder->filePath(QStringLiteral("not-a-photo"));
        QVERIFY(QDir().mkdir(folder));
        const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        QVERIFY(watch >= 0);
        const auto closeWatch = qScopeGuard([watch] { close(watch); });
        QVERIFY(inotify_add_watch(watch, QFile::encodeName(folder).constData(), IN_CLOSE_NOWRITE) >= 0);
        QSocketNotifier tried(watch, QSocketNotifier::Read);
        bool readTried = false;
        connect(&tried, &QSocketNotifier::activated, this, [&] {
            char events[4096];
            while (read(watch, events, sizeof events) > 0) {
            }
            if (!std::exchange(readTried, true))
                QVERIFY(QFile::remove(path) && QFile::rename(aside, path));
        });
        UploadManager manager(m_folderId);
        connect(&manager, &UploadManager::uploadedCountChanged, this, [&] {
            if (manager.uploadedCount() != 1)
                return;
            QVERIFY(QFile::rename(path, aside) && QFile::link(folder, path));
            manager.uploadFile(QUrl::fromLocalFile(writePhoto(QStringLiteral("B.JPG"), m_jpeg)));
        });
        manager.uploadFile(QUrl::fromLocalFile(path));
        QTRY_COMPARE_WITH_TIMEOUT(manager.fullResUploaded(), 1, 30000);
        QVERIFY(readTried);
        const QStringList names = StoredFiles(m_service).presignedNames();
        QCOMPARE(names.count(QStringLiteral("A.JPG")), 0);
        QCOMPARE(names.count(QStringLiteral("B.JPG")), 1);
        QCOMPARE(manager.fullResTotal(), 2);
        QVERIFY(!manager.error());
    }
#endif

    void destroyedManagerLetsJobsFinish()
    {
        auto manager = std::make_unique<UploadManager>(m_folderId);
        for (const char *name : {"A.jpg", "B.jpg", "C.jpg"})
            manager->uploadFile(QUrl::fromLocalFile(writePhoto(QString::fromLatin1(name), m_jpeg)));
        manager.reset();
        QTRY_COMPARE_WITH_TIMEOUT(m_service.registeredFiles(m_folderId).size(), 3, 30000);
        // Originals need not go up in the order the photos came; each goes up whole.
        for (const char *name : {"A.jpg", "B.jpg", "C.jpg"})
            QTRY_COMPARE_WITH_TIMEOUT(StoredFiles(m_service).objectNamed(QString::fromLatin1(name)),
                                      std::optional(m_jpeg), 30000);
    }

private:
    QString writePhoto(const QString &name, const QByteArray &bytes)
    {
        const QString path = m_folder->filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(path));
        return path;
    }

    DevService m_service;
    std::unique_ptr<ScopedPreferences> m_preferences;
    std::unique_ptr<QTemporaryDir> m_folder;
    QByteArray m_jpeg;
    qint64 m_folderId = 0;
};

QTEST_GUILESS_MAIN(UploadManagerTest)
#include "tst_uploadmanager.moc"
