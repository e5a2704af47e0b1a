// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"

#include <QJsonObject>
#include <QString>
#include <string>
#include <string_view>

// The shapes of the replies: JSON for the service, an XML error document for the object store
// (as S3-style stores answer).
namespace HttpReplies {

void json(httplib::Response &response, int status, const QJsonObject &body);
// {"error": message}, the way the service explains a refusal.
void problem(httplib::Response &response, int status, std::string_view message);
void storageError(httplib::Response &response, int status, std::string_view code,
                  std::string_view message);

inline QString text(std::string_view utf8) {
    return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}
inline std::string utf8(const QString &text) {
    return text.toStdString();
}

} // namespace HttpReplies
