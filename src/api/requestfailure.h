// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// Base of every error a service call throws. Callers that only need the sentence for the
// person at the screen use localizedDescription(); callers that need the structure catch the
// concrete type (APIError, TransportError, DecodingError).
class RequestFailure : public std::exception {
public:
    ~RequestFailure() override = default;

    virtual QString localizedDescription() const = 0;

    const char *what() const noexcept override;

protected:
    RequestFailure() = default;
    RequestFailure(const RequestFailure &) = default;
    RequestFailure &operator=(const RequestFailure &) = default;

private:
    mutable QByteArray m_what;
};
