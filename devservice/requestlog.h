// SPDX-License-Identifier: MIT
#pragma once

#include "endpoint.h"
#include "httplibfwd.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using NameValueList = std::vector<std::pair<std::string, std::string>>;

// One request as it arrived, so that a test can check exactly what a client sent.
struct ReceivedRequest {
    std::string method;
    std::string path; // as sent, still percent-encoded
    std::string rawQuery;
    NameValueList query; // decoded the way a web framework would, '+' included, in order
    NameValueList headers;
    std::string body;               // for the small JSON calls
    std::filesystem::path bodyFile; // for uploads, which may be far too big to keep in memory
    std::uint64_t bodySize = 0;
    std::string receivedAt;

    // Everything but the body, which the caller adds in whichever form suits it.
    static ReceivedRequest from(const httplib::Request &request);
    std::optional<std::string> readBody() const;
};

// Splits a query string into decoded items. Exposed for the admin API, which reads the same
// kind of query.
NameValueList decodeQuery(std::string_view rawQuery);
// The request target's text after '?', as sent.
std::string_view rawQueryOf(const httplib::Request &request);
std::string percentDecode(std::string_view text, bool plusIsSpace);

// What each endpoint received since the last reset, oldest first; and, apart, every request
// that reached the other origin, whatever its path, without its body.
class RequestLog {
public:
    void add(Endpoint endpoint, ReceivedRequest request);
    std::vector<ReceivedRequest> list(Endpoint endpoint) const;
    std::optional<ReceivedRequest> at(Endpoint endpoint, std::size_t index) const;
    void addAtOtherOrigin(ReceivedRequest request);
    std::vector<ReceivedRequest> listAtOtherOrigin() const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::map<Endpoint, std::vector<ReceivedRequest>> m_requests;
    std::vector<ReceivedRequest> m_atOtherOrigin;
};
