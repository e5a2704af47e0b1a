// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"

#include <string>

struct ServiceContext;

// The pages behind a session's live_url and gallery_url: what the client watches during the
// shoot. The page polls the session's previews as JSON and shows each new one as it arrives.
class GalleryRoutes {
public:
    explicit GalleryRoutes(ServiceContext &context);
    void install(httplib::Server &server);

private:
    void page(const httplib::Request &request, httplib::Response &response) const;
    void previews(const httplib::Request &request, httplib::Response &response) const;

    ServiceContext &m_context;
    std::string m_page;
};
