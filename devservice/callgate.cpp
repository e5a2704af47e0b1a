// SPDX-License-Identifier: MIT
#include "callgate.h"

#include "connectiondrop.h"
#include "httpreplies.h"
#include "servicecontext.h"
#include "servicestate.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <httplib.h>

namespace {

// A value of any JSON type but the one given, so that a strict decoder must refuse it.
QJsonValue ofAnotherType(const QJsonValue &value) {
    if (value.isString())
        return 12345;
    if (value.isDouble())
        return QString::number(value.toInteger());
    return QStringLiteral("not a %1").arg(value.isObject() ? "JSON object" : "string");
}

void breakMember(QJsonObject &reply, const QString &member, Fault::Kind kind) {
    const qsizetype dot = member.indexOf('.');
    if (dot >= 0) {
        QJsonObject inner = reply.value(member.left(dot)).toObject();
        breakMember(inner, member.mid(dot + 1), kind);
        reply.insert(member.left(dot), inner);
        return;
    }
    if (kind == Fault::Kind::missingMember)
        reply.remove(member);
    else
        reply.insert(member, ofAnotherType(reply.value(member)));
}

QByteArray brokenReply(const Fault &fault, QJsonObject reply) {
    switch (fault.kind) {
    case Fault::Kind::malformedJson: {
        // Cut short, the way a reply that lost its end on the way looks.
        QByteArray text = QJsonDocument(reply).toJson(QJsonDocument::Compact);
        text.chop(1);
        return text;
    }
    case Fault::Kind::wrongType:
    case Fault::Kind::missingMember:
        breakMember(reply, HttpReplies::text(fault.member), fault.kind);
        break;
    case Fault::Kind::hostAbsent:
        reply.remove("host");
        break;
    case Fault::Kind::hostNull:
        reply.insert("host", QJsonValue::Null);
        break;
    case Fault::Kind::hostEmpty:
        reply.insert("host", "");
        break;
    case Fault::Kind::extraMember:
        // Of every JSON type at once, so that nothing about it may trouble a decoder.
        reply.insert(HttpReplies::text(fault.member),
                     QJsonObject{{"number", 1.5},
                                 {"text", "more"},
                                 {"list", QJsonArray{true, QJsonValue::Null, 7}},
                                 {"object", QJsonObject{}}});
        break;
    case Fault::Kind::status:
    case Fault::Kind::delay:
    case Fault::Kind::drop:
    case Fault::Kind::redirect:
    case Fault::Kind::uploadElsewhere:
    case Fault::Kind::closeAfterWork:
    case Fault::Kind::resetAfterWork:
    case Fault::Kind::notHttp:
    case Fault::Kind::cutShort:
    case Fault::Kind::hold:
        break;
    }
    return QJsonDocument(reply).toJson(QJsonDocument::Compact);
}

} // namespace

CallGate::CallGate(ServiceContext &context)
    : m_context(context) {}

std::optional<Fault> CallGate::nextFault(Endpoint endpoint) {
    std::optional<Fault> fault = m_context.faults.take(endpoint);
    if (fault && fault->delay.count() > 0)
        m_context.faults.wait(fault->delay);
    return fault;
}

bool CallGate::answeredByFault(const std::optional<Fault> &fault, const httplib::Request &request,
                               httplib::Response &response) const {
    if (!fault)
        return false;
    if (fault->kind == Fault::Kind::drop) {
        if (!dropConnection(request))
            HttpReplies::problem(response, 500, "devservice could not find the connection to drop");
        return true;
    }
    if (fault->kind == Fault::Kind::status) {
        response.status = fault->status;
        if (!fault->retryAfter.empty())
            response.set_header("Retry-After", fault->retryAfter);
        // These statuses have no body by definition; a client reads none, and bytes sent after
        // them would be taken for the start of the next reply on the connection.
        if (fault->status == 204 || fault->status == 304 || fault->status < 200)
            return true;
        const bool json =
            QJsonDocument::fromJson(QByteArray::fromStdString(fault->body)).isObject();
        const bool xml = fault->body.starts_with('<');
        response.set_content(fault->body, json  ? "application/json"
                                          : xml ? "application/xml"
                                                : "text/plain");
        return true;
    }
    if (fault->kind == Fault::Kind::redirect) {
        response.status = fault->status;
        response.set_header("Location", fault->location.empty()
                                            ? m_context.otherOrigin + request.target
                                            : fault->location);
        return true;
    }
    return false;
}

void CallGate::record(Endpoint endpoint, ReceivedRequest request) {
    m_context.log.add(endpoint, std::move(request));
}

void CallGate::holdIfAsked(const std::optional<Fault> &fault) {
    if (fault && fault->kind == Fault::Kind::hold)
        m_context.faults.holdUntilReleased();
}

bool CallGate::admit(Endpoint endpoint, const httplib::Request &request,
                     httplib::Response &response, std::optional<Fault> &fault) {
    ReceivedRequest received = ReceivedRequest::from(request);
    received.body = request.body;
    received.bodySize = request.body.size();
    record(endpoint, std::move(received));
    fault = nextFault(endpoint);
    holdIfAsked(fault);
    return !answeredByFault(fault, request, response);
}

bool CallGate::authorised(const httplib::Request &request, httplib::Response &response) const {
    static const std::string scheme = "Bearer ";
    if (request.get_header_value_count("Authorization") == 1) {
        const std::string value = request.get_header_value("Authorization");
        if (value.starts_with(scheme) && m_context.state.knowsToken(value.substr(scheme.size())))
            return true;
    }
    response.set_header("WWW-Authenticate", "Bearer");
    HttpReplies::problem(response, 401, "a valid bearer token is required");
    return false;
}

void CallGate::reply(const std::optional<Fault> &fault, const httplib::Request &request,
                     httplib::Response &response, int status, const QJsonObject &body) {
    const bool success = status >= 200 && status <= 299;
    if (!fault || !success) {
        HttpReplies::json(response, status, body);
        return;
    }
    response.status = status;
    const std::string content = brokenReply(*fault, body).toStdString();
    response.set_content(content, "application/json");
    loseReply(fault, request, status, content, "application/json");
}

bool CallGate::loseReply(const std::optional<Fault> &fault, const httplib::Request &request,
                         int status, std::string_view body, std::string_view contentType) {
    if (!fault)
        return false;
    // httplib goes on to write the reply it was given into a connection that is gone.
    switch (fault->kind) {
    case Fault::Kind::closeAfterWork:
        return dropConnection(request);
    case Fault::Kind::resetAfterWork:
        return resetConnection(request);
    case Fault::Kind::notHttp:
        return answerRawAndClose(request, "This is not an HTTP reply.\r\n");
    case Fault::Kind::cutShort: {
        // The headers promise the whole body; half of it comes.
        std::string reply = "HTTP/1.1 " + std::to_string(status) +
                            (status == 201 ? " Created" : " OK") + "\r\nContent-Type: " +
                            std::string(contentType) +
                            "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
        reply += body.substr(0, body.size() / 2);
        return answerRawAndClose(request, reply);
    }
    default:
        return false;
    }
}
