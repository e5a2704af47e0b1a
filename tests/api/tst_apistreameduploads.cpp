// SPDX-License-Identifier: MIT
// An upload read from its file as it is sent, over TLS, on both of the ways an upload goes:
// Qt's HTTP stack (a preview, or any upload of normal priority) and the originals' own
// connection. The store gets the file byte for byte, in the same form as bytes from memory;
// a file that cannot be opened sends nothing, and one that comes up short while it is sent
// fails the upload and leaves nothing stored.
#include "apiclient.h"
#include "devservicefixture.h"
#include "filereaderror.h"
#include "formupload.h"
#include "originalfile.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"

#include <QDir>
#include <QFile>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

namespace {

// Several megabytes: far more than any buffer on the way holds at once.
constexpr qsizetype originalSize = 12 * 1024 * 1024;

} // namespace

class ApiStreamedUploadsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_service.start(DevService::Transport::https),
                 qPrintable(m_service.errorString()));
        m_defaultSsl = QSslConfiguration::defaultConfiguration();
        QSslConfiguration trusting = m_defaultSsl;
        trusting.addCaCertificate(m_service.certificate());
        QSslConfiguration::setDefaultConfiguration(trusting);
        m_api = std::make_unique<APIClient>(m_service.baseURL(), m_service.storageHost());
        m_original = OriginalFile::bytes(originalSize);
    }

    void cleanupTestCase() { QSslConfiguration::setDefaultConfiguration(m_defaultSsl); }

    void init()
    {
        QVERIFY(m_service.reset());
        m_preferences = std::make_unique<ScopedPreferences>();
        QVERIFY(m_folder.isValid());
        QVERIFY(awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword())).value);
        const auto session = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        m_folderId = session.value->folder_id;
    }

    void fileIsStoredByteForByteInTheFormOfBytes_data() { addPriorities(); }
    void fileIsStoredByteForByteInTheFormOfBytes()
    {
        QFETCH(int, priority);
        const QString path = OriginalFile::write(m_folder.filePath(QStringLiteral("IMG_0001.CR3")), m_original);
        const std::optional<PresignResponse> fromFile = presignNow();
        const std::optional<PresignResponse> fromMemory = presignNow();
        QVERIFY(fromFile && fromMemory);
        const auto stored = awaitOutcome(m_api->uploadFileToStorage(*fromFile, path, QNetworkRequest::Priority(priority)));
        QVERIFY(stored.value);
        QCOMPARE(*stored.value, QStringLiteral("https://") + m_service.storageHost() + QLatin1Char('/') + fromFile->bucket + QLatin1Char('/') + fromFile->key);
        const std::optional<QByteArray> object = m_service.storedObject(fromFile->key);
        QVERIFY(object);
        QCOMPARE(object->size(), m_original.size());
        QVERIFY(*object == m_original);

        // The same form as bytes from memory make: the fields in their order, then the file.
        QVERIFY(awaitOutcome(m_api->uploadToStorage(*fromMemory, m_original, QNetworkRequest::Priority(priority))).value);
        const QList<DevService::ReceivedRequest> uploads = m_service.requests(QStringLiteral("upload"));
        QCOMPARE(uploads.size(), 2);
        const QByteArray boundary = FormUpload::boundaryOf(uploads[0]);
        QVERIFY(!boundary.isEmpty());
        QVERIFY(boundary != FormUpload::boundaryOf(uploads[1]));
        QCOMPARE(uploads[0].body.size(), uploads[1].body.size());
        QVERIFY(uploads[0].body == FormUpload::expectedBody(fromFile->fields, m_original, boundary));
        QVERIFY(uploads[1].body == FormUpload::expectedBody(fromMemory->fields, m_original,
                                                            FormUpload::boundaryOf(uploads[1])));
    }

    // Gone, or a folder in its place: nothing goes out, and the error names the file.
    void fileThatCannotBeOpenedSendsNothing_data()
    {
        QTest::addColumn<int>("priority");
        QTest::addColumn<bool>("folder");
        QTest::newRow("preview, missing") << int(QNetworkRequest::HighPriority) << false;
        QTest::newRow("original, missing") << int(QNetworkRequest::LowPriority) << false;
        QTest::newRow("preview, a folder") << int(QNetworkRequest::HighPriority) << true;
        QTest::newRow("original, a folder") << int(QNetworkRequest::LowPriority) << true;
    }
    void fileThatCannotBeOpenedSendsNothing()
    {
        QFETCH(int, priority);
        QFETCH(bool, folder);
        const QString path = m_folder.filePath(QStringLiteral("IMG_0002.JPG"));
        if (folder)
            QVERIFY(QDir().mkpath(path));
        const std::optional<PresignResponse> presign = presignNow();
        QVERIFY(presign);
        const auto outcome = awaitOutcome(m_api->uploadFileToStorage(*presign, path, QNetworkRequest::Priority(priority)));
        const std::optional<FileReadError> error = outcome.errorAs<FileReadError>();
        QVERIFY(error);
        QCOMPARE(error->fileName(), QStringLiteral("IMG_0002.JPG"));
        QCOMPARE(error->localizedDescription(), QStringLiteral("No se pudo leer IMG_0002.JPG"));
        QVERIFY(m_service.requests(QStringLiteral("upload")).isEmpty());
        QCOMPARE(m_service.storedObject(presign->key), std::nullopt);
    }

    // The file is opened as the upload starts, and announced at the size it had then; cut to
    // a third before its bytes go, it cannot give them, and the store keeps nothing.
    void fileCutShortWhileSentFailsAndNothingIsStored_data() { addPriorities(); }
    void fileCutShortWhileSentFailsAndNothingIsStored()
    {
        QFETCH(int, priority);
        const QString path = m_folder.filePath(QStringLiteral("IMG_0003.CR3"));
        PresignResponse presign;
        const auto outcome = uploadChangedOnTheWay(path, priority, presign, [&] {
            QVERIFY(QFile::resize(path, originalSize / 3));
        });
        const std::optional<FileReadError> error = outcome.errorAs<FileReadError>();
        QVERIFY(error);
        QCOMPARE(error->path(), path);
        QCOMPARE(m_service.storedObject(presign.key), std::nullopt);
        // The upload goes again as soon as it is asked to, with the file as it is now.
        QVERIFY(awaitOutcome(m_api->uploadFileToStorage(presign, path, QNetworkRequest::Priority(priority))).value);
        QCOMPARE(m_service.storedObject(presign.key), std::optional(m_original.left(originalSize / 3)));
    }

    // A file that grows while it is sent (a camera still writing) gives what it had when the
    // upload started: the length announced, no byte more.
    void fileGrownWhileSentGivesWhatItHadAtTheStart_data() { addPriorities(); }
    void fileGrownWhileSentGivesWhatItHadAtTheStart()
    {
        QFETCH(int, priority);
        const QString path = m_folder.filePath(QStringLiteral("IMG_0004.CR3"));
        PresignResponse presign;
        const auto outcome = uploadChangedOnTheWay(path, priority, presign, [&] {
            QFile growing(path);
            QVERIFY(growing.open(QIODevice::Append));
            QCOMPARE(growing.write(QByteArray(4096, 'g')), qint64(4096));
        });
        QVERIFY(outcome.value);
        const std::optional<QByteArray> object = m_service.storedObject(presign.key);
        QVERIFY(object);
        QCOMPARE(object->size(), m_original.size());
        QVERIFY(*object == m_original);
    }

private:
    static void addPriorities()
    {
        QTest::addColumn<int>("priority");
        QTest::newRow("preview") << int(QNetworkRequest::HighPriority);
        QTest::newRow("normal") << int(QNetworkRequest::NormalPriority);
        QTest::newRow("original") << int(QNetworkRequest::LowPriority);
    }

    // The original written to `path`, its upload authorised (into `presign`) and started, then
    // `change` done to the file: the upload has opened it by then, and read none of it yet.
    TaskOutcome<QString> uploadChangedOnTheWay(const QString &path, int priority,
                                               PresignResponse &presign,
                                               const std::function<void()> &change)
    {
        OriginalFile::write(path, m_original);
        const std::optional<PresignResponse> granted = presignNow();
        if (!granted)
            return {};
        presign = *granted;
        QCoro::Task<QString> storing =
            m_api->uploadFileToStorage(presign, path, QNetworkRequest::Priority(priority));
        change();
        return awaitOutcome(std::move(storing));
    }

    std::optional<PresignResponse> presignNow()
    {
        return awaitOutcome(m_api->presign(m_folderId, QStringLiteral("upload.jpg"), QStringLiteral("image/jpeg"))).value;
    }

    DevService m_service;
    QSslConfiguration m_defaultSsl;
    std::unique_ptr<APIClient> m_api;
    std::unique_ptr<ScopedPreferences> m_preferences;
    QTemporaryDir m_folder;
    QByteArray m_original;
    qint64 m_folderId = 0;
};

QTEST_GUILESS_MAIN(ApiStreamedUploadsTest)
#include "tst_apistreameduploads.moc"
