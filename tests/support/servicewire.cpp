// SPDX-License-Identifier: MIT
#include "servicewire.h"

#include "devservicefixture.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QUrl>
#include <QUuid>

const QByteArray ServiceWire::demoSignIn =
    "{\"email\":\"demo@quillmere.test\",\"password\":\"demo1234\"}";

QJsonObject ServiceWire::Reply::json() const
{
    return QJsonDocument::fromJson(body).object();
}

ServiceWire::ServiceWire(DevService &service)
    : m_service(service)
{
}

bool ServiceWire::resetService()
{
    if (!m_service.reset())
        return false;
    m_token = m_service.demoToken().toUtf8();
    return !m_token.isEmpty();
}

ServiceWire::Reply ServiceWire::send(const QByteArray &verb, const QString &pathOrUrl,
                                     const QByteArray &body, const Headers &headers,
                                     QNetworkAccessManager *network)
{
    const QUrl url(pathOrUrl.startsWith('/') ? m_service.baseURL() + pathOrUrl : pathOrUrl);
    QNetworkRequest request(url);
    // What the service answered, exactly: a redirect is a reply like any other here.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    for (const auto &[name, value] : headers)
        request.setRawHeader(name, value);
    QNetworkReply *reply = (network ? network : &m_network)->sendCustomRequest(request, verb, body);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const Reply result{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                       reply->readAll(), reply->error(),
                       QString::fromUtf8(reply->rawHeader("Location"))};
    reply->deleteLater();
    return result;
}

ServiceWire::Reply ServiceWire::sendJson(const QByteArray &verb, const QString &path,
                                         const QJsonObject &body)
{
    Headers headers{{"Content-Type", "application/json"}};
    if (!m_token.isEmpty())
        headers.append({"Authorization", "Bearer " + m_token});
    return send(verb, path, QJsonDocument(body).toJson(QJsonDocument::Compact), headers);
}

QJsonObject ServiceWire::openSession(const QString &name)
{
    return sendJson("POST", "/api/live/sessions", {{"name", name}}).json();
}

ServiceWire::Reply ServiceWire::presignReply(qint64 folderId, const QString &rawQuery)
{
    return send("GET", QStringLiteral("/%1/source_files/presign.json?%2").arg(folderId).arg(rawQuery),
                {}, {{"Authorization", "Bearer " + m_token}});
}

ServiceWire::Grant ServiceWire::presign(qint64 folderId, const QString &filename)
{
    const QString query = "filename=" + QString::fromLatin1(QUrl::toPercentEncoding(filename)) +
                          "&content_type=image%2Fjpeg";
    Grant result;
    result.reply = presignReply(folderId, query).json();
    const QJsonObject fields = result.reply["fields"].toObject();
    for (auto field = fields.begin(); field != fields.end(); ++field)
        result.fields.append({field.key(), field.value().toString()});
    result.key = result.reply["key"].toString();
    return result;
}

ServiceWire::Reply ServiceWire::upload(const Grant &grant, const QByteArray &body,
                                       const QByteArray &boundary, QNetworkAccessManager *network)
{
    return send("POST", grant.reply["url"].toString(), body,
                {{"Content-Type", "multipart/form-data; boundary=" + boundary}}, network);
}

QString ServiceWire::storeAndRegister(qint64 folderId, const QByteArray &bytes)
{
    const Grant grant = presign(folderId);
    const QByteArray boundary = newBoundary();
    if (upload(grant, formBody(boundary, grant.fields, bytes), boundary).status != 204)
        return {};
    const QJsonObject file{{"url", "https://" + m_service.storageHost() + "/quillmere-dev/" + grant.key},
                           {"key", grant.key},
                           {"bucket", "quillmere-dev"},
                           {"created_at", "2026-03-14T09:26:53Z"}};
    const Reply registered =
        sendJson("POST", QStringLiteral("/%1/source_files.json").arg(folderId), {{"source_file", file}});
    return registered.status == 201 ? grant.key : QString();
}

QByteArray ServiceWire::newBoundary()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toLatin1();
}

QByteArray ServiceWire::fieldPart(const QByteArray &boundary, const QString &name,
                                  const QString &value)
{
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name.toUtf8() +
           "\"\r\n\r\n" + value.toUtf8() + "\r\n";
}

QByteArray ServiceWire::formBody(const QByteArray &boundary, const Fields &fields,
                                 const QByteArray &file, const Fields &afterFile)
{
    QByteArray body;
    for (const auto &[name, value] : fields)
        body += fieldPart(boundary, name, value);
    body += "--" + boundary +
            "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"upload.jpg\"\r\n"
            "Content-Type: image/jpeg\r\n\r\n" +
            file + "\r\n";
    for (const auto &[name, value] : afterFile)
        body += fieldPart(boundary, name, value);
    return body + "--" + boundary + "--\r\n";
}

QByteArray ServiceWire::someBytes(qsizetype size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = seed;
    for (char &byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}
