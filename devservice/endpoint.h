// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <optional>
#include <string_view>

// The calls a client makes, by the names the admin API uses for them: requests are recorded
// and faults are planned per endpoint.
enum class Endpoint { authenticate, createSession, endSession, presign, registerFile, upload };

inline constexpr std::array allEndpoints{Endpoint::authenticate, Endpoint::createSession,
                                         Endpoint::endSession,   Endpoint::presign,
                                         Endpoint::registerFile, Endpoint::upload};

constexpr std::string_view endpointName(Endpoint endpoint) {
    switch (endpoint) {
    case Endpoint::authenticate:
        return "authenticate";
    case Endpoint::createSession:
        return "createSession";
    case Endpoint::endSession:
        return "endSession";
    case Endpoint::presign:
        return "presign";
    case Endpoint::registerFile:
        return "register";
    case Endpoint::upload:
        return "upload";
    }
    return {};
}

constexpr std::optional<Endpoint> endpointNamed(std::string_view name) {
    for (Endpoint endpoint : allEndpoints) {
        if (endpointName(endpoint) == name)
            return endpoint;
    }
    return std::nullopt;
}
