// SPDX-License-Identifier: MIT
#include "httpreplies.h"

#include <QJsonDocument>
#include <QUuid>
#include <httplib.h>

namespace {

std::string xmlEscaped(std::string_view text) {
    std::string escaped;
    for (char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            escaped.push_back(c);
        }
    }
    return escaped;
}

} // namespace

void HttpReplies::json(httplib::Response &response, int status, const QJsonObject &body) {
    response.status = status;
    response.set_content(QJsonDocument(body).toJson(QJsonDocument::Compact).toStdString(),
                         "application/json");
}

void HttpReplies::problem(httplib::Response &response, int status, std::string_view message) {
    json(response, status, QJsonObject{{"error", text(message)}});
}

void HttpReplies::storageError(httplib::Response &response, int status, std::string_view code,
                               std::string_view message) {
    const std::string requestId =
        QUuid::createUuid().toString(QUuid::Id128).toUpper().left(16).toStdString();
    response.status = status;
    response.set_content("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error><Code>" +
                             xmlEscaped(code) + "</Code><Message>" + xmlEscaped(message) +
                             "</Message><RequestId>" + requestId + "</RequestId></Error>\n",
                         "application/xml");
}
