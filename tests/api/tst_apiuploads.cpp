// SPDX-License-Identifier: MIT
// Upload authorisation, the object store's form upload and registration, over real sockets.
#include "apiclient.h"
#include "apierror.h"
#include "decodingerror.h"
#include "devservicefixture.h"
#include "formupload.h"
#include "originalfile.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"
#include "transporterror.h"

#include <QDateTime>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

#include <functional>

namespace {

using FormUpload::boundaryOf;
using FormUpload::expectedBody;

// Runs the event loop until done() holds or the limit has passed. Unlike QTest::qWaitFor, which
// sleeps between its turns, it wakes for every event: an upload body is handed to the network
// stack's thread a chunk per event, and would crawl through a sleeping loop.
bool runEventsUntil(const std::function<bool()> &done, std::chrono::milliseconds limit)
{
    QEventLoop loop;
    QTimer check;
    check.setInterval(5);
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    QTimer::singleShot(limit, &loop, &QEventLoop::quit);
    check.start();
    loop.exec();
    return done();
}

} // namespace

class ApiUploadsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
        m_api = std::make_unique<APIClient>(m_service.baseURL(), QStringLiteral("default-store.test"));
    }

    void init()
    {
        QVERIFY(m_service.reset());
        m_preferences.reset();
        m_preferences = std::make_unique<ScopedPreferences>();
        QVERIFY(awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword())).value);
        const auto session = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        m_folderId = session.value->folder_id;
    }

    void presignSendsTheQueryAndDecodes()
    {
        const auto outcome = awaitOutcome(m_api->presign(m_folderId, QStringLiteral("IMG_0001.CR3"), QStringLiteral("image/jpeg")));
        QVERIFY(outcome.value);
        QCOMPARE(outcome.value->method, QStringLiteral("POST"));
        QVERIFY(!outcome.value->fields.isEmpty());
        QVERIFY(outcome.value->key.endsWith(QStringLiteral("IMG_0001.CR3")));
        QCOMPARE(outcome.value->host, std::optional(m_service.storageHost()));

        const auto requests = m_service.requests(QStringLiteral("presign"));
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].method, QByteArray("GET"));
        QCOMPARE(requests[0].path, QLatin1Char('/') + QString::number(m_folderId) + QStringLiteral("/source_files/presign.json"));
        QVERIFY(requests[0].body.isEmpty());
        QVERIFY(!requests[0].hasHeader("Content-Type"));
        QVERIFY(requests[0].header("Authorization").startsWith("Bearer "));
        const QList<QPair<QString, QString>> query = {{QStringLiteral("filename"), QStringLiteral("IMG_0001.CR3")},
                                                      {QStringLiteral("content_type"), QStringLiteral("image/jpeg")}};
        QCOMPARE(requests[0].query, query);
    }

    void hostileFilenameReachesTheServiceIntact()
    {
        const QString name = QStringLiteral("Boda Ana & Luis #3 + año=ñü?.JPG");
        const auto outcome = awaitOutcome(m_api->presign(m_folderId, name, QStringLiteral("image/jpeg")));
        QVERIFY(outcome.value);
        const auto requests = m_service.requests(QStringLiteral("presign"));
        QCOMPARE(requests[0].query.value(0).second, name);
        QCOMPARE(requests[0].query.value(1).second, QStringLiteral("image/jpeg"));
        // Percent-encoded on the wire: no raw space, "&", "#" or "+" inside the value.
        QVERIFY(!requests[0].rawQuery.contains(QLatin1Char(' ')));
        QCOMPARE(requests[0].rawQuery.count(QLatin1Char('&')), 1);
        QVERIFY(!requests[0].rawQuery.contains(QLatin1Char('+')));
    }

    void presignHostVariants()
    {
        using Kind = DevService::FaultKind;
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(QStringLiteral("presign"), Kind::hostAbsent)));
        QCOMPARE(presignNow()->host, std::nullopt);
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(QStringLiteral("presign"), Kind::hostNull)));
        QCOMPARE(presignNow()->host, std::nullopt);
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(QStringLiteral("presign"), Kind::hostEmpty)));
        QCOMPARE(presignNow()->host, std::optional(QString()));
    }

    void presignIgnoresMembersItDoesNotName()
    {
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(
            QStringLiteral("presign"), DevService::FaultKind::extraMember, QStringLiteral("expires_in"))));
        const std::optional<PresignResponse> grant = presignNow();
        QVERIFY(grant);
        QCOMPARE(grant->method, QStringLiteral("POST"));
        QCOMPARE(grant->host, std::optional(m_service.storageHost()));
        // Decoded as if the member were not there: the store, which wants exactly the fields it
        // signed, takes the upload made with them.
        const auto url = awaitOutcome(m_api->uploadToStorage(*grant, "photo bytes"));
        QVERIFY(url.value);
        QCOMPARE(m_service.storedObject(grant->key), std::optional(QByteArray("photo bytes")));
    }

    void presignStatusTest()
    {
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus(QStringLiteral("presign"), 201, "{}")));
        auto error = awaitOutcome(m_api->presign(m_folderId, QStringLiteral("a.jpg"), QStringLiteral("image/jpeg"))).errorAs<APIError>();
        QVERIFY(error);
        QCOMPARE(error->errorCase(), APIError::presignFailed);
        QCOMPARE(error->localizedDescription(), QStringLiteral("Error al preparar la subida"));
    }

    void presignFieldsWithANumberIsADecodingError()
    {
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(
            QStringLiteral("presign"), DevService::FaultKind::wrongType, QStringLiteral("fields.policy"))));
        const auto outcome = awaitOutcome(m_api->presign(m_folderId, QStringLiteral("a.jpg"), QStringLiteral("image/jpeg")));
        QVERIFY(outcome.errorAs<DecodingError>());
        QVERIFY(!outcome.errorAs<APIError>());
    }

    // Whichever way it goes: through Qt's HTTP stack (a preview, or any other), or on a
    // connection of its own (an original).
    void uploadIsByteExactAndRegisters_data() { addPriorities(); }
    void uploadIsByteExactAndRegisters()
    {
        QFETCH(int, priority);
        const std::optional<PresignResponse> presign = presignNow();
        QVERIFY(presign);
        const QByteArray file = QByteArray("\xFF\xD8\xFF\xE0 not really a jpeg \r\n--\r\n", 26) + QByteArray(5000, 'x');
        const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
        const auto url = awaitOutcome(m_api->uploadToStorage(*presign, file, QNetworkRequest::Priority(priority)));
        QVERIFY(url.value);
        QCOMPARE(*url.value, QStringLiteral("https://") + m_service.storageHost() + QLatin1Char('/') + presign->bucket + QLatin1Char('/') + presign->key);
        QCOMPARE(m_service.storedObject(presign->key), std::optional(file));

        const auto uploads = m_service.requests(QStringLiteral("upload"));
        QCOMPARE(uploads.size(), 1);
        const QByteArray boundary = boundaryOf(uploads[0]);
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"))
                    .match(QString::fromLatin1(boundary)).hasMatch());
        QCOMPARE(uploads[0].body, expectedBody(presign->fields, file, boundary));
        QVERIFY(!uploads[0].hasHeader("Authorization"));
        QCOMPARE(uploads[0].header("Content-Type"), "multipart/form-data; boundary=" + boundary);

        QVERIFY(awaitOutcome(m_api->registerAttachment(m_folderId, *url.value, presign->key, presign->bucket)).value);
        const auto registrations = m_service.requests(QStringLiteral("register"));
        QCOMPARE(registrations.size(), 1);
        QCOMPARE(registrations[0].path, QLatin1Char('/') + QString::number(m_folderId) + QStringLiteral("/source_files.json"));
        QCOMPARE(registrations[0].header("Content-Type"), QByteArray("application/json"));
        const QJsonObject body = QJsonDocument::fromJson(registrations[0].body).object();
        QCOMPARE(body.keys(), QStringList{QStringLiteral("source_file")});
        const QJsonObject member = body.value(QStringLiteral("source_file")).toObject();
        QCOMPARE(member.size(), 4);
        QCOMPARE(member.value(QStringLiteral("url")).toString(), *url.value);
        QCOMPARE(member.value(QStringLiteral("key")).toString(), presign->key);
        QCOMPARE(member.value(QStringLiteral("bucket")).toString(), presign->bucket);
        const QString createdAt = member.value(QStringLiteral("created_at")).toString();
        QVERIFY2(QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$")).match(createdAt).hasMatch(), qPrintable(createdAt));
        const QDateTime stamp = QDateTime::fromString(createdAt, Qt::ISODate);
        QVERIFY(stamp >= before && stamp <= QDateTime::currentDateTimeUtc().addSecs(1));
        QCOMPARE(m_service.registeredFiles(m_folderId).size(), 1);
    }

    void twoUploadsNeverShareABoundary()
    {
        for (int i = 0; i < 2; ++i)
            QVERIFY(awaitOutcome(m_api->uploadToStorage(*presignNow(), "abc")).value);
        const auto uploads = m_service.requests(QStringLiteral("upload"));
        QCOMPARE(uploads.size(), 2);
        QVERIFY(!boundaryOf(uploads[0]).isEmpty());
        QVERIFY(boundaryOf(uploads[0]) != boundaryOf(uploads[1]));
    }

    void emptyFieldsAndEmptyFile_data() { addPriorities(); }
    void emptyFieldsAndEmptyFile()
    {
        QFETCH(int, priority);
        PresignResponse presign = *presignNow();
        presign.fields.clear();
        // The store refuses a form without its fields; the body sent is what matters here.
        const auto refused = awaitOutcome(m_api->uploadToStorage(presign, QByteArray(), QNetworkRequest::Priority(priority))).errorAs<APIError>();
        QVERIFY(refused);
        QCOMPARE(refused->errorCase(), APIError::uploadFailed);
        QCOMPARE(refused->localizedDescription(), QStringLiteral("Error al subir la imagen"));
        const auto uploads = m_service.requests(QStringLiteral("upload"));
        const QByteArray boundary = boundaryOf(uploads[0]);
        QCOMPARE(uploads[0].body, "--" + boundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"upload.jpg\"\r\nContent-Type: image/jpeg\r\n\r\n\r\n--" + boundary + "--\r\n");

        const auto stored = awaitOutcome(m_api->uploadToStorage(*presignNow(), QByteArray(), QNetworkRequest::Priority(priority)));
        QVERIFY(stored.value);
    }

    void publicUrlFallsBackToTheDefaultHost()
    {
        PresignResponse presign = *presignNow();
        presign.host.reset();
        QCOMPARE(*awaitOutcome(m_api->uploadToStorage(presign, "x")).value,
                 QStringLiteral("https://default-store.test/") + presign.bucket + QLatin1Char('/') + presign.key);
        presign = *presignNow();
        presign.host = QString();
        QCOMPARE(*awaitOutcome(m_api->uploadToStorage(presign, "x")).value,
                 QStringLiteral("https:///") + presign.bucket + QLatin1Char('/') + presign.key);
    }

    void statusRows(bool withPriorities)
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("succeeds");
        QTest::addColumn<int>("priority");
        const QList<std::pair<const char *, int>> priorities =
            withPriorities ? QList<std::pair<const char *, int>>{{"", QNetworkRequest::NormalPriority},
                                                                 {", original", QNetworkRequest::LowPriority}}
                           : QList<std::pair<const char *, int>>{{"", QNetworkRequest::NormalPriority}};
        for (const auto &[suffix, priority] : priorities) {
            const auto row = [&](const char *name) -> QTestData & { return QTest::addRow("%s%s", name, suffix); };
            row("200 with an error document") << 200 << true << priority;
            row("201") << 201 << true << priority;
            row("204") << 204 << true << priority;
            row("299") << 299 << true << priority;
            row("300") << 300 << false << priority;
            row("403") << 403 << false << priority;
            row("500") << 500 << false << priority;
        }
    }
    void storeStatusTest_data() { statusRows(true); }
    void storeStatusTest()
    {
        QFETCH(int, status);
        QFETCH(bool, succeeds);
        QFETCH(int, priority);
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus(QStringLiteral("upload"), status, "<Error><Code>AccessDenied</Code></Error>")));
        const auto outcome = awaitOutcome(m_api->uploadToStorage(*presignNow(), "x", QNetworkRequest::Priority(priority)));
        QCOMPARE(bool(outcome.value), succeeds);
        if (!succeeds)
            QCOMPARE(outcome.errorAs<APIError>()->errorCase(), APIError::uploadFailed);
    }

    void registerStatusTest_data() { statusRows(false); }
    void registerStatusTest()
    {
        QFETCH(int, status);
        QFETCH(bool, succeeds);
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus(QStringLiteral("register"), status)));
        const auto outcome = awaitOutcome(m_api->registerAttachment(m_folderId, QStringLiteral("https://h/b/k"), QStringLiteral("k"), QStringLiteral("b")));
        QCOMPARE(bool(outcome.value), succeeds);
        if (!succeeds) {
            QCOMPARE(outcome.errorAs<APIError>()->errorCase(), APIError::registerFailed);
            QCOMPARE(outcome.errorAs<APIError>()->localizedDescription(), QStringLiteral("Error al registrar la imagen"));
        }
    }

    void hundredMegabyteUpload()
    {
        const QByteArray file = OriginalFile::bytes(100 * 1024 * 1024);
        const PresignResponse presign = *presignNow();
        QVERIFY(awaitOutcome(m_api->uploadToStorage(presign, file)).value);
        const std::optional<QByteArray> stored = m_service.storedObject(presign.key);
        QVERIFY(stored);
        QCOMPARE(stored->size(), file.size());
        QVERIFY(*stored == file);
    }

    // An upload address that parses but cannot be posted to fails that one upload with the
    // network stack's own error; nothing stops, nothing reaches the store, and the next upload
    // goes ahead.
    void uploadAddressThatCannotBePostedToFailsThatUpload_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("priority");
        QTest::newRow("relative") << QStringLiteral("storage/upload") << int(QNetworkRequest::NormalPriority);
        QTest::newRow("another scheme") << QStringLiteral("ftp://127.0.0.1/storage/upload") << int(QNetworkRequest::NormalPriority);
        QTest::newRow("relative, original") << QStringLiteral("storage/upload") << int(QNetworkRequest::LowPriority);
        QTest::newRow("another scheme, original") << QStringLiteral("ftp://127.0.0.1/storage/upload") << int(QNetworkRequest::LowPriority);
    }
    void uploadAddressThatCannotBePostedToFailsThatUpload()
    {
        QFETCH(QString, url);
        QFETCH(int, priority);
        const std::optional<PresignResponse> presign = presignNow();
        QVERIFY(presign);
        PresignResponse elsewhere = *presign;
        elsewhere.url = url;
        const auto failed = awaitOutcome(m_api->uploadToStorage(elsewhere, "bytes", QNetworkRequest::Priority(priority)));
        const auto transport = failed.errorAs<TransportError>();
        QVERIFY(transport);
        QCOMPARE(transport->code(), QNetworkReply::ProtocolUnknownError);
        QVERIFY(!transport->localizedDescription().isEmpty());
        QVERIFY(m_service.requests(QStringLiteral("upload")).isEmpty());
        QVERIFY(awaitOutcome(m_api->uploadToStorage(*presign, "bytes")).value);
        QCOMPARE(m_service.storedObject(presign->key), std::optional(QByteArray("bytes")));
    }

    // While a high-priority upload (a preview) is on its way, until its reply has come, a
    // low-priority upload (an original) holds back its body: the store keeps the preview
    // waiting for seconds, and in the first two of them, ample time for two megabytes on
    // loopback, the original is not stored. It goes on once the preview is through. (Checked
    // while the preview is surely unanswered: once its reply has come, the original may be
    // through before the test looks.)
    void lowPriorityUploadHoldsBackWhileAPreviewIsOnItsWay()
    {
        const std::optional<PresignResponse> original = presignNow();
        const std::optional<PresignResponse> preview = presignNow();
        QVERIFY(original && preview);
        QVERIFY(m_service.injectFault(DevService::Fault::withDelay(QStringLiteral("upload"), 8000)));
        QCoro::Task<QString> storingPreview =
            m_api->uploadToStorage(*preview, "preview", QNetworkRequest::HighPriority);
        // The preview has reached the store, which lets it wait.
        QVERIFY(QTest::qWaitFor([&] { return m_service.pendingFaults() == 0; }));
        const QByteArray originalBytes(2 * 1024 * 1024, 'o');
        QCoro::Task<QString> storingOriginal =
            m_api->uploadToStorage(*original, originalBytes, QNetworkRequest::LowPriority);
        QVERIFY(!runEventsUntil([&] { return m_service.storedObject(original->key).has_value(); },
                                std::chrono::seconds(2)));
        QVERIFY(!storingPreview.isReady());
        QVERIFY(awaitOutcome(std::move(storingPreview)).value);
        QVERIFY(awaitOutcome(std::move(storingOriginal)).value);
        QCOMPARE(m_service.storedObject(original->key), std::optional(originalBytes));
    }

    // A preview's authorisation and registration carry a few hundred bytes: an original does
    // not hold back for them, and is stored while a slow authorisation is still unanswered.
    void lowPriorityUploadGoesOnDuringAPreviewsOtherRequests()
    {
        const std::optional<PresignResponse> original = presignNow();
        QVERIFY(original);
        QVERIFY(m_service.injectFault(DevService::Fault::withDelay(QStringLiteral("presign"), 8000)));
        QCoro::Task<PresignResponse> authorisingPreview =
            m_api->presign(m_folderId, QStringLiteral("preview_upload.jpg"),
                           QStringLiteral("image/jpeg"), QNetworkRequest::HighPriority);
        QVERIFY(QTest::qWaitFor([&] { return m_service.requests(QStringLiteral("presign")).size() == 2; }));
        const QByteArray originalBytes(2 * 1024 * 1024, 'o');
        QVERIFY(awaitOutcome(m_api->uploadToStorage(*original, originalBytes, QNetworkRequest::LowPriority)).value);
        QVERIFY(!authorisingPreview.isReady());
        QCOMPARE(m_service.storedObject(original->key), std::optional(originalBytes));
        QVERIFY(awaitOutcome(std::move(authorisingPreview)).value);
    }

private:
    static void addPriorities()
    {
        QTest::addColumn<int>("priority");
        QTest::newRow("preview") << int(QNetworkRequest::HighPriority);
        QTest::newRow("original") << int(QNetworkRequest::LowPriority);
    }

    std::optional<PresignResponse> presignNow()
    {
        return awaitOutcome(m_api->presign(m_folderId, QStringLiteral("upload.jpg"), QStringLiteral("image/jpeg"))).value;
    }

    DevService m_service;
    std::unique_ptr<APIClient> m_api;
    std::unique_ptr<ScopedPreferences> m_preferences;
    qint64 m_folderId = 0;
};

QTEST_GUILESS_MAIN(ApiUploadsTest)
#include "tst_apiuploads.moc"
