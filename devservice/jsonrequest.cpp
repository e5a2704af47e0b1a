// SPDX-License-Identifier: MIT
#include "jsonrequest.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <algorithm>
#include <httplib.h>

std::expected<QJsonObject, Refusal> JsonRequest::objectBody(const httplib::Request &request) {
    const std::string contentType = request.get_header_value("Content-Type");
    const std::string mediaType = contentType.substr(0, contentType.find(';'));
    if (mediaType != "application/json")
        return std::unexpected(
            Refusal{415, "Content-Type must be application/json, not '" + contentType + "'"});
    QJsonParseError error;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromStdString(request.body), &error);
    if (error.error != QJsonParseError::NoError)
        return std::unexpected(
            Refusal{400, "body is not JSON: " + error.errorString().toStdString()});
    if (!document.isObject())
        return std::unexpected(Refusal{422, "body must be a JSON object"});
    return document.object();
}

std::optional<Refusal> JsonRequest::exactStringMembers(const QJsonObject &object,
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
