// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"
#include "jsonchecks.h"

#include <QJsonObject>
#include <expected>

// Reading JSON request bodies the way a strict web API does (see JsonChecks).
namespace JsonRequest {

std::expected<QJsonObject, Refusal> objectBody(const httplib::Request &request);

using JsonChecks::exactStringMembers;

} // namespace JsonRequest
