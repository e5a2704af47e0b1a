// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPair>
#include <QString>

class DevService;

// Requests to devservice written out by hand, byte for byte, the way a client puts them on the
// wire: for the tests of devservice itself, which must not lean on the client under test.
class ServiceWire {
public:
    using Fields = QList<QPair<QString, QString>>;
    using Headers = QList<QPair<QByteArray, QByteArray>>;

    struct Reply {
        int status = 0;
        QByteArray body;
        QNetworkReply::NetworkError error = QNetworkReply::NoError;
        QString location; // the Location header of a redirect
        QJsonObject json() const;
    };

    // A presign reply, with its form fields in the order they came.
    struct Grant {
        QJsonObject reply;
        Fields fields;
        QString key;
    };

    static const QByteArray demoSignIn;

    explicit ServiceWire(DevService &service);

    // Sends to the service's origin when `pathOrUrl` starts with '/', else to the URL as given.
    Reply send(const QByteArray &verb, const QString &pathOrUrl, const QByteArray &body = {},
               const Headers &headers = {}, QNetworkAccessManager *network = nullptr);
    Reply sendJson(const QByteArray &verb, const QString &path, const QJsonObject &body);

    // Resets the service to its first state and signs the demo account in afresh; false when
    // either fails.
    bool resetService();
    const QByteArray &token() const { return m_token; }

    QJsonObject openSession(const QString &name = QStringLiteral("Boda de Ana y Luis"));
    Reply presignReply(qint64 folderId, const QString &rawQuery);
    Grant presign(qint64 folderId, const QString &filename = QStringLiteral("preview_IMG_0042.jpg"));
    Reply upload(const Grant &grant, const QByteArray &body, const QByteArray &boundary,
                 QNetworkAccessManager *network = nullptr);
    // A preview the whole way: presigned, stored and registered. Gives its key.
    QString storeAndRegister(qint64 folderId, const QByteArray &bytes);

    static QByteArray newBoundary();
    static QByteArray fieldPart(const QByteArray &boundary, const QString &name,
                                const QString &value);
    // The form exactly as a browser-style client sends it: the fields, the file last.
    static QByteArray formBody(const QByteArray &boundary, const Fields &fields,
                               const QByteArray &file, const Fields &afterFile = {});
    // Deterministic bytes standing in for a photo.
    static QByteArray someBytes(qsizetype size, quint32 seed);

private:
    DevService &m_service;
    QNetworkAccessManager m_network;
    QByteArray m_token; // sent as the bearer of sendJson's calls when not empty
};
