// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QSslCertificate>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>

class QJsonObject;
class QNetworkAccessManager;
class QProcess;
class QTemporaryDir;

// A devservice process for a test program: started on a free loopback port, over plain HTTP
// or over HTTPS with a fresh self-signed certificate for 127.0.0.1, and stopped by the
// destructor. The helpers call its admin API (see devservice/README.md) synchronously by
// spinning a local event loop, so they belong on the main thread of a Qt Test program. A
// helper that gets no proper answer marks the running test as failed (QTest::qFail) and
// returns false or an empty value.
//
//     DevService service;
//     QVERIFY2(service.start(), qPrintable(service.errorString()));
//     APIClient::redirectShared(service.baseURL(), service.storageHost());
class DevService {
public:
    enum class Transport { http, https };

    // What devservice does to a call instead of, or besides, answering it as usual.
    enum class FaultKind {
        status,          // answers `status` with `body`, and does nothing else
        delay,           // answers as usual after `delayMs`
        drop,            // closes the connection without any reply
        malformedJson,   // does the work, then sends a success reply that isn't JSON
        wrongType,       // does the work, then sends `member` as a value of another JSON type
        missingMember,   // does the work, then leaves `member` out of the reply
        hostAbsent,      // presign: the reply has no "host"
        hostNull,        // presign: "host": null
        hostEmpty,       // presign: "host": ""
        redirect,        // answers `status` (3xx) with `location`, and does nothing else
        uploadElsewhere, // presign: the upload `url` on the other origin, and "method": "PUT"
        closeAfterWork,  // does the work, then closes the connection without a reply
        resetAfterWork,  // does the work, then resets the connection without a reply
        notHttp,         // does the work, then answers with bytes that are not HTTP
        cutShort,        // does the work, then closes halfway through the reply's body
        hold,            // recorded, then held until releaseHeld(), then answered as usual
        extraMember,     // does the work, then adds `member`, a name the reply does not have
    };

    struct Fault {
        // "authenticate", "createSession", "endSession", "presign", "register" or "upload".
        QString endpoint;
        FaultKind kind = FaultKind::status;
        int count = 1; // how many of the next calls it takes
        int status = 500;
        QByteArray body;
        int delayMs = 0; // waited first, whatever the kind
        QString member;  // for wrongType and missingMember: "folder_id", "fields.policy", ...
        QString location; // for redirect; empty: the call's own path and query, other origin
        QString retryAfter; // for status: the Retry-After header sent with it; empty: none

        static Fault withStatus(QString endpoint, int status, QByteArray body = {}, int count = 1);
        static Fault withDelay(QString endpoint, int delayMs, int count = 1);
        static Fault withDrop(QString endpoint, int count = 1);
        // The kinds that do the work and then take the reply away.
        static Fault withLostReply(QString endpoint, FaultKind kind, int count = 1);
        // The call is certainly under way, and stays so, until the test releases it.
        static Fault withHold(QString endpoint, int count = 1);
        // The kinds that do the work and then change the reply.
        static Fault withBrokenReply(QString endpoint, FaultKind kind, QString member = {},
                                     int count = 1);
        static Fault withRedirect(QString endpoint, int status, QString location = {},
                                  int count = 1);
    };

    // One request as devservice received it.
    struct ReceivedRequest {
        QByteArray method;
        QString path;                         // as sent, still percent-encoded
        QString rawQuery;                     // the text after '?', as sent
        QList<QPair<QString, QString>> query; // decoded as a web framework does ('+' is a space)
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body; // byte for byte, uploads included
        QDateTime receivedAt; // the service's clock, with milliseconds

        // The first value of a header, by name in any case; null when there is none.
        QByteArray header(QByteArrayView name) const;
        bool hasHeader(QByteArrayView name) const;
    };

    // How an outage takes the calls to the service and its object store (both origins, every
    // path but the admin API's), before anything else sees them: none is recorded or done.
    enum class OutageMode {
        refuse, // the connection is reset as soon as the request's head is in: no reply byte
        hang,   // held without a reply until the outage ends, then closed without one
    };

    // The outage under way, and how many calls outages took since the last reset.
    struct OutageCounts {
        bool active = false;
        int refused = 0;
        int hung = 0;
    };

    struct RegisteredFile {
        QString url;
        QString key;
        QString bucket;
        QString createdAt;
        QString registeredAt; // the service's own clock, with milliseconds
    };

    DevService();
    ~DevService();
    DevService(const DevService &) = delete;
    DevService &operator=(const DevService &) = delete;

    // Starts devservice and waits for its port; false, with errorString(), when it can't.
    // `publicHost` is the "host" that presign replies name; by default "127.0.0.1:PORT".
    // `extraArguments` go on its command line after the fixture's own (see its README.md).
    bool start(Transport transport = Transport::http, const QString &publicHost = {},
               const QStringList &extraArguments = {});
    QString errorString() const;

    // "http://127.0.0.1:PORT" (https in HTTPS mode), no trailing slash.
    QString baseURL() const;
    // The host that presign replies name, which is also what a client falls back to.
    QString storageHost() const;
    quint16 port() const;
    // HTTPS mode's certificate (null otherwise). To make a test's Qt trust it:
    //     auto config = QSslConfiguration::defaultConfiguration();
    //     config.addCaCertificate(service.certificate());
    //     QSslConfiguration::setDefaultConfiguration(config);
    QSslCertificate certificate() const;

    // Forgets tokens, sessions, uploads, objects, received requests and planned faults, ends
    // any outage and zeroes its counts, and restores the presign lifetime of the command line.
    bool reset();
    bool injectFault(const Fault &fault);
    // Clears the planned faults; calls still held are released.
    bool clearFaults();
    // Lets every call held so far go on.
    bool releaseHeld();
    // An outage from now for `durationMs` (0 to a day), in place of any under way; the calls
    // that one holds stay held until this one ends. The admin API answers throughout.
    bool startOutage(OutageMode mode, int durationMs);
    // Ends it at once; held calls are closed without a reply.
    bool endOutage();
    OutageCounts outage();
    // How long the policies of presigns from now on are good for (1 ms to 7 days); an upload
    // that arrives after its policy's expiration is refused with 403 "Policy expired.".
    bool setPresignLifetime(int ms);
    // How many planned faults no call has taken yet; -1 when devservice can't say.
    int pendingFaults();
    QList<ReceivedRequest> requests(const QString &endpoint);
    // The bytes stored under `key`; nothing when there is no such object.
    std::optional<QByteArray> storedObject(const QString &key);
    // The files registered with a session, oldest first; empty for an unknown session.
    QList<RegisteredFile> registeredFiles(const QString &slug);
    QList<RegisteredFile> registeredFiles(qint64 folderId);
    // The slugs of the sessions opened so far, oldest first, and which of them have ended.
    struct OpenedSession {
        QString slug;
        bool ended = false;
    };
    QList<OpenedSession> sessions();
    // The folder_id of the next session opened; later ones count up from it.
    bool setNextFolderId(qint64 folderId);
    // The session gone from the service, as when it is deleted there: its folder's presigns
    // and registrations are refused with 404 from then on.
    bool removeSession(qint64 folderId);
    // The second listener: the same service and object store on another port, so another
    // origin ("http://127.0.0.1:OTHERPORT"); and every request that reached it since the last
    // reset, whatever its path, without bodies.
    QString otherOrigin();
    QList<ReceivedRequest> otherOriginRequests();
    // Signs in with the demo account through the service itself (an "authenticate" call that
    // requests() will list) and returns the token.
    QString demoToken();

    static QString demoEmail();
    static QString demoPassword();
    // An S3-style error document, as an object store sends with a refusal: the body of a
    // `status` fault that stands for a refusal the store itself would make.
    static QByteArray storageError(const QByteArray &code, const QByteArray &message);

private:
    struct Reply;
    Reply call(const QByteArray &verb, const QString &pathAndQuery, const QByteArray &body = {});
    bool expect(const Reply &reply, int status, const char *what);
    std::optional<ReceivedRequest> readRequest(const QString &endpoint, int index,
                                               const QJsonObject &record);
    bool makeCertificate();
    QList<RegisteredFile>
    filesOfSession(const std::function<bool(const QJsonObject &)> &isTheSession);

    std::unique_ptr<QTemporaryDir> m_tlsDir;
    std::unique_ptr<QProcess> m_process;
    std::unique_ptr<QNetworkAccessManager> m_network;
    QSslCertificate m_certificate;
    QString m_baseURL;
    QString m_storageHost;
    quint16 m_port = 0;
    QString m_error;
};
