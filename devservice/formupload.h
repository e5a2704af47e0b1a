// SPDX-License-Identifier: MIT
#pragma once

#include "multipartreader.h"
#include "requestlog.h"
#include "servicestate.h"

#include <QDateTime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

// Why the object store turned an upload down: an S3 error code and its message.
struct StorageRefusal {
    std::string code;
    std::string message;
};

// One presigned browser-form upload on its way in. The form must give back every field that
// presign handed out, exactly once and exactly as handed out, and nothing else; then the file,
// named "file", as the last part; and its policy must not have expired by the time the upload
// arrived. The file goes to disk as it arrives, so size is no concern.
class FormUpload {
public:
    // `boundary` is nothing when the Content-Type wasn't multipart/form-data with a boundary.
    // `arrivedAt` is when the request's head came in, the moment its policy is judged at.
    FormUpload(ServiceState &state, std::optional<std::string> boundary, QDateTime arrivedAt);
    ~FormUpload();
    FormUpload(const FormUpload &) = delete;
    FormUpload &operator=(const FormUpload &) = delete;

    void feed(std::string_view chunk);
    // The store's verdict once the whole body is in: nothing when the object is now stored.
    std::optional<StorageRefusal> finish();

private:
    void begin(const MultipartReader::Part &part);
    void content(std::string_view bytes);
    void end();
    void beginFile();
    std::optional<StorageRefusal> checkFieldsAgainst(const UploadGrant &grant) const;
    bool policyExpiredOnArrival() const;
    void refuse(std::string code, std::string message);

    enum class Current { nothing, field, file };

    ServiceState &m_state;
    const QDateTime m_arrivedAt;
    MultipartReader m_reader;
    std::optional<StorageRefusal> m_refusal;
    Current m_current = Current::nothing;
    std::string m_fieldName;
    std::string m_fieldValue;
    NameValueList m_fields;
    bool m_fileSeen = false;
    std::optional<UploadGrant> m_grant;
    std::filesystem::path m_scratch;
    std::ofstream m_file;
};
