// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

// The service and its store out of reach for a while, as a client sees a network outage or a
// crashed server: every call is either refused (its connection reset before a reply byte) or
// swallowed (held without a reply, then closed when the outage ends: the work is never done).
// A swallowed call's connection is taken away from httplib, so it keeps no worker thread: no
// number of them can leave the admin API without a thread to answer on.
class Outage {
public:
    enum class Mode { refuse, hang };

    struct Status {
        bool active = false;
        Mode mode = Mode::refuse; // meaningful only while active
        std::chrono::milliseconds remaining{0};
        std::uint64_t refused = 0;
        std::uint64_t hung = 0;
    };

    Outage();
    ~Outage();
    Outage(const Outage &) = delete;
    Outage &operator=(const Outage &) = delete;

    static std::optional<Mode> modeNamed(std::string_view name);
    static std::string_view modeName(Mode mode);

    // Replaces any outage under way; the calls that one holds stay held until this one ends.
    void begin(Mode mode, std::chrono::milliseconds duration);
    // Ends it at once: held connections are closed without a reply.
    void end();
    // Ends it, and the counts start again from zero.
    void reset();
    // For shutdown: ends it, and nothing is taken from now on.
    void stop();
    Status status() const;

    // Takes the call if an outage is on: true when it did, and then nothing else may look at
    // the call, whose connection is no longer httplib's.
    bool take(const httplib::Request &request);

private:
    using Clock = std::chrono::steady_clock;

    bool activeLocked(Clock::time_point now) const;
    void closeHeldLocked();
    void endWhenDue();

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::optional<Mode> m_mode;
    Clock::time_point m_until;
    std::vector<int> m_held; // connections taken from httplib, closed when the outage ends
    std::uint64_t m_refused = 0;
    std::uint64_t m_hung = 0;
    bool m_stopped = false;
    std::thread m_timer; // last, so that it starts once everything it uses is there
};
