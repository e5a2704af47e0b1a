// SPDX-License-Identifier: MIT
// devservice's multipart reader on arbitrary bodies. The input's first line is the request's
// Content-Type, the rest its body. The body is read twice, whole and in pieces of sizes drawn
// from the input, and both readings must report the same parts, contents and verdict; a part's
// content never holds the delimiter, and parts open and close in turn.
#include "fuzzrules.h"
#include "multipartreader.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

using FuzzRules::require;

struct Reading {
    std::vector<std::string> events;
    std::optional<std::string> error;
    bool operator==(const Reading &) const = default;
};

Reading read(std::string_view boundary, std::string_view body, std::uint32_t seed) {
    Reading reading;
    bool inPart = false;
    const std::string delimiter = "\r\n--" + std::string(boundary);
    MultipartReader::Callbacks callbacks;
    callbacks.begin = [&](const MultipartReader::Part &part) {
        require(!inPart, "a part opens only after the last one closed");
        inPart = true;
        reading.events.push_back("begin " + part.name + '|' + part.filename.value_or("-") + '|' +
                                 part.contentType.value_or("-"));
        reading.events.emplace_back("content ");
    };
    callbacks.content = [&](std::string_view piece) {
        require(inPart, "content belongs to an open part");
        reading.events.back().append(piece);
    };
    callbacks.end = [&] {
        require(inPart, "only an open part closes");
        require(reading.events.back().find(delimiter) == std::string::npos,
                "a part's content never holds the delimiter");
        inPart = false;
        reading.events.emplace_back("end");
    };
    MultipartReader reader(boundary, callbacks);
    if (seed == 0) {
        reader.feed(body);
    } else {
        std::uint32_t state = seed;
        while (!body.empty()) {
            const std::size_t piece = FuzzRules::nextPiece(state, body.size(), 37);
            reader.feed(body.substr(0, piece));
            body.remove_prefix(piece);
        }
    }
    reader.finish();
    reading.error = reader.error();
    require(reading.error || !inPart, "a body read without error closes its last part");
    return reading;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::optional<FuzzRules::Request> request = FuzzRules::request(data, size);
    if (!request)
        return 0;
    const std::optional<std::string> boundary = MultipartReader::boundaryOf(request->header);
    if (!boundary || boundary->empty())
        return 0;
    const std::string_view body = request->body;
    const Reading whole = read(*boundary, body, 0);
    const Reading pieces = read(*boundary, body, std::uint32_t(size) * 2654435761u | 1u);
    require(whole == pieces, "the reading does not depend on how the body is cut");
    return 0;
}
