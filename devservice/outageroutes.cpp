// SPDX-License-Identifier: MIT
#include "outageroutes.h"

#include "httpreplies.h"
#include "jsonchecks.h"
#include "outage.h"
#include "servicecontext.h"

#include <QJsonDocument>
#include <httplib.h>

namespace {

// A day: longer than any test runs, and far from overflowing a clock.
constexpr qint64 longestOutageMs = 24LL * 3600 * 1000;

} // namespace

OutageRoutes::OutageRoutes(ServiceContext &context)
    : m_context(context) {}

void OutageRoutes::install(httplib::Server &server) {
    using Request = httplib::Request;
    using Response = httplib::Response;
    server.Post("/__admin/outage", [this](const Request &req, Response &res) { begin(req, res); });
    server.Get("/__admin/outage", [this](const Request &, Response &res) { status(res); });
    server.Delete("/__admin/outage", [this](const Request &, Response &res) {
        m_context.outage.end();
        status(res);
    });
}

void OutageRoutes::begin(const httplib::Request &request, httplib::Response &response) {
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(request.body));
    const QJsonObject body = document.object();
    const std::optional<Outage::Mode> mode =
        Outage::modeNamed(HttpReplies::utf8(body.value("mode").toString()));
    const std::optional<qint64> duration = JsonChecks::wholeNumber(body.value("duration_ms"));
    if (!document.isObject() || !JsonChecks::hasExactlyMembers(body, {"mode", "duration_ms"}) ||
        !mode || !duration || *duration < 0 || *duration > longestOutageMs)
        return HttpReplies::problem(response, 400,
                                    "an outage is {\"mode\": \"refuse\" or \"hang\", "
                                    "\"duration_ms\": 0 to " +
                                        std::to_string(longestOutageMs) + "}");
    m_context.outage.begin(*mode, std::chrono::milliseconds(*duration));
    HttpReplies::json(response, 201,
                      QJsonObject{{"mode", HttpReplies::text(Outage::modeName(*mode))},
                                  {"duration_ms", *duration}});
}

void OutageRoutes::status(httplib::Response &response) const {
    const Outage::Status status = m_context.outage.status();
    HttpReplies::json(
        response, 200,
        QJsonObject{{"active", status.active},
                    {"mode", status.active ? HttpReplies::text(Outage::modeName(status.mode))
                                           : QStringLiteral("none")},
                    {"remaining_ms", static_cast<qint64>(status.remaining.count())},
                    {"refused", static_cast<qint64>(status.refused)},
                    {"hung", static_cast<qint64>(status.hung)}});
}
