// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// Why a call was refused, and with which status.
struct Refusal {
    int status;
    std::string message;
};

// The checks a strict web API makes of a JSON request body, free of any HTTP type so that they
// can be driven with arbitrary bytes: the body must be declared as JSON, be JSON, and be an
// object; members are checked by name and by JSON type, so a number where a string belongs is
// refused rather than converted.
namespace JsonChecks {

std::variant<QJsonObject, Refusal> objectBody(std::string_view contentType, std::string_view body);

// Refused unless `object` has exactly these members, each of them a string.
std::optional<Refusal> exactStringMembers(const QJsonObject &object,
                                          std::initializer_list<const char *> names,
                                          const std::string &where = "body");

// A JSON number without a fraction that fits 64 bits; nothing for anything else, "12" included.
std::optional<qint64> wholeNumber(const QJsonValue &value);

// True when `object` has these members and no other.
bool hasExactlyMembers(const QJsonObject &object, std::initializer_list<const char *> names);

} // namespace JsonChecks
