// SPDX-License-Identifier: MIT
#include "faultplan.h"

#include "presignedpost.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::array<std::pair<Fault::Kind, std::string_view>, 17> kindNames{{
    {Fault::Kind::status, "status"},
    {Fault::Kind::delay, "delay"},
    {Fault::Kind::drop, "drop"},
    {Fault::Kind::malformedJson, "malformed_json"},
    {Fault::Kind::wrongType, "wrong_type"},
    {Fault::Kind::missingMember, "missing_member"},
    {Fault::Kind::hostAbsent, "host_absent"},
    {Fault::Kind::hostNull, "host_null"},
    {Fault::Kind::hostEmpty, "host_empty"},
    {Fault::Kind::redirect, "redirect"},
    {Fault::Kind::uploadElsewhere, "upload_elsewhere"},
    {Fault::Kind::closeAfterWork, "close"},
    {Fault::Kind::resetAfterWork, "reset"},
    {Fault::Kind::notHttp, "not_http"},
    {Fault::Kind::cutShort, "cut_short"},
    {Fault::Kind::hold, "hold"},
    {Fault::Kind::extraMember, "extra_member"},
}};

// The members of each success reply a client decodes; the others' bodies are read by nobody.
std::vector<std::string> replyMembers(Endpoint endpoint) {
    switch (endpoint) {
    case Endpoint::authenticate:
        return {"token"};
    case Endpoint::createSession:
        return {"folder_id", "slug", "live_url", "gallery_url"};
    case Endpoint::presign: {
        std::vector<std::string> members{"method", "url", "fields", "key", "bucket", "host"};
        for (std::string_view field : PresignedPost::fieldNames)
            members.push_back("fields." + std::string(field));
        return members;
    }
    case Endpoint::endSession:
    case Endpoint::registerFile:
    case Endpoint::upload:
        break;
    }
    return {};
}

std::optional<std::string> problemWith(Endpoint endpoint, const Fault &fault) {
    if (fault.remaining < 1)
        return "count must be at least 1";
    if (fault.delay.count() < 0)
        return "delay_ms must not be negative";
    switch (fault.kind) {
    case Fault::Kind::status:
        if (fault.status < 100 || fault.status > 599)
            return "status must be from 100 to 599";
        return std::nullopt;
    case Fault::Kind::delay:
    case Fault::Kind::drop:
    case Fault::Kind::closeAfterWork:
    case Fault::Kind::resetAfterWork:
    case Fault::Kind::notHttp:
    case Fault::Kind::cutShort:
    case Fault::Kind::hold:
        return std::nullopt;
    case Fault::Kind::malformedJson:
        if (endpoint == Endpoint::upload)
            return "the object store answers without JSON";
        return std::nullopt;
    case Fault::Kind::wrongType:
    case Fault::Kind::missingMember: {
        const std::vector<std::string> members = replyMembers(endpoint);
        if (std::ranges::find(members, fault.member) == members.end())
            return "member '" + fault.member + "' is not in the reply of " +
                   std::string(endpointName(endpoint));
        return std::nullopt;
    }
    case Fault::Kind::hostAbsent:
    case Fault::Kind::hostNull:
    case Fault::Kind::hostEmpty:
        if (endpoint != Endpoint::presign)
            return "only presign replies carry a host";
        return std::nullopt;
    case Fault::Kind::redirect:
        if (fault.status < 300 || fault.status > 399)
            return "a redirect's status must be from 300 to 399";
        return std::nullopt;
    case Fault::Kind::uploadElsewhere:
        if (endpoint != Endpoint::presign)
            return "only presign replies say where the upload goes";
        return std::nullopt;
    case Fault::Kind::extraMember: {
        // A new name at the top of the reply: one inside presign's "fields" would be a form
        // field the store has not signed.
        const std::vector<std::string> members = replyMembers(endpoint);
        if (members.empty())
            return "only authenticate, createSession and presign answer with JSON";
        if (fault.member.empty() || fault.member.find('.') != std::string::npos ||
            std::ranges::find(members, fault.member) != members.end())
            return "member must be a new top-level name";
        return std::nullopt;
    }
    }
    return "unknown kind";
}

} // namespace

std::optional<Fault::Kind> Fault::kindNamed(std::string_view name) {
    for (const auto &[kind, kindText] : kindNames) {
        if (kindText == name)
            return kind;
    }
    return std::nullopt;
}

std::string_view Fault::kindName(Kind kind) {
    for (const auto &[known, kindText] : kindNames) {
        if (known == kind)
            return kindText;
    }
    return {};
}

std::optional<std::string> FaultPlan::add(Endpoint endpoint, Fault fault) {
    if (auto problem = problemWith(endpoint, fault))
        return problem;
    const std::lock_guard lock(m_mutex);
    m_faults[endpoint].push_back(std::move(fault));
    return std::nullopt;
}

std::optional<Fault> FaultPlan::take(Endpoint endpoint) {
    const std::lock_guard lock(m_mutex);
    auto &queue = m_faults[endpoint];
    if (queue.empty())
        return std::nullopt;
    Fault fault = queue.front();
    if (--queue.front().remaining == 0)
        queue.pop_front();
    fault.remaining = 1;
    return fault;
}

std::vector<std::pair<Endpoint, Fault>> FaultPlan::pending() const {
    const std::lock_guard lock(m_mutex);
    std::vector<std::pair<Endpoint, Fault>> all;
    for (const auto &[endpoint, queue] : m_faults) {
        for (const Fault &fault : queue)
            all.emplace_back(endpoint, fault);
    }
    return all;
}

void FaultPlan::clear() {
    {
        const std::lock_guard lock(m_mutex);
        m_faults.clear();
    }
    releaseHeld();
}

void FaultPlan::wait(std::chrono::milliseconds delay) {
    std::unique_lock lock(m_mutex);
    m_wakeUp.wait_for(lock, delay, [this] { return m_interrupted; });
}

void FaultPlan::holdUntilReleased() {
    std::unique_lock lock(m_mutex);
    const std::uint64_t releases = m_releases;
    m_wakeUp.wait(lock, [&] { return m_interrupted || m_releases != releases; });
}

void FaultPlan::releaseHeld() {
    {
        const std::lock_guard lock(m_mutex);
        ++m_releases;
    }
    m_wakeUp.notify_all();
}

void FaultPlan::interruptWaits() {
    {
        const std::lock_guard lock(m_mutex);
        m_interrupted = true;
    }
    m_wakeUp.notify_all();
}
