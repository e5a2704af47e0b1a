// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>

#include <optional>

// A reply body read as one JSON object whose members must be present and of the expected
// type; anything else throws DecodingError. Members nobody asks for are ignored.
class StrictJsonObject {
public:
    // Throws DecodingError unless the body is a JSON object. `recordName` names the record in
    // the error text.
    StrictJsonObject(const QByteArray &body, QString recordName);

    QString string(const QString &key) const;
    qint64 int64(const QString &key) const;
    // Absent and null both give no value; any other non-string throws.
    std::optional<QString> optionalString(const QString &key) const;
    // An object whose every value is a string.
    QMap<QString, QString> stringMap(const QString &key) const;

private:
    [[noreturn]] void fail(const QString &key, const QString &problem) const;
    QJsonValue required(const QString &key) const;

    QJsonObject m_object;
    QString m_recordName;
};
