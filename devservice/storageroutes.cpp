// SPDX-License-Identifier: MIT
#include "storageroutes.h"

#include "formupload.h"
#include "httpreplies.h"
#include "presignedpost.h"
#include "servicecontext.h"
#include "servicestate.h"

#include <QDateTime>
#include <cctype>
#include <fstream>
#include <httplib.h>
#include <memory>
#include <vector>

namespace {

std::string contentTypeForKey(const std::string &key) {
    std::string extension = key.substr(key.find_last_of('.') + 1);
    for (char &c : extension)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (extension == "jpg" || extension == "jpeg")
        return "image/jpeg";
    if (extension == "png")
        return "image/png";
    return "application/octet-stream";
}

} // namespace

void replyWithFile(httplib::Response &response, const std::filesystem::path &file,
                   std::uint64_t size, const std::string &contentType) {
    auto stream = std::make_shared<std::ifstream>(file, std::ios::binary);
    if (!*stream)
        return HttpReplies::problem(response, 500, "the stored file can't be read");
    response.status = 200;
    response.set_content_provider(
        size, contentType,
        [stream](std::size_t offset, std::size_t length, httplib::DataSink &sink) {
            std::vector<char> buffer(std::min<std::size_t>(length, 1 << 20));
            stream->seekg(static_cast<std::streamoff>(offset));
            stream->read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
            const std::streamsize got = stream->gcount();
            return got > 0 && sink.write(buffer.data(), static_cast<std::size_t>(got));
        });
}

StorageRoutes::StorageRoutes(ServiceContext &context)
    : m_context(context)
    , m_gate(context) {}

void StorageRoutes::install(httplib::Server &server) {
    server.Post(
        "/storage/upload",
        [this](const httplib::Request &request, httplib::Response &response,
               const httplib::ContentReader &reader) { upload(request, response, reader); });
    server.Get("/" + std::string(PresignedPost::bucket) + "/(.+)",
               [this](const httplib::Request &request, httplib::Response &response) {
                   object(request, response);
               });
}

void StorageRoutes::upload(const httplib::Request &request, httplib::Response &response,
                           const httplib::ContentReader &reader) {
    // The policy's expiration is judged at the moment the request came in, before a fault's
    // delay and however long its body takes.
    const QDateTime arrivedAt = QDateTime::currentDateTimeUtc();
    ReceivedRequest received = ReceivedRequest::from(request);
    const std::optional<Fault> fault = m_gate.nextFault(Endpoint::upload);
    if (fault && fault->kind == Fault::Kind::drop) {
        m_gate.record(Endpoint::upload, std::move(received));
        m_gate.answeredByFault(fault, request, response);
        return;
    }

    const std::string contentType = request.get_header_value("Content-Type");
    // httplib gives a multipart body only to its own forgiving parser and keeps none of the
    // raw bytes, while this store must judge, and remember, exactly what came over the wire.
    // Without the header it hands over the body as it is.
    const_cast<httplib::Request &>(request).headers.erase("Content-Type");

    FormUpload upload(m_context.state, MultipartReader::boundaryOf(contentType), arrivedAt);
    received.bodyFile = m_context.state.scratchFile("body");
    std::ofstream raw(received.bodyFile, std::ios::binary | std::ios::trunc);
    const bool complete = reader([&](const char *data, std::size_t length) {
        raw.write(data, static_cast<std::streamsize>(length));
        received.bodySize += length;
        upload.feed(std::string_view(data, length));
        return true;
    });
    raw.close();
    m_gate.record(Endpoint::upload, std::move(received));
    m_gate.holdIfAsked(fault);

    if (!complete)
        return HttpReplies::storageError(response, 400, "IncompleteBody",
                                         "the request body ended early");
    if (m_gate.answeredByFault(fault, request, response))
        return;
    if (const std::optional<StorageRefusal> refusal = upload.finish())
        return HttpReplies::storageError(response, refusal->code == "InternalError" ? 500 : 403,
                                         refusal->code, refusal->message);
    response.status = 204;
    // A reply with a body to cut short: what S3 sends when asked for 201 instead of 204.
    CallGate::loseReply(fault, request, 201,
                        "<PostResponse><Bucket>" + std::string(PresignedPost::bucket) +
                            "</Bucket></PostResponse>",
                        "application/xml");
}

void StorageRoutes::object(const httplib::Request &request, httplib::Response &response) const {
    const std::string key = request.matches[1];
    const std::optional<StoredObject> stored = m_context.state.object(key);
    if (!stored)
        return HttpReplies::storageError(response, 404, "NoSuchKey",
                                         "No object is stored under this key.");
    replyWithFile(response, stored->file, stored->size, contentTypeForKey(key));
}
