// SPDX-License-Identifier: MIT
#include "serviceroutes.h"

#include "democredentials.h"
#include "httpreplies.h"
#include "jsonrequest.h"
#include "presignedpost.h"
#include "servicecontext.h"
#include "servicestate.h"

#include <QDateTime>
#include <charconv>
#include <httplib.h>

using HttpReplies::text;
using HttpReplies::utf8;

namespace {

// Whole seconds in UTC with a "Z", exactly: 2026-03-14T09:26:53Z.
bool isInternetDateTime(const QString &value) {
    static const QString shape = "dddd-dd-ddTdd:dd:ddZ";
    if (value.size() != shape.size())
        return false;
    for (qsizetype i = 0; i < shape.size(); ++i) {
        const bool digitWanted = shape[i] == 'd';
        if (digitWanted ? !value[i].isDigit() || value[i].unicode() > '9' : value[i] != shape[i])
            return false;
    }
    return QDateTime::fromString(value, Qt::ISODate).isValid();
}

std::string registrationProblem(ServiceState::Registration outcome) {
    switch (outcome) {
    case ServiceState::Registration::notGranted:
        return "no upload of this key was authorised for this folder";
    case ServiceState::Registration::notStored:
        return "the object store has no object under this key";
    case ServiceState::Registration::wrongBucket:
        return "the bucket is not the one the upload was authorised for";
    case ServiceState::Registration::alreadyRegistered:
        return "this key is already registered";
    case ServiceState::Registration::registered:
    case ServiceState::Registration::unknownFolder:
        break;
    }
    return "refused";
}

} // namespace

std::optional<qint64> folderIdIn(const std::string &digits) {
    qint64 folderId = 0;
    const char *end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, folderId);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return folderId;
}

ServiceRoutes::ServiceRoutes(ServiceContext &context)
    : m_context(context)
    , m_gate(context) {}

void ServiceRoutes::install(httplib::Server &server) {
    using Member = void (ServiceRoutes::*)(const httplib::Request &, httplib::Response &);
    const auto route = [this](Member handler) {
        return httplib::Server::Handler(
            [this, handler](const httplib::Request &request, httplib::Response &response) {
                (this->*handler)(request, response);
            });
    };
    server.Post("/api/live/sessions/authenticate", route(&ServiceRoutes::authenticate));
    server.Post("/api/live/sessions", route(&ServiceRoutes::createSession));
    server.Delete("/api/live/sessions/(.+)", route(&ServiceRoutes::endSession));
    server.Get(R"(/(-?\d{1,20})/source_files/presign\.json)", route(&ServiceRoutes::presign));
    server.Post(R"(/(-?\d{1,20})/source_files\.json)", route(&ServiceRoutes::registerFile));
}

std::optional<QJsonObject> ServiceRoutes::admitJson(Endpoint endpoint,
                                                    const httplib::Request &request,
                                                    httplib::Response &response,
                                                    std::optional<Fault> &fault) {
    if (!m_gate.admit(endpoint, request, response, fault))
        return std::nullopt;
    if (endpoint != Endpoint::authenticate && !m_gate.authorised(request, response))
        return std::nullopt;
    auto body = JsonRequest::objectBody(request);
    if (!body) {
        HttpReplies::problem(response, body.error().status, body.error().message);
        return std::nullopt;
    }
    return std::move(*body);
}

void ServiceRoutes::authenticate(const httplib::Request &request, httplib::Response &response) {
    std::optional<Fault> fault;
    const auto body = admitJson(Endpoint::authenticate, request, response, fault);
    if (!body)
        return;
    if (auto refusal = JsonRequest::exactStringMembers(*body, {"email", "password"}))
        return HttpReplies::problem(response, refusal->status, refusal->message);
    if (body->value("email").toString() != QLatin1String(DemoCredentials::email) ||
        body->value("password").toString() != QLatin1String(DemoCredentials::password))
        return HttpReplies::problem(response, 401, "wrong e-mail or password");
    CallGate::reply(fault, request, response, 200,
                    QJsonObject{{"token", text(m_context.state.issueToken())}});
}

void ServiceRoutes::createSession(const httplib::Request &request, httplib::Response &response) {
    std::optional<Fault> fault;
    const auto body = admitJson(Endpoint::createSession, request, response, fault);
    if (!body)
        return;
    if (auto refusal = JsonRequest::exactStringMembers(*body, {"name"}))
        return HttpReplies::problem(response, refusal->status, refusal->message);
    const QString name = body->value("name").toString();
    if (name.isEmpty())
        return HttpReplies::problem(response, 422, "a session needs the client's name");

    const LiveSessionRecord session = m_context.state.openSession(utf8(name));
    CallGate::reply(fault, request, response, 201,
                    QJsonObject{
                        {"folder_id", session.folderId},
                        {"slug", text(session.slug)},
                        {"live_url", text(m_context.origin + "/live/" + session.slug)},
                        {"gallery_url", text(m_context.origin + "/gallery/" + session.slug)},
                    });
}

void ServiceRoutes::endSession(const httplib::Request &request, httplib::Response &response) {
    std::optional<Fault> fault;
    if (!m_gate.admit(Endpoint::endSession, request, response, fault) ||
        !m_gate.authorised(request, response))
        return;
    const std::string slug = request.matches[1];
    if (!m_context.state.endSession(slug))
        return HttpReplies::problem(response, 404, "no live session " + slug);
    CallGate::reply(fault, request, response, 200, QJsonObject{{"slug", text(slug)}, {"ended", true}});
}

void ServiceRoutes::presign(const httplib::Request &request, httplib::Response &response) {
    std::optional<Fault> fault;
    if (!m_gate.admit(Endpoint::presign, request, response, fault) ||
        !m_gate.authorised(request, response))
        return;
    const std::optional<qint64> folderId = folderIdIn(request.matches[1]);
    if (!folderId || !m_context.state.hasFolder(*folderId))
        return HttpReplies::problem(response, 404, "no such folder");

    const NameValueList query = decodeQuery(rawQueryOf(request));
    const auto onlyValueOf = [&](std::string_view name) -> std::optional<std::string> {
        std::optional<std::string> value;
        for (const auto &[itemName, itemValue] : query) {
            if (itemName != name)
                continue;
            if (value)
                return std::nullopt;
            value = itemValue;
        }
        return value;
    };
    const std::optional<std::string> filename = onlyValueOf("filename");
    const std::optional<std::string> contentType = onlyValueOf("content_type");
    if (query.size() != 2 || !filename || !contentType || filename->empty() || contentType->empty())
        return HttpReplies::problem(
            response, 422,
            "the query must be exactly filename and content_type, neither of them empty");

    const std::optional<UploadGrant> grant =
        m_context.state.grantUpload(*folderId, *filename, *contentType);
    if (!grant) // reset meanwhile
        return HttpReplies::problem(response, 404, "no such folder");

    QJsonObject fields;
    for (const auto &[name, value] : grant->fields)
        fields.insert(text(name), text(value));
    const bool elsewhere = fault && fault->kind == Fault::Kind::uploadElsewhere;
    CallGate::reply(fault, request, response, 200,
                    QJsonObject{
                        {"method", elsewhere ? "PUT" : "POST"},
                        {"url", text((elsewhere ? m_context.otherOrigin : m_context.origin) +
                                     "/storage/upload")},
                        {"fields", fields},
                        {"key", text(grant->key)},
                        {"bucket", text(PresignedPost::bucket)},
                        {"host", text(m_context.publicHost)},
                    });
}

void ServiceRoutes::registerFile(const httplib::Request &request, httplib::Response &response) {
    std::optional<Fault> fault;
    const auto body = admitJson(Endpoint::registerFile, request, response, fault);
    if (!body)
        return;
    if (body->size() != 1 || !body->value("source_file").isObject())
        return HttpReplies::problem(response, 422, "body must be exactly {\"source_file\": {...}}");
    const QJsonObject sourceFile = body->value("source_file").toObject();
    if (auto refusal = JsonRequest::exactStringMembers(
            sourceFile, {"url", "key", "bucket", "created_at"}, "source_file"))
        return HttpReplies::problem(response, refusal->status, refusal->message);
    if (!isInternetDateTime(sourceFile.value("created_at").toString()))
        return HttpReplies::problem(response, 422,
                                    "created_at must look like 2026-03-14T09:26:53Z");

    RegisteredFile file{utf8(sourceFile.value("url").toString()),
                        utf8(sourceFile.value("key").toString()),
                        utf8(sourceFile.value("bucket").toString()),
                        utf8(sourceFile.value("created_at").toString()),
                        {}};
    const std::optional<qint64> folderId = folderIdIn(request.matches[1]);
    const ServiceState::Registration outcome = folderId
                                                   ? m_context.state.registerFile(*folderId, file)
                                                   : ServiceState::Registration::unknownFolder;
    if (outcome == ServiceState::Registration::unknownFolder)
        return HttpReplies::problem(response, 404, "no such folder");
    if (outcome != ServiceState::Registration::registered)
        return HttpReplies::problem(response, 422, registrationProblem(outcome));
    CallGate::reply(fault, request, response, 201, QJsonObject{{"source_file", sourceFile}});
}
