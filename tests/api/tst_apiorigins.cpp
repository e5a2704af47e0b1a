// SPDX-License-Identifier: MIT
// Where the client's requests go: a redirect, to another origin or to the same one, is never
// followed, so the bearer token and the password reach no one but the service; and the
// storage upload goes by POST to the presigned address, whatever origin it names.
#include "apiclient.h"
#include "apierror.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"

#include <QTest>

namespace {

struct CallOutcome {
    bool succeeded = false;
    std::optional<APIError> apiError;
};

template <typename T> CallOutcome outcomeOf(const TaskOutcome<T> &outcome) {
    return {outcome.value.has_value(), outcome.template errorAs<APIError>()};
}

APIError::Case failureCaseOf(const QString &endpoint) {
    static const QMap<QString, APIError::Case> cases{
        {QStringLiteral("authenticate"), APIError::authFailed},
        {QStringLiteral("createSession"), APIError::sessionCreateFailed},
        {QStringLiteral("endSession"), APIError::sessionEndFailed},
        {QStringLiteral("presign"), APIError::presignFailed},
        {QStringLiteral("register"), APIError::registerFailed},
        {QStringLiteral("upload"), APIError::uploadFailed},
    };
    return cases.value(endpoint);
}

const QByteArray previewBytes = QByteArrayLiteral("\xFF\xD8\xFF\xE0 a preview \xFF\xD9");

} // namespace

class ApiOriginsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
        m_api = std::make_unique<APIClient>(m_service.baseURL(), m_service.storageHost());
        m_otherOrigin = m_service.otherOrigin();
        QVERIFY(m_otherOrigin.startsWith(QStringLiteral("http://127.0.0.1:")));
        QVERIFY(m_otherOrigin != m_service.baseURL());
    }

    void init() {
        QVERIFY(m_service.reset());
        m_preferences.reset();
        m_preferences = std::make_unique<ScopedPreferences>();
    }

    void redirectsToAnotherOriginAreNotFollowed_data() {
        QTest::addColumn<QString>("endpoint");
        QTest::addColumn<int>("status");
        for (const char *endpoint :
             {"authenticate", "createSession", "endSession", "presign", "register", "upload"}) {
            for (const int status : {301, 302, 303, 307, 308})
                QTest::addRow("%s %d", endpoint, status) << QString::fromLatin1(endpoint) << status;
        }
    }

    // The other origin serves the same service: a client that followed would succeed there,
    // with the token or the password in hand.
    void redirectsToAnotherOriginAreNotFollowed() {
        QFETCH(QString, endpoint);
        QFETCH(int, status);
        const CallOutcome outcome =
            callWithFault(endpoint, DevService::Fault::withRedirect(endpoint, status));
        if (QTest::currentTestFailed())
            return;

        QVERIFY(!outcome.succeeded);
        QVERIFY(outcome.apiError);
        QCOMPARE(outcome.apiError->errorCase(), failureCaseOf(endpoint));
        QCOMPARE(outcome.apiError->httpStatus(), status);
        QCOMPARE(m_service.otherOriginRequests().size(), 0);

        const QList<DevService::ReceivedRequest> sent = m_service.requests(endpoint);
        QCOMPARE(sent.size(), 1);
        // The request that met the redirect did carry the secret the other origin never saw.
        if (endpoint == QLatin1String("authenticate"))
            QVERIFY(sent[0].body.contains(DevService::demoPassword().toUtf8()));
        else if (endpoint != QLatin1String("upload"))
            QCOMPARE(sent[0].header("Authorization"), "Bearer " + m_token.toUtf8());
    }

    void redirectsWithinTheServiceAreNotFollowedEither_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("relative");
        for (const int status : {302, 307, 308}) {
            QTest::addRow("%d absolute", status) << status << false;
            QTest::addRow("%d relative", status) << status << true;
        }
    }

    void redirectsWithinTheServiceAreNotFollowedEither() {
        QFETCH(int, status);
        QFETCH(bool, relative);
        const QString path = QStringLiteral("/api/live/sessions");
        const CallOutcome outcome = callWithFault(
            QStringLiteral("createSession"),
            DevService::Fault::withRedirect(QStringLiteral("createSession"), status,
                                            relative ? path : m_service.baseURL() + path));
        if (QTest::currentTestFailed())
            return;
        QVERIFY(!outcome.succeeded);
        QVERIFY(outcome.apiError);
        QCOMPARE(outcome.apiError->errorCase(), APIError::sessionCreateFailed);
        QCOMPARE(m_service.requests(QStringLiteral("createSession")).size(), 1);
    }

    // The presign reply's "method" is kept but never used, and its "url" is taken as it is,
    // on whichever origin it names.
    void uploadGoesByPostToThePresignedUrlOnAnotherOrigin() {
        signIn();
        const auto session = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(
            QStringLiteral("presign"), DevService::FaultKind::uploadElsewhere)));
        const auto grant = awaitOutcome(m_api->presign(session.value->folder_id,
                                                       QStringLiteral("preview_IMG_0042.jpg"),
                                                       QStringLiteral("image/jpeg")));
        QVERIFY(grant.value);
        QCOMPARE(grant.value->method, QStringLiteral("PUT"));
        QCOMPARE(grant.value->url, m_otherOrigin + QStringLiteral("/storage/upload"));

        const auto uploaded = awaitOutcome(m_api->uploadToStorage(*grant.value, previewBytes));
        QVERIFY(uploaded.value);
        QCOMPARE(m_service.storedObject(grant.value->key), std::optional(previewBytes));

        const QList<DevService::ReceivedRequest> elsewhere = m_service.otherOriginRequests();
        QCOMPARE(elsewhere.size(), 1);
        QCOMPARE(elsewhere[0].method, QByteArray("POST"));
        QCOMPARE(elsewhere[0].path, QStringLiteral("/storage/upload"));
        QVERIFY(elsewhere[0].header("Content-Type").startsWith("multipart/form-data; boundary="));
        QVERIFY(!elsewhere[0].hasHeader("Authorization"));
        QCOMPARE(m_service.requests(QStringLiteral("upload")).size(), 1);
    }

private:
    void signIn() {
        const auto outcome =
            awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword()));
        QVERIFY(outcome.value);
        m_token = *outcome.value;
    }

    // Brings the session as far as the endpoint needs, plans the fault, then makes the one call
    // the fault is for. A failed preparation fails the running test.
    CallOutcome callWithFault(const QString &endpoint, const DevService::Fault &fault) {
        const bool needsSession =
            endpoint != QLatin1String("authenticate") && endpoint != QLatin1String("createSession");
        const bool needsGrant =
            endpoint == QLatin1String("register") || endpoint == QLatin1String("upload");
        if (endpoint != QLatin1String("authenticate"))
            signIn();
        std::optional<SessionResponse> session;
        if (needsSession && !QTest::currentTestFailed()) {
            session = awaitOutcome(m_api->createSession(QStringLiteral("Ana"))).value;
            QTest::qVerify(session.has_value(), "session", "opening a session", __FILE__, __LINE__);
        }
        std::optional<PresignResponse> grant;
        if (needsGrant && session) {
            grant = awaitOutcome(m_api->presign(session->folder_id,
                                                QStringLiteral("preview_IMG_0001.jpg"),
                                                QStringLiteral("image/jpeg")))
                        .value;
            QTest::qVerify(grant.has_value(), "grant", "presigning", __FILE__, __LINE__);
        }
        std::optional<QString> publicUrl;
        if (endpoint == QLatin1String("register") && grant) {
            publicUrl = awaitOutcome(m_api->uploadToStorage(*grant, previewBytes)).value;
            QTest::qVerify(publicUrl.has_value(), "publicUrl", "uploading", __FILE__, __LINE__);
        }
        if (QTest::currentTestFailed() || !m_service.injectFault(fault))
            return {};

        if (endpoint == QLatin1String("authenticate"))
            return outcomeOf(awaitOutcome(
                m_api->authenticate(DevService::demoEmail(), DevService::demoPassword())));
        if (endpoint == QLatin1String("createSession"))
            return outcomeOf(awaitOutcome(m_api->createSession(QStringLiteral("Ana"))));
        if (endpoint == QLatin1String("endSession"))
            return outcomeOf(awaitOutcome(m_api->endSession(session->slug)));
        if (endpoint == QLatin1String("presign"))
            return outcomeOf(awaitOutcome(m_api->presign(session->folder_id,
                                                         QStringLiteral("preview_IMG_0002.jpg"),
                                                         QStringLiteral("image/jpeg"))));
        if (endpoint == QLatin1String("register"))
            return outcomeOf(awaitOutcome(m_api->registerAttachment(session->folder_id, *publicUrl,
                                                                    grant->key, grant->bucket)));
        return outcomeOf(awaitOutcome(m_api->uploadToStorage(*grant, previewBytes)));
    }

    DevService m_service;
    std::unique_ptr<APIClient> m_api;
    std::unique_ptr<ScopedPreferences> m_preferences;
    QString m_otherOrigin;
    QString m_token;
};

QTEST_GUILESS_MAIN(ApiOriginsTest)
#include "tst_apiorigins.moc"
