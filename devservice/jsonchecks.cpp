// SPDX-License-Identifier: MIT
#include "jsonchecks.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <algorithm>

std::variant<QJsonObject, Refusal> JsonChecks::objectBody(std::string_view contentType,
                                                          std::string_view body) {
    const std::string_view mediaType = contentType.substr(0, contentType.find(';'));
    if (mediaType != "application/json")
        return Refusal{415, "Content-Type must be application/json, not '" +
                                std::string(contentType) + "'"};
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(
        QByteArray(body.data(), qsizetype(body.size())), &error);
    if (error.error != QJsonParseError::NoError)
        return Refusal{400, "body is not JSON: " + error.errorString().toStdString()};
    if (!document.isObject())
        return Refusal{422, "body must be a JSON object"};
    return document.object();
}

std::optional<Refusal> JsonChecks::exactStringMembers(const QJsonObject &object,
                                                      std::initializer_list<const char *> names,
                                                      const std::string &where) {
    for (const char *name : names) {
        const auto member = object.constFind(QLatin1String(name));
        if (member == object.constEnd())
            return Refusal{422, where + " lacks the member \"" + name + '"'};
        if (!member->isString())
            return Refusal{422, where + " member \"" + name + "\" must be a string"};
    }
    for (const QString &key : object.keys()) {
        const bool known = std::ranges::any_of(
            names, [&](const char *name) { return key == QLatin1String(name); });
        if (!known)
            return Refusal{422, where + " has the unexpected member \"" + key.toStdString() + '"'};
    }
    return std::nullopt;
}

std::optional<qint64> JsonChecks::wholeNumber(const QJsonValue &value) {
    if (!value.isDouble() || value.toVariant().typeId() != QMetaType::LongLong)
        return std::nullopt;
    return value.toInteger();
}

bool JsonChecks::hasExactlyMembers(const QJsonObject &object,
                                   std::initializer_list<const char *> names) {
    if (object.size() != static_cast<qsizetype>(names.size()))
        return false;
    return std::ranges::all_of(
        names, [&](const char *name) { return object.contains(QLatin1String(name)); });
}
