// SPDX-License-Identifier: MIT
#include "requestfailure.h"

const char *RequestFailure::what() const noexcept
{
    if (m_what.isEmpty())
        m_what = localizedDescription().toUtf8();
    return m_what.constData();
}
