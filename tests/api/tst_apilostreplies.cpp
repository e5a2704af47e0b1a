// SPDX-License-Identifier: MIT
// Every operation puts its request on the wire once. A reply lost on the way, after the service
// has acted on the request, reaches the caller as a transport error; the request is never sent
// again behind the caller's back. The two exceptions do the same however often they arrive (a
// presign, an upload to a presigned key): when their connection closed before a single byte of
// the reply, they go once more at once, as browsers send such requests again. An original's
// upload, which goes on a connection of its own rather than through Qt's stack, keeps the same
// rules, and so does an upload read from its file as it is sent, which the second send reads
// again from the file's start.
#include "apiclient.h"
#include "apierror.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"
#include "transporterror.h"

#include <QFile>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

namespace {

// "upload" is a preview's, through Qt's HTTP stack; "original" an original's, on a connection
// of its own; "* from file" the same with the bytes read from a file as they are sent. All
// reach the object store's upload endpoint.
const QStringList operations{QStringLiteral("authenticate"),     QStringLiteral("createSession"),
                             QStringLiteral("endSession"),       QStringLiteral("presign"),
                             QStringLiteral("register"),         QStringLiteral("upload"),
                             QStringLiteral("original"),         QStringLiteral("upload from file"),
                             QStringLiteral("original from file")};
const QStringList sentOnce{QStringLiteral("authenticate"), QStringLiteral("createSession"),
                           QStringLiteral("endSession"), QStringLiteral("register")};
const QStringList sentAgainWhenUnanswered{
    QStringLiteral("presign"), QStringLiteral("upload"), QStringLiteral("original"),
    QStringLiteral("upload from file"), QStringLiteral("original from file")};

// The service's name for the endpoint an operation calls.
QString endpointOf(const QString &operation)
{
    return operation.startsWith(QLatin1String("original")) || operation.endsWith(QLatin1String("file"))
               ? QStringLiteral("upload")
               : operation;
}

// The photo the uploads from a file send, in a file of its own for each call.
QString photoFile()
{
    static QTemporaryDir folder;
    static int made = 0;
    const QString path = folder.filePath(QStringLiteral("photo-%1.jpg").arg(++made));
    QFile file(path);
    if (!folder.isValid() || !file.open(QIODevice::WriteOnly) || file.write("another photo") != 13)
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

std::optional<TransportError> transportErrorIn(const std::exception_ptr &error)
{
    TaskOutcome<taskoutcome_detail::Done> outcome;
    outcome.error = error;
    return outcome.errorAs<TransportError>();
}

QString describe(const std::exception_ptr &error)
{
    if (!error)
        return QStringLiteral("success");
    try {
        std::rethrow_exception(error);
    } catch (const std::exception &other) {
        return QString::fromUtf8(other.what());
    }
}

} // namespace

class ApiLostRepliesTest : public QObject {
    Q_OBJECT

    // What an operation needs from the service beforehand: a token, a session, an upload
    // authorised, a file stored.
    struct Stage {
        SessionResponse session;
        PresignResponse presign;
        QString storedURL;
    };

    Stage prepare(APIClient &api)
    {
        Stage stage;
        [&] {
            QVERIFY(awaitOutcome(api.authenticate(DevService::demoEmail(), DevService::demoPassword())).value);
            const auto session = awaitOutcome(api.createSession(QStringLiteral("Ana")));
            QVERIFY(session.value);
            stage.session = *session.value;
            const auto presign = awaitOutcome(api.presign(stage.session.folder_id, QStringLiteral("a.jpg"), QStringLiteral("image/jpeg")));
            QVERIFY(presign.value);
            stage.presign = *presign.value;
            const auto stored = awaitOutcome(api.uploadToStorage(stage.presign, "a photo"));
            QVERIFY(stored.value);
            stage.storedURL = *stored.value;
        }();
        return stage;
    }

    // Runs one operation on a fresh piece of work, so that the service has something to do.
    static std::exception_ptr run(APIClient &api, const QString &operation, const Stage &stage,
                                  const PresignResponse &fresh)
    {
        if (operation == QLatin1String("authenticate"))
            return awaitOutcome(api.authenticate(DevService::demoEmail(), DevService::demoPassword())).error;
        if (operation == QLatin1String("createSession"))
            return awaitOutcome(api.createSession(QStringLiteral("Berta"))).error;
        if (operation == QLatin1String("endSession"))
            return awaitOutcome(api.endSession(stage.session.slug)).error;
        if (operation == QLatin1String("presign"))
            return awaitOutcome(api.presign(stage.session.folder_id, QStringLiteral("b.jpg"), QStringLiteral("image/jpeg"))).error;
        if (operation == QLatin1String("register"))
            return awaitOutcome(api.registerAttachment(stage.session.folder_id, stage.storedURL, stage.presign.key, stage.presign.bucket)).error;
        if (operation == QLatin1String("original"))
            return awaitOutcome(api.uploadToStorage(fresh, "another photo", QNetworkRequest::LowPriority)).error;
        if (operation == QLatin1String("original from file"))
            return awaitOutcome(api.uploadFileToStorage(fresh, photoFile(), QNetworkRequest::LowPriority)).error;
        if (operation == QLatin1String("upload from file"))
            return awaitOutcome(api.uploadFileToStorage(fresh, photoFile())).error;
        return awaitOutcome(api.uploadToStorage(fresh, "another photo")).error;
    }

    // What the service keeps of the operation's work once it has done it.
    bool workDone(const QString &operation, const Stage &stage, const PresignResponse &fresh)
    {
        if (operation == QLatin1String("createSession"))
            return m_service.sessions().size() == 2;
        if (operation == QLatin1String("endSession"))
            return m_service.sessions().value(0).ended;
        if (operation == QLatin1String("register"))
            return m_service.registeredFiles(stage.session.folder_id).size() == 1;
        if (endpointOf(operation) == QLatin1String("upload"))
            return m_service.storedObject(fresh.key) == QByteArray("another photo");
        return true; // a token or an authorisation issued leaves nothing the admin API lists
    }

    struct Faulted {
        qsizetype requestsBefore = -1;
        qsizetype requestsAfter = -1;
        bool workDone = false;
        std::exception_ptr error;
    };

    // Sets the stage, plans the fault for the operation's next call and runs the operation.
    Faulted runWithFault(const QString &operation, const DevService::Fault &fault)
    {
        Faulted faulted;
        APIClient api(m_service.baseURL(), m_service.storageHost());
        const Stage stage = prepare(api);
        const auto fresh = awaitOutcome(api.presign(stage.session.folder_id, QStringLiteral("c.jpg"), QStringLiteral("image/jpeg")));
        if (QTest::currentTestFailed() || !fresh.value)
            return faulted;
        faulted.requestsBefore = m_service.requests(endpointOf(operation)).size();
        if (!m_service.injectFault(fault))
            return faulted;
        faulted.error = run(api, operation, stage, *fresh.value);
        faulted.requestsAfter = m_service.requests(endpointOf(operation)).size();
        faulted.workDone = workDone(operation, stage, *fresh.value);
        return faulted;
    }

    void addRows(const QList<DevService::FaultKind> &kinds,
                 const QStringList &rowOperations = operations)
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<int>("kind");
        for (const DevService::FaultKind kind : kinds) {
            const QString name = kind == DevService::FaultKind::closeAfterWork   ? QStringLiteral("close")
                                 : kind == DevService::FaultKind::resetAfterWork ? QStringLiteral("reset")
                                 : kind == DevService::FaultKind::cutShort       ? QStringLiteral("cut short")
                                 : kind == DevService::FaultKind::notHttp        ? QStringLiteral("not http")
                                                                                 : QStringLiteral("dropped");
            for (const QString &operation : rowOperations)
                QTest::newRow(qPrintable(operation + QLatin1Char(' ') + name)) << operation << int(kind);
        }
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
    }

    void init()
    {
        QVERIFY(m_service.reset());
        m_preferences.reset();
        m_preferences = std::make_unique<ScopedPreferences>();
    }

    void replyLostAfterTheWorkIsSentOnceAndFails_data()
    {
        addRows({DevService::FaultKind::closeAfterWork, DevService::FaultKind::resetAfterWork},
                sentOnce);
        addRows({DevService::FaultKind::cutShort});
    }
    void replyLostAfterTheWorkIsSentOnceAndFails()
    {
        QFETCH(QString, operation);
        QFETCH(int, kind);
        const Faulted faulted = runWithFault(operation, DevService::Fault::withLostReply(endpointOf(operation), DevService::FaultKind(kind)));
        QCOMPARE(faulted.requestsAfter, faulted.requestsBefore + 1);
        QVERIFY(faulted.workDone);
        const std::optional<TransportError> transport = transportErrorIn(faulted.error);
        QVERIFY2(transport, qPrintable(describe(faulted.error)));
        QCOMPARE(transport->code(), QNetworkReply::RemoteHostClosedError);
        QVERIFY(!transport->localizedDescription().isEmpty());
    }

    void connectionClosedBeforeTheWorkIsSentOnceAndFails_data()
    {
        addRows({DevService::FaultKind::drop}, sentOnce);
    }
    void connectionClosedBeforeTheWorkIsSentOnceAndFails()
    {
        QFETCH(QString, operation);
        const Faulted faulted = runWithFault(operation, DevService::Fault::withDrop(endpointOf(operation)));
        QCOMPARE(faulted.requestsAfter, faulted.requestsBefore + 1);
        const std::optional<TransportError> transport = transportErrorIn(faulted.error);
        QVERIFY2(transport, qPrintable(describe(faulted.error)));
        QCOMPARE(transport->code(), QNetworkReply::RemoteHostClosedError);
    }

    // A presign or an upload whose connection closed before the first byte of its reply, with
    // or without the work done, goes once more at once and succeeds.
    void unansweredIdempotentRequestIsSentOnceMore_data()
    {
        addRows({DevService::FaultKind::closeAfterWork, DevService::FaultKind::resetAfterWork,
                 DevService::FaultKind::drop, DevService::FaultKind::notHttp},
                sentAgainWhenUnanswered);
    }
    void unansweredIdempotentRequestIsSentOnceMore()
    {
        QFETCH(QString, operation);
        QFETCH(int, kind);
        const DevService::FaultKind faultKind(static_cast<DevService::FaultKind>(kind));
        const Faulted faulted = runWithFault(
            operation, faultKind == DevService::FaultKind::drop
                           ? DevService::Fault::withDrop(endpointOf(operation))
                           : DevService::Fault::withLostReply(endpointOf(operation), faultKind));
        QVERIFY2(!faulted.error, qPrintable(describe(faulted.error)));
        QCOMPARE(faulted.requestsAfter, faulted.requestsBefore + 2);
        QVERIFY(faulted.workDone);
        QCOMPARE(m_service.pendingFaults(), 0);
    }

    // Qt's HTTP stack throws away a reply that does not begin with an HTTP status line and
    // treats it as a connection closed before the reply: it cannot be told apart from one.
    void replyThatIsNotHttpIsSentOnceAndFails_data()
    {
        QTest::addColumn<QString>("operation");
        for (const QString &operation : sentOnce)
            QTest::newRow(qPrintable(operation)) << operation;
    }
    void replyThatIsNotHttpIsSentOnceAndFails()
    {
        QFETCH(QString, operation);
        const Faulted faulted = runWithFault(operation, DevService::Fault::withLostReply(endpointOf(operation), DevService::FaultKind::notHttp));
        QCOMPARE(faulted.requestsAfter, faulted.requestsBefore + 1);
        QVERIFY(faulted.workDone);
        QVERIFY2(transportErrorIn(faulted.error), qPrintable(describe(faulted.error)));
    }

    void refusedConnectionFailsEveryOperation_data()
    {
        QTest::addColumn<QString>("operation");
        for (const QString &operation : operations)
            QTest::newRow(qPrintable(operation)) << operation;
    }
    void refusedConnectionFailsEveryOperation()
    {
        QFETCH(QString, operation);
        QTcpServer unused;
        QVERIFY(unused.listen(QHostAddress::LocalHost));
        const QString origin = QStringLiteral("http://127.0.0.1:%1").arg(unused.serverPort());
        unused.close();
        APIClient api(origin, QStringLiteral("store.test"));
        Stage stage;
        stage.session.folder_id = 1001;
        stage.session.slug = QStringLiteral("nowhere");
        stage.presign.url = origin + QStringLiteral("/storage/upload");
        stage.presign.key = QStringLiteral("k");
        stage.presign.bucket = QStringLiteral("b");
        stage.storedURL = QStringLiteral("https://store.test/b/k");

        const std::exception_ptr error = run(api, operation, stage, stage.presign);

        const std::optional<TransportError> transport = transportErrorIn(error);
        QVERIFY2(transport, qPrintable(describe(error)));
        QCOMPARE(transport->code(), QNetworkReply::ConnectionRefusedError);
    }

    // The uploads of a live session keep their connection between requests: losing a reply on
    // it must not lose the connection's next request, nor send it twice.
    void keptAliveConnectionCarriesOnAfterALostReply()
    {
        APIClient api(m_service.baseURL(), m_service.storageHost());
        const Stage stage = prepare(api);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(m_service.injectFault(DevService::Fault::withLostReply(QStringLiteral("createSession"), DevService::FaultKind::closeAfterWork)));
        QVERIFY(transportErrorIn(awaitOutcome(api.createSession(QStringLiteral("Dora"))).error));
        const auto next = awaitOutcome(api.createSession(QStringLiteral("Eva")));
        QVERIFY(next.value);
        const QList<DevService::ReceivedRequest> creations = m_service.requests(QStringLiteral("createSession"));
        QCOMPARE(creations.size(), 3);
        QVERIFY(creations[1].body.contains("Dora"));
        QVERIFY(creations[2].body.contains("Eva"));
    }

private:
    DevService m_service;
    std::unique_ptr<ScopedPreferences> m_preferences;
};

QTEST_GUILESS_MAIN(ApiLostRepliesTest)
#include "tst_apilostreplies.moc"
