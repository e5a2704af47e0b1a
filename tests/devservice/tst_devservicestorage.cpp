// SPDX-License-Identifier: MIT
// devservice's object store, tested from the outside over real sockets: what it keeps, byte for
// byte, and every malformed form it turns away.
#include "servicewiretest.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QTest>

#include <algorithm>

class DevServiceStorageTest : public ServiceWireTest {
    Q_OBJECT

private slots:
    void correctUploadIsStoredByteForByte() {
        const ServiceWire::Grant grant = m_wire.presign(m_wire.openSession()["folder_id"].toInteger());
        const QByteArray bytes = ServiceWire::someBytes(300000, 1);
        const QByteArray boundary = ServiceWire::newBoundary();
        const QByteArray body = ServiceWire::formBody(boundary, grant.fields, bytes);
        const ServiceWire::Reply reply = m_wire.upload(grant, body, boundary);
        QCOMPARE(reply.status, 204);
        QCOMPARE(m_service.storedObject(grant.key), std::optional(bytes));
        const auto uploads = m_service.requests("upload");
        QCOMPARE(uploads.size(), 1);
        QVERIFY(uploads[0].body == body);
        QCOMPARE(uploads[0].header("Content-Type"), "multipart/form-data; boundary=" + boundary);
        QVERIFY(!uploads[0].hasHeader("Authorization"));
    }

    void malformedFormsAreRefused_data() {
        QTest::addColumn<QString>("change");
        for (const char *change :
             {"field missing", "field twice", "field changed", "extra field", "file not last",
              "no file", "other boundary in header", "not multipart", "preamble",
              "data after the end", "no closing boundary", "unknown part header"})
            QTest::newRow(change) << QString::fromLatin1(change);
    }

    void malformedFormsAreRefused() {
        QFETCH(QString, change);
        const ServiceWire::Grant grant = m_wire.presign(m_wire.openSession()["folder_id"].toInteger());
        const QByteArray bytes = ServiceWire::someBytes(5000, 2);
        QByteArray boundary = ServiceWire::newBoundary();
        ServiceWire::Fields fields = grant.fields;
        ServiceWire::Fields afterFile;
        const auto signature = std::ranges::find_if(
            fields, [](const auto &f) { return f.first == "x-amz-signature"; });
        QVERIFY(signature != fields.end());
        if (change == "field missing")
            fields.erase(signature);
        else if (change == "field twice")
            fields.append(*signature);
        else if (change == "field changed")
            signature->second.replace(0, 1, signature->second.startsWith('0') ? "1" : "0");
        else if (change == "extra field")
            fields.append(qMakePair(QString("acl"), QString("public-read")));
        else if (change == "file not last")
            afterFile.append(*signature);
        QByteArray body = ServiceWire::formBody(boundary, fields, bytes, afterFile);
        if (change == "no file")
            body = ServiceWire::fieldPart(boundary, "key", grant.key) + "--" + boundary + "--\r\n";
        else if (change == "preamble")
            body.prepend("This is a preamble.\r\n");
        else if (change == "data after the end")
            body += "trailer";
        else if (change == "no closing boundary")
            body.chop(boundary.size() + 6);
        else if (change == "unknown part header")
            body.replace("Content-Type: image/jpeg", "X-Note: hello");

        QByteArray contentType = "multipart/form-data; boundary=" + boundary;
        if (change == "other boundary in header")
            contentType = "multipart/form-data; boundary=" + ServiceWire::newBoundary();
        else if (change == "not multipart")
            contentType = "application/octet-stream";
        const ServiceWire::Reply reply =
            m_wire.send("POST", grant.reply["url"].toString(), body, {{"Content-Type", contentType}});
        QCOMPARE(reply.status, 403);
        QVERIFY2(reply.body.contains("<Error><Code>"), reply.body);
        QCOMPARE(m_service.storedObject(grant.key), std::nullopt);
        QCOMPARE(m_service.requests("upload").value(0).body, body);
    }

    void hundredMegabyteUploadArrivesWhole() {
        const ServiceWire::Grant grant = m_wire.presign(m_wire.openSession()["folder_id"].toInteger());
        const QByteArray boundary = ServiceWire::newBoundary();
        const QByteArray bytes = ServiceWire::someBytes(100 * 1024 * 1024, 3);
        {
            const QByteArray body = ServiceWire::formBody(boundary, grant.fields, bytes);
            QNetworkAccessManager network; // its own, so that its buffers go when it does
            QCOMPARE(m_wire.upload(grant, body, boundary, &network).status, 204);
            const auto uploads = m_service.requests("upload");
            QCOMPARE(uploads.size(), 1);
            QVERIFY(uploads[0].body == body);
        }
        QVERIFY(m_service.storedObject(grant.key) == bytes);
    }
};

QTEST_GUILESS_MAIN(DevServiceStorageTest)
#include "tst_devservicestorage.moc"
