// SPDX-License-Identifier: MIT
#pragma once

#include "endpoint.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// One way for an endpoint to misbehave, for a number of calls.
struct Fault {
    enum class Kind {
        status,          // answer with `status` and `body` instead of doing anything
        delay,           // answer as usual, only later
        drop,            // close the connection without a word
        malformedJson,   // do the work, then send a success reply that isn't JSON
        wrongType,       // do the work, then send `member` as a value of another JSON type
        missingMember,   // do the work, then leave `member` out of the reply
        hostAbsent,      // presign: no "host" member
        hostNull,        // presign: "host": null
        hostEmpty,       // presign: "host": ""
        redirect,        // answer `status` (3xx) with `location` instead of doing anything
        uploadElsewhere, // presign: the upload goes to the other origin, and "method" says PUT
        closeAfterWork,  // do the work, then close the connection without a reply
        resetAfterWork,  // do the work, then reset the connection (TCP RST) without a reply
        notHttp,         // do the work, then answer with bytes that are not an HTTP reply
        cutShort,        // do the work, then close halfway through the reply's body
        hold,            // recorded, then answered as usual only once the test releases it
        extraMember,     // do the work, then add `member`, a name the reply does not have
    };

    Kind kind = Kind::status;
    int remaining = 1;
    int status = 500;
    std::string body;
    std::chrono::milliseconds delay{0}; // waited first, whatever the kind
    std::string member;                 // a reply member, or "fields.<name>" inside presign's
    std::string location; // a redirect's target; empty: the call's own target at the other origin
    std::string retryAfter; // a status fault's Retry-After header, as sent; empty: none

    static std::optional<Kind> kindNamed(std::string_view name);
    static std::string_view kindName(Kind kind);
};

// The faults waiting for their calls, first planned first served, per endpoint. Also the one
// place that knows whether a fault makes sense for an endpoint, so that a test asking for an
// impossible one hears so at once instead of seeing it silently never happen.
class FaultPlan {
public:
    // Gives the reason when the fault can't apply to the endpoint.
    std::optional<std::string> add(Endpoint endpoint, Fault fault);
    // Takes one call's worth of the endpoint's next fault.
    std::optional<Fault> take(Endpoint endpoint);
    std::vector<std::pair<Endpoint, Fault>> pending() const;
    void clear();

    // Sleeps through a fault's delay; cut short when the service shuts down.
    void wait(std::chrono::milliseconds delay);
    // Holds a call until releaseHeld() or the service shuts down.
    void holdUntilReleased();
    // Lets every call held so far go on; clear() does too, so that no call stays held after
    // the test that held it.
    void releaseHeld();
    void interruptWaits();

private:
    mutable std::mutex m_mutex;
    std::map<Endpoint, std::deque<Fault>> m_faults;
    std::condition_variable m_wakeUp;
    bool m_interrupted = false;
    std::uint64_t m_releases = 0; // how many times held calls were let go
};
