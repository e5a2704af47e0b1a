// SPDX-License-Identifier: MIT
#include "uplinkgate.h"

#include <utility>

UplinkGate::Hold::Hold(UplinkGate *gate)
    : m_gate(gate)
{
    ++m_gate->m_holds;
}

UplinkGate::Hold::Hold(Hold &&other) noexcept
    : m_gate(std::exchange(other.m_gate, nullptr))
{
}

UplinkGate::Hold &UplinkGate::Hold::operator=(Hold &&other) noexcept
{
    if (this != &other) {
        release();
        m_gate = std::exchange(other.m_gate, nullptr);
    }
    return *this;
}

UplinkGate::Hold::~Hold() { release(); }

void UplinkGate::Hold::release()
{
    if (UplinkGate *const gate = std::exchange(m_gate, nullptr); gate && --gate->m_holds == 0)
        Q_EMIT gate->opened();
}
