// SPDX-License-Identifier: MIT
#pragma once

#include "requestfailure.h"

// A reply body that does not decode into the record the endpoint promises: not JSON, or a
// required member missing, null or of another type.
class DecodingError final : public RequestFailure {
public:
    explicit DecodingError(QString message)
        : m_message(std::move(message))
    {
    }

    QString localizedDescription() const override { return m_message; }

private:
    QString m_message;
};
