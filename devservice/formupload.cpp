// SPDX-License-Identifier: MIT
#include "formupload.h"

#include "presignedpost.h"

#include <algorithm>

namespace {

// Form fields are short texts; a longer one is an attack or a mistake, not a policy.
constexpr std::size_t longestField = 64 * 1024;

} // namespace

FormUpload::FormUpload(ServiceState &state, std::optional<std::string> boundary,
                       QDateTime arrivedAt)
    : m_state(state)
    , m_arrivedAt(std::move(arrivedAt))
    , m_reader(boundary.value_or(""),
               {[this](const MultipartReader::Part &part) { begin(part); },
                [this](std::string_view bytes) { content(bytes); }, [this] { end(); }}) {
    if (!boundary)
        refuse("PreconditionFailed",
               "Bucket POST must be of the enclosure-type multipart/form-data with a boundary");
}

FormUpload::~FormUpload() {
    if (!m_scratch.empty()) {
        m_file.close();
        std::error_code ignored;
        std::filesystem::remove(m_scratch, ignored);
    }
}

void FormUpload::feed(std::string_view chunk) {
    // Once refused, the rest of the body only needs to be read, not understood.
    if (!m_refusal)
        m_reader.feed(chunk);
}

std::optional<StorageRefusal> FormUpload::finish() {
    m_reader.finish();
    if (m_reader.error())
        refuse("MalformedPOSTRequest",
               "The body of your POST request is not well-formed multipart/form-data: " +
                   *m_reader.error());
    if (!m_fileSeen)
        refuse("InvalidArgument", "POST requires exactly one file upload per request, as the "
                                  "form field named \"file\"");
    if (m_refusal)
        return m_refusal;

    m_file.close();
    if (!m_file || !m_state.storeObject(m_grant->key, m_scratch))
        return StorageRefusal{"InternalError", "the object could not be written to disk"};
    m_scratch.clear();
    return std::nullopt;
}

void FormUpload::begin(const MultipartReader::Part &part) {
    m_current = Current::nothing;
    if (m_refusal)
        return;
    if (m_fileSeen)
        return refuse("InvalidArgument", "the file must be the last part of the form, but \"" +
                                             part.name + "\" follows it");
    if (part.name == "file")
        return beginFile();
    m_current = Current::field;
    m_fieldName = part.name;
    m_fieldValue.clear();
}

void FormUpload::content(std::string_view bytes) {
    if (m_refusal)
        return;
    if (m_current == Current::file) {
        m_file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    } else if (m_current == Current::field) {
        if (m_fieldValue.size() + bytes.size() > longestField)
            return refuse("InvalidArgument", "the form field \"" + m_fieldName + "\" is too long");
        m_fieldValue.append(bytes);
    }
}

void FormUpload::end() {
    if (m_current == Current::field && !m_refusal)
        m_fields.emplace_back(m_fieldName, std::move(m_fieldValue));
    m_current = Current::nothing;
}

void FormUpload::beginFile() {
    m_fileSeen = true;
    const auto keys =
        std::ranges::count_if(m_fields, [](const auto &f) { return f.first == "key"; });
    if (keys != 1)
        return refuse("InvalidArgument",
                      keys == 0 ? "Bucket POST must contain a field named \"key\" before the file"
                                : "the field \"key\" appears more than once");
    const auto key = std::ranges::find_if(m_fields, [](const auto &f) { return f.first == "key"; });
    m_grant = m_state.grantFor(key->second);
    if (!m_grant)
        return refuse("AccessDenied", "no upload was presigned for the key \"" + key->second + '"');
    if (auto refusal = checkFieldsAgainst(*m_grant))
        return refuse(refusal->code, refusal->message);
    if (policyExpiredOnArrival())
        return refuse("AccessDenied", "Invalid according to Policy: Policy expired.");

    m_scratch = m_state.scratchFile("object");
    m_file.open(m_scratch, std::ios::binary | std::ios::trunc);
    if (!m_file)
        return refuse("InternalError", "no room to receive the file");
    m_current = Current::file;
}

std::optional<StorageRefusal> FormUpload::checkFieldsAgainst(const UploadGrant &grant) const {
    for (const auto &[name, value] : grant.fields) {
        const auto count =
            std::ranges::count_if(m_fields, [&](const auto &f) { return f.first == name; });
        if (count == 0)
            return StorageRefusal{"AccessDenied", "Invalid according to Policy: the field \"" +
                                                      name + "\" is missing"};
        if (count > 1)
            return StorageRefusal{"InvalidArgument",
                                  "the field \"" + name + "\" appears more than once"};
        const auto sent =
            std::ranges::find_if(m_fields, [&](const auto &f) { return f.first == name; });
        if (sent->second != value)
            return StorageRefusal{"AccessDenied", "Invalid according to Policy: the field \"" +
                                                      name + "\" differs from the presigned value"};
    }
    for (const auto &[name, value] : m_fields) {
        const bool granted =
            std::ranges::any_of(grant.fields, [&](const auto &f) { return f.first == name; });
        if (!granted)
            return StorageRefusal{"AccessDenied",
                                  "Invalid according to Policy: Extra input fields: " + name};
    }
    return std::nullopt;
}

// Judged once the form's fields have matched the grant, so that the policy read here is the
// one presign handed out. As S3 does, the policy's own expiration is what counts: from that
// instant on it is expired, so that a policy of no lifetime at all never lets anything in.
bool FormUpload::policyExpiredOnArrival() const {
    const auto policy =
        std::ranges::find_if(m_fields, [](const auto &f) { return f.first == "policy"; });
    if (policy == m_fields.end())
        return false;
    const std::optional<QDateTime> expiration = PresignedPost::expirationOf(policy->second);
    return !expiration || m_arrivedAt >= *expiration;
}

void FormUpload::refuse(std::string code, std::string message) {
    if (!m_refusal)
        m_refusal = StorageRefusal{std::move(code), std::move(message)};
}
