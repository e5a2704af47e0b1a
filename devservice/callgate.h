// SPDX-License-Identifier: MIT
#pragma once

#include "endpoint.h"
#include "faultplan.h"
#include "httplibfwd.h"
#include "requestlog.h"

#include <QJsonObject>
#include <optional>
#include <string_view>

struct ServiceContext;

// What every call of a service endpoint goes through: it is recorded, it may meet a planned
// fault, and all but sign-in must carry a token the service issued.
class CallGate {
public:
    explicit CallGate(ServiceContext &context);

    // Takes the endpoint's next fault, if any, and waits out its delay.
    std::optional<Fault> nextFault(Endpoint endpoint);
    // Plays a fault that answers instead of the endpoint (a status, a dropped connection);
    // true when it did, and the endpoint must do nothing more.
    bool answeredByFault(const std::optional<Fault> &fault, const httplib::Request &request,
                         httplib::Response &response) const;
    void record(Endpoint endpoint, ReceivedRequest request);
    // A call that meets a hold waits here, after it has been recorded, until it is released.
    void holdIfAsked(const std::optional<Fault> &fault);

    // The three steps above for a call whose body httplib has already read. False when the
    // call is answered.
    bool admit(Endpoint endpoint, const httplib::Request &request, httplib::Response &response,
               std::optional<Fault> &fault);

    // Answers 401 unless the request carries "Authorization: Bearer <issued token>".
    bool authorised(const httplib::Request &request, httplib::Response &response) const;

    // A reply as the endpoint made it, broken first if the fault says so.
    static void reply(const std::optional<Fault> &fault, const httplib::Request &request,
                      httplib::Response &response, int status, const QJsonObject &body);
    // For a call whose work is done and whose reply is `status` with `body`: plays a fault that
    // takes the reply away (the connection closed, reset, answered with bytes that aren't HTTP,
    // or closed halfway through the body). True when it did.
    static bool loseReply(const std::optional<Fault> &fault, const httplib::Request &request,
                          int status, std::string_view body, std::string_view contentType);

private:
    ServiceContext &m_context;
};
