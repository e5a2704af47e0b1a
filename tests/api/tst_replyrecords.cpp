// SPDX-License-Identifier: MIT
// Decoding of the service's replies: strict about what the records need, deaf to the rest.
#include "apierror.h"
#include "authresponse.h"
#include "decodingerror.h"
#include "presignresponse.h"
#include "sessionresponse.h"

#include <QSet>
#include <QTest>

class ReplyRecordsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sessionResponseDecodes()
    {
        const SessionResponse session = SessionResponse::decode(
            "{\"folder_id\":42,\"slug\":\"ana-1\",\"live_url\":\"https://x/live\",\"gallery_url\":\"https://x/g\",\"extra\":[1,2]}");
        QCOMPARE(session.folder_id, 42);
        QCOMPARE(session.slug, QStringLiteral("ana-1"));
        QCOMPARE(session.live_url, QStringLiteral("https://x/live"));
        QCOMPARE(session.gallery_url, QStringLiteral("https://x/g"));
    }

    void folderIdKeepsSixtyFourBits_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<qint64>("expected");
        QTest::newRow("2^53+1") << QByteArray("9007199254740993") << Q_INT64_C(9007199254740993);
        QTest::newRow("max") << QByteArray("9223372036854775807")
                             << std::numeric_limits<qint64>::max();
        QTest::newRow("min") << QByteArray("-9223372036854775808")
                             << std::numeric_limits<qint64>::min();
        QTest::newRow("negative") << QByteArray("-7") << Q_INT64_C(-7);
    }
    void folderIdKeepsSixtyFourBits()
    {
        QFETCH(QByteArray, text);
        QFETCH(qint64, expected);
        const SessionResponse session = SessionResponse::decode(
            "{\"folder_id\":" + text + ",\"slug\":\"s\",\"live_url\":\"l\",\"gallery_url\":\"g\"}");
        QCOMPARE(session.folder_id, expected);
    }

    void sessionResponseRejects_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("folder_id as string")
            << QByteArray("{\"folder_id\":\"42\",\"slug\":\"s\",\"live_url\":\"l\",\"gallery_url\":\"g\"}");
        QTest::newRow("folder_id with fraction")
            << QByteArray("{\"folder_id\":42.5,\"slug\":\"s\",\"live_url\":\"l\",\"gallery_url\":\"g\"}");
        QTest::newRow("folder_id beyond 64 bits")
            << QByteArray("{\"folder_id\":1e30,\"slug\":\"s\",\"live_url\":\"l\",\"gallery_url\":\"g\"}");
        QTest::newRow("folder_id null")
            << QByteArray("{\"folder_id\":null,\"slug\":\"s\",\"live_url\":\"l\",\"gallery_url\":\"g\"}");
        QTest::newRow("slug missing")
            << QByteArray("{\"folder_id\":1,\"live_url\":\"l\",\"gallery_url\":\"g\"}");
        QTest::newRow("live_url a number")
            << QByteArray("{\"folder_id\":1,\"slug\":\"s\",\"live_url\":5,\"gallery_url\":\"g\"}");
        QTest::newRow("gallery_url an object")
            << QByteArray("{\"folder_id\":1,\"slug\":\"s\",\"live_url\":\"l\",\"gallery_url\":{}}");
        QTest::newRow("not JSON") << QByteArray("<html>oops</html>");
        QTest::newRow("an array") << QByteArray("[]");
        QTest::newRow("empty body") << QByteArray();
    }
    void sessionResponseRejects()
    {
        QFETCH(QByteArray, body);
        QVERIFY_THROWS_EXCEPTION(DecodingError, SessionResponse::decode(body));
    }

    void authResponseNeedsAStringToken()
    {
        QCOMPARE(AuthResponse::decode("{\"token\":\"abc\",\"user\":{\"id\":3}}").token,
                 QStringLiteral("abc"));
        QVERIFY_THROWS_EXCEPTION(DecodingError, AuthResponse::decode("{\"user\":\"x\"}"));
        QVERIFY_THROWS_EXCEPTION(DecodingError, AuthResponse::decode("{\"token\":12}"));
        QVERIFY_THROWS_EXCEPTION(DecodingError, AuthResponse::decode("{\"token\":null}"));
    }

    void presignHostAbsentNullOrEmpty()
    {
        const QByteArray head =
            "{\"method\":\"POST\",\"url\":\"https://s/u\",\"fields\":{\"a\":\"1\",\"b\":\"2\"},\"key\":\"k\",\"bucket\":\"b\"";
        QCOMPARE(PresignResponse::decode(head + "}").host, std::nullopt);
        QCOMPARE(PresignResponse::decode(head + ",\"host\":null}").host, std::nullopt);
        QCOMPARE(PresignResponse::decode(head + ",\"host\":\"\"}").host, std::optional(QString()));
        QCOMPARE(PresignResponse::decode(head + ",\"host\":\"cdn.example\"}").host,
                 std::optional(QStringLiteral("cdn.example")));
        QVERIFY_THROWS_EXCEPTION(DecodingError, PresignResponse::decode(head + ",\"host\":3}"));

        const PresignResponse presign = PresignResponse::decode(head + "}");
        QCOMPARE(presign.method, QStringLiteral("POST"));
        QCOMPARE(presign.url, QStringLiteral("https://s/u"));
        QCOMPARE(presign.key, QStringLiteral("k"));
        QCOMPARE(presign.bucket, QStringLiteral("b"));
        QCOMPARE(presign.fields.size(), 2);
        QCOMPARE(presign.fields.value(QStringLiteral("b")), QStringLiteral("2"));
    }

    void presignFieldsMustAllBeStrings()
    {
        QVERIFY_THROWS_EXCEPTION(DecodingError, PresignResponse::decode(
            "{\"method\":\"POST\",\"url\":\"u\",\"fields\":{\"a\":\"1\",\"n\":5},\"key\":\"k\",\"bucket\":\"b\"}"));
        QVERIFY_THROWS_EXCEPTION(DecodingError, PresignResponse::decode(
            "{\"method\":\"POST\",\"url\":\"u\",\"fields\":[],\"key\":\"k\",\"bucket\":\"b\"}"));
        QVERIFY_THROWS_EXCEPTION(DecodingError, PresignResponse::decode(
            "{\"method\":\"POST\",\"url\":\"u\",\"fields\":{},\"bucket\":\"b\"}"));
    }

    void apiErrorMessagesAndEquality()
    {
        const QList<std::pair<APIError::Case, QString>> expected = {
            {APIError::authFailed, QStringLiteral("Email o contraseña incorrectos")},
            {APIError::sessionCreateFailed, QStringLiteral("No se pudo crear la sesión")},
            {APIError::sessionEndFailed, QStringLiteral("No se pudo terminar la sesión")},
            {APIError::presignFailed, QStringLiteral("Error al preparar la subida")},
            {APIError::uploadFailed, QStringLiteral("Error al subir la imagen")},
            {APIError::registerFailed, QStringLiteral("Error al registrar la imagen")},
        };
        for (const auto &[errorCase, message] : expected) {
            const APIError error(errorCase, 500);
            QCOMPARE(error.errorDescription(), message);
            QCOMPARE(error.localizedDescription(), message);
            QCOMPARE(QString::fromUtf8(error.what()), message);
        }
        // "ó" and "ñ" are single characters, not combining sequences.
        QCOMPARE(APIError::errorDescription(APIError::authFailed).size(), 30);
        QVERIFY(APIError(APIError::uploadFailed, 403) == APIError(APIError::uploadFailed, 500));
        QVERIFY(!(APIError(APIError::uploadFailed) == APIError(APIError::presignFailed)));
        QCOMPARE(qHash(APIError(APIError::registerFailed, 1)),
                 qHash(APIError(APIError::registerFailed, 2)));
    }
};

QTEST_GUILESS_MAIN(ReplyRecordsTest)
#include "tst_replyrecords.moc"
