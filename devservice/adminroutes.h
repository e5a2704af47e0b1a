// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"
#include "outageroutes.h"

struct ServiceContext;

// The test-only API under /__admin/: reset, what each endpoint received, stored objects,
// sessions and their files, the next folder id, the presign lifetime, planned faults, outages,
// and what reached the other origin. No token needed. README.md describes every call.
class AdminRoutes {
public:
    explicit AdminRoutes(ServiceContext &context);
    void install(httplib::Server &server);

private:
    void reset(httplib::Response &response);
    void requests(const httplib::Request &request, httplib::Response &response) const;
    void requestBody(const httplib::Request &request, httplib::Response &response) const;
    void object(const httplib::Request &request, httplib::Response &response) const;
    void sessions(httplib::Response &response) const;
    void removeSession(const httplib::Request &request, httplib::Response &response);
    void setNextFolderId(const httplib::Request &request, httplib::Response &response);
    void setPresignLifetime(const httplib::Request &request, httplib::Response &response);
    void addFault(const httplib::Request &request, httplib::Response &response);
    void listFaults(httplib::Response &response) const;
    void otherOrigin(httplib::Response &response) const;

    ServiceContext &m_context;
    OutageRoutes m_outage;
};
