// SPDX-License-Identifier: MIT
#include "presignedpost.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageAuthenticationCode>

namespace {

constexpr char accessKey[] = "QMDEVACCESSKEY";
constexpr char signingSecret[] = "devservice-signing-secret";

QString fromView(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

NameValueList PresignedPost::fields(std::string_view key, std::string_view contentType,
                                    const QDateTime &now, std::chrono::milliseconds lifetime) {
    const QDateTime utc = now.toUTC();
    const std::string date = utc.toString("yyyyMMdd'T'HHmmss'Z'").toStdString();
    const std::string credential = std::string(accessKey) + '/' +
                                   utc.toString("yyyyMMdd").toStdString() +
                                   "/us-east-1/s3/aws4_request";
    const std::string algorithm = "AWS4-HMAC-SHA256";

    const QJsonArray conditions{
        QJsonObject{{"bucket", fromView(bucket)}},
        QJsonObject{{"key", fromView(key)}},
        QJsonObject{{"Content-Type", fromView(contentType)}},
        QJsonObject{{"x-amz-algorithm", fromView(algorithm)}},
        QJsonObject{{"x-amz-credential", fromView(credential)}},
        QJsonObject{{"x-amz-date", fromView(date)}},
    };
    const QJsonObject policyDocument{
        {"expiration", utc.addMSecs(lifetime.count()).toString(Qt::ISODateWithMs)},
        {"conditions", conditions},
    };
    const QByteArray policy =
        QJsonDocument(policyDocument).toJson(QJsonDocument::Compact).toBase64();
    const QByteArray signature =
        QMessageAuthenticationCode::hash(policy, signingSecret, QCryptographicHash::Sha256).toHex();

    return {
        {"key", std::string(key)},
        {"Content-Type", std::string(contentType)},
        {"policy", policy.toStdString()},
        {"x-amz-algorithm", algorithm},
        {"x-amz-credential", credential},
        {"x-amz-date", date},
        {"x-amz-signature", signature.toStdString()},
    };
}

std::optional<QDateTime> PresignedPost::expirationOf(std::string_view policy) {
    const QByteArray decoded =
        QByteArray::fromBase64(QByteArray(policy.data(), static_cast<qsizetype>(policy.size())),
                               QByteArray::AbortOnBase64DecodingErrors);
    const QJsonValue expiration = QJsonDocument::fromJson(decoded)["expiration"];
    const QDateTime time = QDateTime::fromString(expiration.toString(), Qt::ISODateWithMs);
    if (!time.isValid())
        return std::nullopt;
    return time;
}
