// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

// How long to wait before trying again what could not be delivered: a couple of seconds after
// the first failure, doubling after every round that fails too, up to about a minute, each wait
// shifted by a random quarter so that many programs cut off by the same outage do not all come
// back in the same second.
class RetrySchedule {
public:
    static constexpr std::chrono::milliseconds first{2000};
    static constexpr std::chrono::milliseconds longest{60000};

    // The wait before the next round; each call makes the one after it longer.
    std::chrono::milliseconds next();
    // Something went through: the next failure starts again from the shortest wait.
    void reset() { m_rounds = 0; }
    int rounds() const { return m_rounds; }

private:
    int m_rounds = 0;
};
