// SPDX-License-Identifier: MIT
#pragma once

#include "requestlog.h"

#include <QtGlobal>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

struct RegisteredFile {
    std::string url;
    std::string key;
    std::string bucket;
    std::string createdAt;    // as the client sent it
    std::string registeredAt; // when it arrived here
};

struct LiveSessionRecord {
    qint64 folderId = 0;
    std::string slug;
    std::string name;
    bool ended = false;
    std::vector<RegisteredFile> files; // oldest first
};

// Permission to store one object: what presign handed out.
struct UploadGrant {
    qint64 folderId = 0;
    std::string key;
    NameValueList fields;
};

struct StoredObject {
    std::filesystem::path file;
    std::uint64_t size = 0;
};

// Everything the service and its object store know: accounts' tokens, live sessions, upload
// grants and stored objects. Handlers run on many threads at once, so every member function
// takes the one lock and hands out copies.
class ServiceState {
public:
    enum class Registration {
        registered,
        unknownFolder,
        notGranted,
        notStored,
        wrongBucket,
        alreadyRegistered
    };

    // `presignLifetime` is how long presigned policies are good for, until a test changes it;
    // reset() comes back to it.
    ServiceState(std::filesystem::path dataDir, std::chrono::milliseconds presignLifetime);

    std::string issueToken();
    bool knowsToken(std::string_view token) const;

    LiveSessionRecord openSession(std::string name);
    bool endSession(std::string_view slug);
    // The session and its folder gone from the service, as when it is deleted there: uploads
    // and registrations for the folder are refused from then on. False for an unknown folder.
    bool removeSession(qint64 folderId);
    bool hasFolder(qint64 folderId) const;
    std::optional<LiveSessionRecord> sessionBySlug(std::string_view slug) const;
    std::vector<LiveSessionRecord> sessions() const;
    void setNextFolderId(qint64 folderId);

    // Nothing when the folder is unknown.
    std::optional<UploadGrant> grantUpload(qint64 folderId, std::string_view filename,
                                           std::string_view contentType);
    std::optional<UploadGrant> grantFor(std::string_view key) const;
    void setPresignLifetime(std::chrono::milliseconds lifetime);
    // A fresh path under the data folder for bytes still arriving.
    std::filesystem::path scratchFile(std::string_view purpose);
    // Moves the scratch file into the store under `key`, replacing an earlier object.
    bool storeObject(const std::string &key, const std::filesystem::path &scratch);
    std::optional<StoredObject> object(std::string_view key) const;

    Registration registerFile(qint64 folderId, RegisteredFile file);

    // Back to a fresh start: no tokens, sessions, grants or objects, and the first presign
    // lifetime.
    void reset();

private:
    std::filesystem::path objectsDir() const { return m_dataDir / "objects"; }
    std::filesystem::path scratchDir() const { return m_dataDir / "scratch"; }
    void prepareDirectories();

    const std::filesystem::path m_dataDir;
    const std::chrono::milliseconds m_firstPresignLifetime;
    std::atomic<std::uint64_t> m_scratchCounter{0};

    mutable std::mutex m_mutex;
    std::set<std::string, std::less<>> m_tokens;
    std::map<qint64, LiveSessionRecord> m_sessions;
    std::map<std::string, qint64, std::less<>> m_folderBySlug;
    qint64 m_nextFolderId;
    std::chrono::milliseconds m_presignLifetime;
    std::map<std::string, UploadGrant, std::less<>> m_grants;
    std::map<std::string, StoredObject, std::less<>> m_objects;
};
