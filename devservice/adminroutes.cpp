// SPDX-License-Identifier: MIT
#include "adminroutes.h"

#include "faultplan.h"
#include "httpreplies.h"
#include "jsonchecks.h"
#include "options.h"
#include "outage.h"
#include "requestlog.h"
#include "servicecontext.h"
#include "servicestate.h"
#include "storageroutes.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <httplib.h>

using HttpReplies::text;
using HttpReplies::utf8;

namespace {

// Bodies up to this size come inline in the listing; bigger ones (a 100 MB upload) only by
// their own address, so that a listing stays cheap.
constexpr std::uint64_t largestInlineBody = 1024 * 1024;

QJsonArray pairs(const NameValueList &items) {
    QJsonArray array;
    for (const auto &[name, value] : items)
        array.append(QJsonArray{text(name), text(value)});
    return array;
}

QJsonObject describe(const ReceivedRequest &request, std::size_t index) {
    QJsonValue body = QJsonValue::Null;
    if (request.bodySize <= largestInlineBody) {
        if (const std::optional<std::string> bytes = request.readBody())
            body = QString::fromLatin1(QByteArray::fromStdString(*bytes).toBase64());
    }
    return QJsonObject{
        {"index", static_cast<qint64>(index)},
        {"method", text(request.method)},
        {"path", text(request.path)},
        {"raw_query", text(request.rawQuery)},
        {"query", pairs(request.query)},
        {"headers", pairs(request.headers)},
        {"body_size", static_cast<qint64>(request.bodySize)},
        {"body", body},
        {"received_at", text(request.receivedAt)},
    };
}

QJsonObject describe(Endpoint endpoint, const Fault &fault) {
    return QJsonObject{
        {"endpoint", text(endpointName(endpoint))},
        {"kind", text(Fault::kindName(fault.kind))},
        {"remaining", fault.remaining},
        {"status", fault.status},
        {"body", text(fault.body)},
        {"delay_ms", static_cast<qint64>(fault.delay.count())},
        {"member", text(fault.member)},
        {"location", text(fault.location)},
        {"retry_after", text(fault.retryAfter)},
    };
}

std::optional<QJsonObject> objectBody(const httplib::Request &request,
                                      httplib::Response &response) {
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(request.body));
    if (!document.isObject()) {
        HttpReplies::problem(response, 400, "the body must be a JSON object");
        return std::nullopt;
    }
    return document.object();
}

// An integer member, given as a JSON integer or as a decimal string (for values beyond 2^53,
// which some JSON writers can't give as numbers).
std::optional<qint64> integerMember(const QJsonObject &object, const QString &name) {
    const QJsonValue value = object.value(name);
    if (value.isString()) {
        bool ok = false;
        const qint64 number = value.toString().toLongLong(&ok);
        return ok ? std::optional(number) : std::nullopt;
    }
    if (value.isDouble() && value.toVariant().typeId() == QMetaType::LongLong)
        return value.toInteger();
    return std::nullopt;
}

} // namespace

AdminRoutes::AdminRoutes(ServiceContext &context)
    : m_context(context)
    , m_outage(context) {}

void AdminRoutes::install(httplib::Server &server) {
    using Request = httplib::Request;
    using Response = httplib::Response;
    server.Post("/__admin/reset", [this](const Request &, Response &res) { reset(res); });
    server.Get("/__admin/requests/([A-Za-z]+)",
               [this](const Request &req, Response &res) { requests(req, res); });
    server.Get(R"(/__admin/requests/([A-Za-z]+)/(\d{1,9})/body)",
               [this](const Request &req, Response &res) { requestBody(req, res); });
    server.Get("/__admin/objects", [this](const Request &req, Response &res) { object(req, res); });
    server.Get("/__admin/sessions", [this](const Request &, Response &res) { sessions(res); });
    server.Delete(R"(/__admin/sessions/(-?\d{1,19}))",
                  [this](const Request &req, Response &res) { removeSession(req, res); });
    server.Post("/__admin/next-folder-id",
                [this](const Request &req, Response &res) { setNextFolderId(req, res); });
    server.Post("/__admin/presign-lifetime",
                [this](const Request &req, Response &res) { setPresignLifetime(req, res); });
    server.Post("/__admin/faults",
                [this](const Request &req, Response &res) { addFault(req, res); });
    server.Get("/__admin/faults", [this](const Request &, Response &res) { listFaults(res); });
    server.Get("/__admin/other-origin",
               [this](const Request &, Response &res) { otherOrigin(res); });
    server.Post("/__admin/release", [this](const Request &, Response &res) {
        m_context.faults.releaseHeld();
        HttpReplies::json(res, 200, QJsonObject{{"released", true}});
    });
    server.Delete("/__admin/faults", [this](const Request &, Response &res) {
        m_context.faults.clear();
        listFaults(res);
    });
    m_outage.install(server);
}

void AdminRoutes::reset(httplib::Response &response) {
    m_context.state.reset();
    m_context.log.clear();
    m_context.faults.clear();
    m_context.outage.reset();
    HttpReplies::json(response, 200, QJsonObject{{"reset", true}});
}

void AdminRoutes::requests(const httplib::Request &request, httplib::Response &response) const {
    const std::optional<Endpoint> endpoint = endpointNamed(request.matches[1].str());
    if (!endpoint)
        return HttpReplies::problem(response, 404, "no endpoint " + request.matches[1].str());
    QJsonArray list;
    const std::vector<ReceivedRequest> received = m_context.log.list(*endpoint);
    for (std::size_t i = 0; i < received.size(); ++i)
        list.append(describe(received[i], i));
    HttpReplies::json(response, 200,
                      QJsonObject{{"endpoint", text(endpointName(*endpoint))}, {"requests", list}});
}

void AdminRoutes::requestBody(const httplib::Request &request, httplib::Response &response) const {
    const std::optional<Endpoint> endpoint = endpointNamed(request.matches[1].str());
    const std::optional<ReceivedRequest> received =
        endpoint ? m_context.log.at(*endpoint, std::stoul(request.matches[2].str())) : std::nullopt;
    if (!received)
        return HttpReplies::problem(response, 404, "no such request");
    if (!received->bodyFile.empty())
        return replyWithFile(response, received->bodyFile, received->bodySize,
                             "application/octet-stream");
    response.set_content(received->body, "application/octet-stream");
}

void AdminRoutes::object(const httplib::Request &request, httplib::Response &response) const {
    std::optional<std::string> key;
    for (const auto &[name, value] : decodeQuery(rawQueryOf(request))) {
        if (name == "key")
            key = value;
    }
    const std::optional<StoredObject> stored =
        key ? m_context.state.object(*key) : std::optional<StoredObject>();
    if (!stored)
        return HttpReplies::problem(response, 404, "no object under that key");
    replyWithFile(response, stored->file, stored->size, "application/octet-stream");
}

void AdminRoutes::sessions(httplib::Response &response) const {
    QJsonArray list;
    for (const LiveSessionRecord &session : m_context.state.sessions()) {
        QJsonArray files;
        for (const RegisteredFile &file : session.files) {
            files.append(QJsonObject{{"url", text(file.url)},
                                     {"key", text(file.key)},
                                     {"bucket", text(file.bucket)},
                                     {"created_at", text(file.createdAt)},
                                     {"registered_at", text(file.registeredAt)}});
        }
        list.append(QJsonObject{{"folder_id", session.folderId},
                                {"slug", text(session.slug)},
                                {"name", text(session.name)},
                                {"ended", session.ended},
                                {"files", files}});
    }
    HttpReplies::json(response, 200, QJsonObject{{"sessions", list}});
}

void AdminRoutes::removeSession(const httplib::Request &request, httplib::Response &response) {
    bool parsed = false;
    const qint64 folderId = QByteArray::fromStdString(request.matches[1].str()).toLongLong(&parsed);
    if (!parsed || !m_context.state.removeSession(folderId))
        return HttpReplies::problem(response, 404, "no such folder");
    HttpReplies::json(response, 200, QJsonObject{{"folder_id", folderId}, {"removed", true}});
}

void AdminRoutes::setNextFolderId(const httplib::Request &request, httplib::Response &response) {
    const std::optional<QJsonObject> body = objectBody(request, response);
    if (!body)
        return;
    const std::optional<qint64> folderId = integerMember(*body, "folder_id");
    if (!folderId)
        return HttpReplies::problem(response, 400, "folder_id must be a 64-bit integer");
    m_context.state.setNextFolderId(*folderId);
    HttpReplies::json(response, 200, QJsonObject{{"next_folder_id", *folderId}});
}

void AdminRoutes::setPresignLifetime(const httplib::Request &request, httplib::Response &response) {
    const std::optional<QJsonObject> body = objectBody(request, response);
    if (!body)
        return;
    const std::optional<qint64> ms = JsonChecks::wholeNumber(body->value("ms"));
    if (!JsonChecks::hasExactlyMembers(*body, {"ms"}) || !ms || *ms < 0 ||
        *ms > Options::longestPresignLifetime.count())
        return HttpReplies::problem(response, 400,
                                    "the body must be {\"ms\": 0 to " +
                                        std::to_string(Options::longestPresignLifetime.count()) +
                                        "}");
    m_context.state.setPresignLifetime(std::chrono::milliseconds(*ms));
    HttpReplies::json(response, 200, QJsonObject{{"ms", *ms}});
}

void AdminRoutes::addFault(const httplib::Request &request, httplib::Response &response) {
    const std::optional<QJsonObject> body = objectBody(request, response);
    if (!body)
        return;
    const std::optional<Endpoint> endpoint =
        endpointNamed(utf8(body->value("endpoint").toString()));
    const std::optional<Fault::Kind> kind = Fault::kindNamed(utf8(body->value("kind").toString()));
    if (!endpoint || !kind)
        return HttpReplies::problem(response, 400, "endpoint and kind must be known names");
    Fault fault;
    fault.kind = *kind;
    fault.remaining = body->value("count").toInt(1);
    fault.status = body->value("status").toInt(500);
    fault.body = utf8(body->value("body").toString());
    fault.delay = std::chrono::milliseconds(body->value("delay_ms").toInteger(0));
    fault.member = utf8(body->value("member").toString());
    fault.location = utf8(body->value("location").toString());
    fault.retryAfter = utf8(body->value("retry_after").toString());
    if (const std::optional<std::string> problem = m_context.faults.add(*endpoint, fault))
        return HttpReplies::problem(response, 400, *problem);
    listFaults(response);
    response.status = 201;
}

void AdminRoutes::otherOrigin(httplib::Response &response) const {
    QJsonArray list;
    const std::vector<ReceivedRequest> received = m_context.log.listAtOtherOrigin();
    for (std::size_t i = 0; i < received.size(); ++i)
        list.append(describe(received[i], i));
    HttpReplies::json(response, 200,
                      QJsonObject{{"origin", text(m_context.otherOrigin)}, {"requests", list}});
}

void AdminRoutes::listFaults(httplib::Response &response) const {
    QJsonArray list;
    for (const auto &[endpoint, fault] : m_context.faults.pending())
        list.append(describe(endpoint, fault));
    HttpReplies::json(response, 200, QJsonObject{{"faults", list}});
}
