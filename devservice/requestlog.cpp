// SPDX-License-Identifier: MIT
#include "requestlog.h"

#include <QDateTime>
#include <fstream>
#include <httplib.h>

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

std::string percentDecode(std::string_view text, bool plusIsSpace) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%' && i + 2 < text.size()) {
            const int high = hexValue(text[i + 1]);
            const int low = hexValue(text[i + 2]);
            if (high >= 0 && low >= 0) {
                decoded.push_back(static_cast<char>(high * 16 + low));
                i += 2;
                continue;
            }
        }
        decoded.push_back(plusIsSpace && c == '+' ? ' ' : c);
    }
    return decoded;
}

NameValueList decodeQuery(std::string_view rawQuery) {
    NameValueList items;
    if (rawQuery.empty())
        return items;
    std::size_t start = 0;
    while (start <= rawQuery.size()) {
        std::size_t end = rawQuery.find('&', start);
        if (end == std::string_view::npos)
            end = rawQuery.size();
        const std::string_view item = rawQuery.substr(start, end - start);
        const std::size_t equals = item.find('=');
        if (equals == std::string_view::npos)
            items.emplace_back(percentDecode(item, true), std::string());
        else
            items.emplace_back(percentDecode(item.substr(0, equals), true),
                               percentDecode(item.substr(equals + 1), true));
        start = end + 1;
    }
    return items;
}

std::string_view rawQueryOf(const httplib::Request &request) {
    const std::string_view target = request.target;
    const std::size_t question = target.find('?');
    return question == std::string_view::npos ? std::string_view() : target.substr(question + 1);
}

ReceivedRequest ReceivedRequest::from(const httplib::Request &request) {
    ReceivedRequest received;
    received.method = request.method;
    const std::string_view target = request.target;
    received.path = std::string(target.substr(0, target.find('?')));
    received.rawQuery = std::string(rawQueryOf(request));
    received.query = decodeQuery(received.rawQuery);
    for (const auto &[name, value] : request.headers) {
        // httplib adds these for its own bookkeeping; no client sent them.
        if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
            name == "LOCAL_PORT")
            continue;
        received.headers.emplace_back(name, value);
    }
    received.receivedAt = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toStdString();
    return received;
}

std::optional<std::string> ReceivedRequest::readBody() const {
    if (bodyFile.empty())
        return body;
    std::ifstream in(bodyFile, std::ios::binary);
    std::string bytes(bodySize, '\0');
    if (!in.read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        return std::nullopt;
    return bytes;
}

void RequestLog::add(Endpoint endpoint, ReceivedRequest request) {
    const std::lock_guard lock(m_mutex);
    m_requests[endpoint].push_back(std::move(request));
}

std::vector<ReceivedRequest> RequestLog::list(Endpoint endpoint) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_requests.find(endpoint);
    return found == m_requests.end() ? std::vector<ReceivedRequest>() : found->second;
}

std::optional<ReceivedRequest> RequestLog::at(Endpoint endpoint, std::size_t index) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_requests.find(endpoint);
    if (found == m_requests.end() || index >= found->second.size())
        return std::nullopt;
    return found->second[index];
}

void RequestLog::addAtOtherOrigin(ReceivedRequest request) {
    const std::lock_guard lock(m_mutex);
    m_atOtherOrigin.push_back(std::move(request));
}

std::vector<ReceivedRequest> RequestLog::listAtOtherOrigin() const {
    const std::lock_guard lock(m_mutex);
    return m_atOtherOrigin;
}

void RequestLog::clear() {
    const std::lock_guard lock(m_mutex);
    for (const auto &[endpoint, requests] : m_requests) {
        for (const ReceivedRequest &request : requests) {
            std::error_code ignored;
            if (!request.bodyFile.empty())
                std::filesystem::remove(request.bodyFile, ignored);
        }
    }
    m_requests.clear();
    m_atOtherOrigin.clear();
}
