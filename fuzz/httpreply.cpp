// SPDX-License-Identifier: MIT
// The HTTP reply parser on arbitrary bytes, as a server or anything posing as one may send
// them. The reply is read twice, whole and in pieces of sizes drawn from the input, and both
// readings must end the same way with the same status, fields and body. A complete reply has a
// final status; a body kept never outgrows its limit; a refused reply has nothing read after.
#include "fuzzrules.h"
#include "httpreplyparser.h"

#include <cstdint>

namespace {

using FuzzRules::require;

HttpReplyParser read(QByteArrayView reply, std::uint32_t seed)
{
    HttpReplyParser parser;
    if (seed == 0) {
        parser.feed(reply);
    } else {
        std::uint32_t state = seed;
        while (!reply.isEmpty()) {
            const auto piece = qsizetype(FuzzRules::nextPiece(state, size_t(reply.size()), 61));
            parser.feed(reply.first(piece));
            reply = reply.sliced(piece);
        }
    }
    parser.connectionClosed();
    return parser;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView reply(reinterpret_cast<const char *>(data), qsizetype(size));
    const std::uint32_t seed = size > 0 ? 0x9E3779B9u ^ data[size - 1] : 1;
    const HttpReplyParser whole = read(reply, 0);
    const HttpReplyParser pieces = read(reply, seed);
    require(whole.state() == pieces.state(), "pieces end as the whole does");
    require(whole.status() == pieces.status(), "pieces read the same status");
    require(whole.fields() == pieces.fields(), "pieces read the same fields");
    require(whole.body() == pieces.body() && whole.bodySize() == pieces.bodySize(),
            "pieces read the same body");
    require(whole.body().size() <= HttpReplyParser::bodyKept, "a body kept stays within its limit");
    require(whole.bodySize() <= qint64(size), "no body is longer than what came");
    if (whole.isComplete())
        require(whole.status() >= 200 && whole.status() <= 599, "a complete reply is a final one");
    if (whole.status() != 0)
        require(whole.status() >= 100 && whole.status() <= 599 && whole.status() != 101,
                "a status read is one HTTP has");
    return 0;
}
