// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"

struct ServiceContext;

// The admin API's /__admin/outage: starts an outage of the service and its store, tells how
// it goes, and ends it. README.md describes the calls.
class OutageRoutes {
public:
    explicit OutageRoutes(ServiceContext &context);
    void install(httplib::Server &server);

private:
    void begin(const httplib::Request &request, httplib::Response &response);
    void status(httplib::Response &response) const;

    ServiceContext &m_context;
};
