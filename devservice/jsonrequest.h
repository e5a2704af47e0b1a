// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"

#include <QJsonObject>
#include <expected>
#include <initializer_list>
#include <optional>
#include <string>

// Why a call was refused, and with which status.
struct Refusal {
    int status;
    std::string message;
};

// Reading JSON request bodies the way a strict web API does: the body must be declared as
// JSON, be JSON, and be an object; members are checked by name and by JSON type, so a number
// where a string belongs is refused rather than converted.
namespace JsonRequest {

std::expected<QJsonObject, Refusal> objectBody(const httplib::Request &request);

// Refused unless `object` has exactly these members, each of them a string.
std::optional<Refusal> exactStringMembers(const QJsonObject &object,
                                          std::initializer_list<const char *> names,
                                          const std::string &where = "body");

} // namespace JsonRequest
