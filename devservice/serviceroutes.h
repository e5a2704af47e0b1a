// SPDX-License-Identifier: MIT
#pragma once

#include "callgate.h"
#include "httplibfwd.h"

#include <QJsonObject>
#include <QtGlobal>
#include <optional>
#include <string>

struct ServiceContext;

// The photo-selection service's JSON API: sign-in, opening and closing live sessions, upload
// authorisation and registration of uploaded files.
class ServiceRoutes {
public:
    explicit ServiceRoutes(ServiceContext &context);
    void install(httplib::Server &server);

private:
    // Admits the call (sign-in needs no token) and reads its JSON object body; nothing when the
    // call has been answered already.
    std::optional<QJsonObject> admitJson(Endpoint endpoint, const httplib::Request &request,
                                         httplib::Response &response, std::optional<Fault> &fault);
    void authenticate(const httplib::Request &request, httplib::Response &response);
    void createSession(const httplib::Request &request, httplib::Response &response);
    void endSession(const httplib::Request &request, httplib::Response &response);
    void presign(const httplib::Request &request, httplib::Response &response);
    void registerFile(const httplib::Request &request, httplib::Response &response);

    ServiceContext &m_context;
    CallGate m_gate;
};

// The folder id in a path, or nothing when it isn't a 64-bit integer (no such folder then).
std::optional<qint64> folderIdIn(const std::string &text);
