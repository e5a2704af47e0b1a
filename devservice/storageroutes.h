// SPDX-License-Identifier: MIT
#pragma once

#include "callgate.h"
#include "httplibfwd.h"

struct ServiceContext;

// The object store: presigned form uploads in, stored objects out at their path-style public
// address (/<bucket>/<key>), which is also where the live gallery finds its previews.
class StorageRoutes {
public:
    explicit StorageRoutes(ServiceContext &context);
    void install(httplib::Server &server);

private:
    void upload(const httplib::Request &request, httplib::Response &response,
                const httplib::ContentReader &reader);
    void object(const httplib::Request &request, httplib::Response &response) const;

    ServiceContext &m_context;
    CallGate m_gate;
};

// Serves a stored file as the reply body without loading it into memory.
void replyWithFile(httplib::Response &response, const std::filesystem::path &file,
                   std::uint64_t size, const std::string &contentType);
