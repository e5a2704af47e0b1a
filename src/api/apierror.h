// SPDX-License-Identifier: MIT
#pragma once

#include "requestfailure.h"

#include <QHashFunctions>

// The service's refusal of one endpoint. Equality and hashing look at the case only; the HTTP
// status is kept for diagnostics (0 when the reply was not HTTP at all).
class APIError final : public RequestFailure {
public:
    enum Case {
        authFailed,
        sessionCreateFailed,
        sessionEndFailed,
        presignFailed,
        uploadFailed,
        registerFailed,
    };

    explicit APIError(Case errorCase, int httpStatus = 0);

    Case errorCase() const { return m_case; }
    int httpStatus() const { return m_httpStatus; }

    static QString errorDescription(Case errorCase);
    QString errorDescription() const { return errorDescription(m_case); }
    QString localizedDescription() const override { return errorDescription(); }

    friend bool operator==(const APIError &a, const APIError &b) { return a.m_case == b.m_case; }
    friend size_t qHash(const APIError &error, size_t seed = 0) noexcept
    {
        return ::qHash(static_cast<int>(error.m_case), seed);
    }

private:
    Case m_case;
    int m_httpStatus;
};
