// SPDX-License-Identifier: MIT
// devservice's presign lifetime, tested from the outside over real sockets: the policy's
// expiration follows the lifetime, from the command line or the admin API, and the object
// store refuses an upload that arrives after it, as S3 does.
#include "servicewiretest.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QTest>

namespace {

constexpr int eventTimeoutMs = 30000;
constexpr qint64 defaultLifetimeMs = 3600000;
const QByteArray policyExpired =
    "<Code>AccessDenied</Code><Message>Invalid according to Policy: Policy expired.</Message>";

QDateTime expirationOf(const ServiceWire::Grant &grant) {
    for (const auto &[name, value] : grant.fields) {
        if (name == "policy")
            return QDateTime::fromString(
                QJsonDocument::fromJson(QByteArray::fromBase64(value.toLatin1()))["expiration"]
                    .toString(),
                Qt::ISODateWithMs);
    }
    return {};
}

} // namespace

class DevServicePresignLifetimeTest : public ServiceWireTest {
    Q_OBJECT

private slots:
    void uploadAfterThePolicyExpiredIsRefused() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        QVERIFY(m_service.setPresignLifetime(300));
        const ServiceWire::Grant grant = presign(m_service, m_wire, folderId, 300);
        QVERIFY(!QTest::currentTestFailed());
        const QDateTime expiration = expirationOf(grant);
        // Past it by the clock the service shares with the test, before the upload leaves.
        QTRY_VERIFY_WITH_TIMEOUT(QDateTime::currentDateTimeUtc() > expiration, eventTimeoutMs);

        const QByteArray boundary = ServiceWire::newBoundary();
        const QByteArray body = ServiceWire::formBody(boundary, grant.fields, "jpeg");
        const ServiceWire::Reply reply = m_wire.upload(grant, body, boundary);
        QCOMPARE(reply.status, 403);
        QVERIFY2(reply.body.contains(policyExpired), reply.body);
        QCOMPARE(m_service.storedObject(grant.key), std::nullopt);
        const QList<DevService::ReceivedRequest> uploads = m_service.requests("upload");
        QCOMPARE(uploads.size(), 1);
        QCOMPARE(uploads[0].body, body);
        QVERIFY(uploads[0].receivedAt > expiration);
    }

    void uploadBeforeThePolicyExpiresIsStored() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        // Long enough that no machine, however loaded, gets the upload there after it.
        QVERIFY(m_service.setPresignLifetime(600000));
        const ServiceWire::Grant grant = presign(m_service, m_wire, folderId, 600000);
        QVERIFY(!QTest::currentTestFailed());
        const QByteArray boundary = ServiceWire::newBoundary();
        QCOMPARE(
            m_wire.upload(grant, ServiceWire::formBody(boundary, grant.fields, "jpeg"), boundary)
                .status,
            204);
        QCOMPARE(m_service.storedObject(grant.key), QByteArray("jpeg"));
        QVERIFY(m_service.requests("upload").value(0).receivedAt < expirationOf(grant));
    }

    // What a test of expiry needs whatever the machine's speed: a permission that has expired by
    // the time anything can use it, however fast the upload follows.
    void aPolicyOfNoLifetimeLetsNothingIn() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        QVERIFY(m_service.setPresignLifetime(0));
        for (int i = 0; i < 20; ++i) {
            const ServiceWire::Grant grant = presign(m_service, m_wire, folderId, 0);
            QVERIFY(!QTest::currentTestFailed());
            const QByteArray boundary = ServiceWire::newBoundary();
            const ServiceWire::Reply reply =
                m_wire.upload(grant, ServiceWire::formBody(boundary, grant.fields, "jpeg"), boundary);
            QCOMPARE(reply.status, 403);
            QVERIFY2(reply.body.contains(policyExpired), reply.body);
            QCOMPARE(m_service.storedObject(grant.key), std::nullopt);
        }
    }

    void resetRestoresTheLifetime() {
        QVERIFY(m_service.setPresignLifetime(300));
        QVERIFY(m_wire.resetService());
        presign(m_service, m_wire, m_wire.openSession()["folder_id"].toInteger(),
                defaultLifetimeMs);
    }

    void impossibleLifetimesAreRefused() {
        for (const char *wrong :
             {R"({"ms":-1})", R"({"ms":-300})", R"({"ms":"300"})", R"({"ms":1.5})",
              R"({"ms":300,"extra":1})", R"({})", R"({"ms":604800001})", "not json"}) {
            const ServiceWire::Reply reply = m_wire.send("POST", "/__admin/presign-lifetime", wrong,
                                                         {{"Content-Type", "application/json"}});
            QVERIFY2(reply.status == 400, wrong);
        }
        presign(m_service, m_wire, m_wire.openSession()["folder_id"].toInteger(),
                defaultLifetimeMs);
    }

    void commandLineSetsTheLifetime() {
        DevService service;
        QVERIFY2(service.start(DevService::Transport::http, {}, {"--presign-lifetime-ms", "250"}),
                 qPrintable(service.errorString()));
        ServiceWire wire(service);
        QVERIFY(wire.resetService());
        const qint64 folderId = wire.openSession()["folder_id"].toInteger();
        const ServiceWire::Grant grant = presign(service, wire, folderId, 250);
        QVERIFY(!QTest::currentTestFailed());
        const QDateTime expiration = expirationOf(grant);
        QTRY_VERIFY_WITH_TIMEOUT(QDateTime::currentDateTimeUtc() > expiration, eventTimeoutMs);
        const QByteArray boundary = ServiceWire::newBoundary();
        const ServiceWire::Reply reply =
            wire.upload(grant, ServiceWire::formBody(boundary, grant.fields, "jpeg"), boundary);
        QCOMPARE(reply.status, 403);
        QVERIFY2(reply.body.contains(policyExpired), reply.body);

        // A reset comes back to the command line's lifetime, not to the default.
        QVERIFY(service.setPresignLifetime(600000));
        QVERIFY(wire.resetService());
        presign(service, wire, wire.openSession()["folder_id"].toInteger(), 250);
    }

    void commandLineRefusesImpossibleLifetimes() {
        for (const char *wrong : {"-1", "soon", "604800001", "1.5"}) {
            DevService service;
            QVERIFY2(
                !service.start(DevService::Transport::http, {}, {"--presign-lifetime-ms", wrong}),
                wrong);
        }
    }

private:
    // Presigns, and checks that the policy expires `lifetimeMs` after the presign was granted:
    // no earlier than that after the request arrived, no later than that after its reply came.
    static ServiceWire::Grant presign(DevService &service, ServiceWire &wire, qint64 folderId,
                                      qint64 lifetimeMs) {
        const ServiceWire::Grant grant = wire.presign(folderId);
        const QDateTime answered = QDateTime::currentDateTimeUtc();
        [&] {
            const QDateTime expiration = expirationOf(grant);
            QVERIFY2(expiration.isValid(), qPrintable(grant.reply["fields"]["policy"].toString()));
            const QList<DevService::ReceivedRequest> presigns = service.requests("presign");
            QVERIFY(!presigns.isEmpty());
            const QDateTime asked = presigns.last().receivedAt;
            QVERIFY2(expiration >= asked.addMSecs(lifetimeMs) &&
                         expiration <= answered.addMSecs(lifetimeMs),
                     qPrintable(asked.toString(Qt::ISODateWithMs) + " + " +
                                QString::number(lifetimeMs) + " ms, " +
                                expiration.toString(Qt::ISODateWithMs)));
        }();
        return grant;
    }
};

QTEST_GUILESS_MAIN(DevServicePresignLifetimeTest)
#include "tst_devservicepresignlifetime.moc"
