// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

// What every fuzz target shares: a broken rule stops the run with its name, which libFuzzer
// reports as a crash and keeps the input of; requests given as one input, the first line a
// header's value and the rest the body; and the sizes of the pieces a stream is fed in.
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

// The size of the next piece of a stream with `left` bytes to go, at most `largest`, drawn from
// `state` (a xorshift generator, never zero): the same seed cuts a stream the same way.
inline std::size_t nextPiece(std::uint32_t &state, std::size_t left, std::uint32_t largest) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return std::min<std::size_t>(left, 1 + state % largest);
}

} // namespace FuzzRules
