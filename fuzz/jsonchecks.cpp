// SPDX-License-Identifier: MIT
// devservice's JSON request checks on arbitrary requests. The input's first line is the
// request's Content-Type, the rest its body. The verdict is checked against the rules written
// out again here: 415 unless declared as JSON, 400 unless JSON, 422 unless an object; and a
// member list is accepted exactly when the object has those members and no other, all strings.
#include "fuzzrules.h"
#include "jsonchecks.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace {

using FuzzRules::require;

void checkMembers(const QJsonObject &object, std::initializer_list<const char *> names) {
    const std::optional<Refusal> refusal = JsonChecks::exactStringMembers(object, names);
    bool exact = qsizetype(names.size()) == object.size();
    for (const char *name : names)
        exact = exact && object.value(QLatin1String(name)).isString();
    require(refusal.has_value() != exact, "members are accepted exactly");
    if (refusal)
        require(refusal->status == 422 && !refusal->message.empty(),
                "a refused member list is a 422 with a reason");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::optional<FuzzRules::Request> request = FuzzRules::request(data, size);
    if (!request)
        return 0;
    const std::string_view contentType = request->header;
    const std::string_view body = request->body;
    const auto verdict = JsonChecks::objectBody(contentType, body);

    const bool declared = contentType == "application/json" ||
                          contentType.starts_with("application/json;");
    QJsonParseError error;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray(body.data(), qsizetype(body.size())), &error);
    int expected = 0;
    if (!declared)
        expected = 415;
    else if (error.error != QJsonParseError::NoError)
        expected = 400;
    else if (!document.isObject())
        expected = 422;

    if (const Refusal *refusal = std::get_if<Refusal>(&verdict)) {
        require(refusal->status == expected && !refusal->message.empty(),
                "a refused body has the status its fault calls for");
        return 0;
    }
    require(expected == 0, "only a JSON object body is accepted");
    const QJsonObject &object = std::get<QJsonObject>(verdict);
    require(object == document.object(), "the accepted object is the body");
    checkMembers(object, {"email", "password"});
    checkMembers(object, {"name"});
    checkMembers(object, {"url", "key", "bucket", "created_at"});
    return 0;
}
