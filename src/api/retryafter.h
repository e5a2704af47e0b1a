// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDateTime>

#include <chrono>
#include <optional>

// A busy server's word on when to come back (the Retry-After header of a 429 or a 503): a
// number of seconds, or an HTTP date. How long that is from `now`; none for a value that is
// neither (a client that cannot read it backs off as it would have anyway). A date already
// past is no wait at all.
class RetryAfter {
public:
    static std::optional<std::chrono::milliseconds> read(const QByteArray &value,
                                                         const QDateTime &now);
};
