// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

// What every fuzz target shares: a broken rule stops the run with its name, which libFuzzer
// reports as a crash and keeps the input of; and requests given as one input, the first line a
// header's value and the rest the body.
namespace FuzzRules {

inline void require(bool condition, const char *rule) {
    if (!condition) {
        std::fprintf(stderr, "broken rule: %s\n", rule);
        std::abort();
    }
}

struct Request {
    std::string_view header;
    std::string_view body;
};

inline std::optional<Request> request(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t newline = input.find('\n');
    if (newline == std::string_view::npos)
        return std::nullopt;
    return Request{input.substr(0, newline), input.substr(newline + 1)};
}

} // namespace FuzzRules
