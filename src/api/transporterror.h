// SPDX-License-Identifier: MIT
#pragma once

#include "requestfailure.h"

#include <QNetworkReply>

// The HTTP client could not complete the exchange: no connection, a timeout, a TLS failure, a
// connection dropped mid-reply. Carries Qt's own code and text unchanged.
class TransportError final : public RequestFailure {
public:
    TransportError(QNetworkReply::NetworkError code, QString message)
        : m_code(code)
        , m_message(std::move(message))
    {
    }

    QNetworkReply::NetworkError code() const { return m_code; }
    QString localizedDescription() const override { return m_message; }

private:
    QNetworkReply::NetworkError m_code;
    QString m_message;
};
