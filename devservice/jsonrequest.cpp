// SPDX-License-Identifier: MIT
#include "jsonrequest.h"

#include <httplib.h>

std::expected<QJsonObject, Refusal> JsonRequest::objectBody(const httplib::Request &request) {
    std::variant<QJsonObject, Refusal> body =
        JsonChecks::objectBody(request.get_header_value("Content-Type"), request.body);
    if (Refusal *refusal = std::get_if<Refusal>(&body))
        return std::unexpected(std::move(*refusal));
    return std::get<QJsonObject>(std::move(body));
}
