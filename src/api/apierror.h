// SPDX-License-Identifier: MIT
#pragma once

#include "requestfailure.h"
#include "storagerefusal.h"

#include <QHashFunctions>

#include <chrono>
#include <optional>

// The service's refusal of one endpoint. Equality and hashing look at the case only; the HTTP
// status is kept for diagnostics (0 when the reply was not HTTP at all). Two things more are kept
// where what is done next depends on them: the object store's own word on a refused upload, and
// whether the answer came from a network's sign-in page rather than from the service, and when a busy
// server said to come back.
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
    APIError(Case errorCase, int httpStatus, std::optional<StorageRefusal> storageRefusal);
    // The network answered in the service's place with a page that asks to sign in to it (a
    // captive portal): the request never reached the service.
    static APIError signInPage(Case errorCase, int httpStatus);
    // The service (or the store) is busy (429, 503) and may have said when to come back.
    static APIError busy(Case errorCase, int httpStatus,
                         std::optional<std::chrono::milliseconds> retryAfter);

    Case errorCase() const { return m_case; }
    int httpStatus() const { return m_httpStatus; }
    const std::optional<StorageRefusal> &storageRefusal() const { return m_storageRefusal; }
    bool fromSignInPage() const { return m_signInPage; }
    const std::optional<std::chrono::milliseconds> &retryAfter() const { return m_retryAfter; }

    static QString errorDescription(Case errorCase);
    QString errorDescription() const { return errorDescription(m_case); }
    // What the endpoint's refusal means to the person; a sign-in page's answer says what it is.
    QString localizedDescription() const override;

    friend bool operator==(const APIError &a, const APIError &b) { return a.m_case == b.m_case; }
    friend size_t qHash(const APIError &error, size_t seed = 0) noexcept
    {
        return ::qHash(static_cast<int>(error.m_case), seed);
    }

private:
    Case m_case;
    int m_httpStatus;
    std::optional<StorageRefusal> m_storageRefusal;
    bool m_signInPage = false;
    std::optional<std::chrono::milliseconds> m_retryAfter;
};
