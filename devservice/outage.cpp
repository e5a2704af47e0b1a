// SPDX-License-Identifier: MIT
#include "outage.h"

#include "connectiondrop.h"

#include <unistd.h>

Outage::Outage()
    : m_timer([this] { endWhenDue(); }) {}

Outage::~Outage() {
    stop();
    m_timer.join();
}

std::optional<Outage::Mode> Outage::modeNamed(std::string_view name) {
    if (name == "refuse")
        return Mode::refuse;
    if (name == "hang")
        return Mode::hang;
    return std::nullopt;
}

std::string_view Outage::modeName(Mode mode) {
    return mode == Mode::refuse ? "refuse" : "hang";
}

void Outage::begin(Mode mode, std::chrono::milliseconds duration) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopped)
            return;
        m_mode = mode;
        m_until = Clock::now() + duration;
    }
    m_changed.notify_all();
}

void Outage::end() {
    const std::lock_guard lock(m_mutex);
    m_mode.reset();
    closeHeldLocked();
}

void Outage::reset() {
    const std::lock_guard lock(m_mutex);
    m_mode.reset();
    closeHeldLocked();
    m_refused = 0;
    m_hung = 0;
}

void Outage::stop() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopped = true;
        m_mode.reset();
        closeHeldLocked();
    }
    m_changed.notify_all();
}

Outage::Status Outage::status() const {
    const std::lock_guard lock(m_mutex);
    Status status;
    const Clock::time_point now = Clock::now();
    status.active = activeLocked(now);
    if (status.active) {
        status.mode = *m_mode;
        status.remaining = std::chrono::ceil<std::chrono::milliseconds>(m_until - now);
    }
    status.refused = m_refused;
    status.hung = m_hung;
    return status;
}

bool Outage::take(const httplib::Request &request) {
    Mode mode = Mode::refuse;
    {
        const std::lock_guard lock(m_mutex);
        if (!activeLocked(Clock::now()))
            return false;
        mode = *m_mode;
        // Counted before the client can see anything of it: a count read once a client has
        // seen its connection end includes that call.
        ++(mode == Mode::refuse ? m_refused : m_hung);
    }
    // The connection is looked for outside the lock: that walks every descriptor there is.
    if (mode == Mode::refuse) {
        // A reset is what a client meets at a port nobody serves any more; a plain close if
        // the socket can't be made to reset.
        if (!resetConnection(request))
            dropConnection(request);
        return true;
    }
    const int connection = takeConnection(request);
    if (connection < 0) {
        dropConnection(request);
        return true;
    }
    const std::lock_guard lock(m_mutex);
    // An outage that ended while the connection was being looked for has closed the others it
    // held; this one goes the same way.
    if (activeLocked(Clock::now()))
        m_held.push_back(connection);
    else
        close(connection);
    return true;
}

bool Outage::activeLocked(Clock::time_point now) const {
    return m_mode && !m_stopped && now < m_until;
}

void Outage::closeHeldLocked() {
    for (const int connection : m_held)
        close(connection);
    m_held.clear();
}

void Outage::endWhenDue() {
    std::unique_lock lock(m_mutex);
    while (!m_stopped) {
        if (m_mode && Clock::now() >= m_until) {
            m_mode.reset();
            closeHeldLocked();
        }
        if (m_mode)
            m_changed.wait_until(lock, m_until);
        else
            m_changed.wait(lock);
    }
}
