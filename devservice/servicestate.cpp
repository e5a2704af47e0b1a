// SPDX-License-Identifier: MIT
#include "servicestate.h"

#include "presignedpost.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QRandomGenerator>
#include <algorithm>
#include <limits>

namespace {

constexpr qint64 firstFolderId = 1001;

std::string randomText(int length, std::string_view alphabet) {
    std::string text;
    for (int i = 0; i < length; ++i)
        text.push_back(
            alphabet[QRandomGenerator::system()->bounded(static_cast<quint32>(alphabet.size()))]);
    return text;
}

constexpr std::string_view lowerAlphanumerics = "abcdefghijklmnopqrstuvwxyz0123456789";

// Readable in an address bar: the client's name in lower-case ASCII, then a random tail so two
// sessions for the same client never share a slug.
std::string slugFor(std::string_view name) {
    std::string base;
    for (char c : name) {
        const bool alnum = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        if (alnum)
            base.push_back(c);
        else if (c >= 'A' && c <= 'Z')
            base.push_back(static_cast<char>(c - 'A' + 'a'));
        else if (!base.empty() && base.back() != '-')
            base.push_back('-');
        if (base.size() >= 40)
            break;
    }
    while (!base.empty() && base.back() == '-')
        base.pop_back();
    if (base.empty())
        base = "session";
    return base + '-' + randomText(6, lowerAlphanumerics);
}

std::string now() {
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toStdString();
}

} // namespace

ServiceState::ServiceState(std::filesystem::path dataDir, std::chrono::milliseconds presignLifetime)
    : m_dataDir(std::move(dataDir))
    , m_firstPresignLifetime(presignLifetime)
    , m_nextFolderId(firstFolderId)
    , m_presignLifetime(presignLifetime) {
    prepareDirectories();
}

void ServiceState::prepareDirectories() {
    std::filesystem::create_directories(objectsDir());
    std::filesystem::create_directories(scratchDir());
}

std::string ServiceState::issueToken() {
    std::string token = randomText(40, lowerAlphanumerics);
    const std::lock_guard lock(m_mutex);
    m_tokens.insert(token);
    return token;
}

bool ServiceState::knowsToken(std::string_view token) const {
    const std::lock_guard lock(m_mutex);
    return m_tokens.contains(token);
}

LiveSessionRecord ServiceState::openSession(std::string name) {
    const std::lock_guard lock(m_mutex);
    LiveSessionRecord session;
    do {
        session.folderId = m_nextFolderId;
        m_nextFolderId = m_nextFolderId == std::numeric_limits<qint64>::max() ? firstFolderId
                                                                              : m_nextFolderId + 1;
    } while (m_sessions.contains(session.folderId));
    do {
        session.slug = slugFor(name);
    } while (m_folderBySlug.contains(session.slug));
    session.name = std::move(name);
    m_folderBySlug.emplace(session.slug, session.folderId);
    m_sessions.emplace(session.folderId, session);
    return session;
}

bool ServiceState::endSession(std::string_view slug) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_folderBySlug.find(slug);
    if (found == m_folderBySlug.end())
        return false;
    m_sessions.at(found->second).ended = true;
    return true;
}

bool ServiceState::removeSession(qint64 folderId) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_sessions.find(folderId);
    if (found == m_sessions.end())
        return false;
    m_folderBySlug.erase(found->second.slug);
    m_sessions.erase(found);
    return true;
}

bool ServiceState::hasFolder(qint64 folderId) const {
    const std::lock_guard lock(m_mutex);
    return m_sessions.contains(folderId);
}

std::optional<LiveSessionRecord> ServiceState::sessionBySlug(std::string_view slug) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_folderBySlug.find(slug);
    if (found == m_folderBySlug.end())
        return std::nullopt;
    return m_sessions.at(found->second);
}

std::vector<LiveSessionRecord> ServiceState::sessions() const {
    const std::lock_guard lock(m_mutex);
    std::vector<LiveSessionRecord> all;
    for (const auto &[folderId, session] : m_sessions)
        all.push_back(session);
    return all;
}

void ServiceState::setNextFolderId(qint64 folderId) {
    const std::lock_guard lock(m_mutex);
    m_nextFolderId = folderId;
}

std::optional<UploadGrant> ServiceState::grantUpload(qint64 folderId, std::string_view filename,
                                                     std::string_view contentType) {
    const std::lock_guard lock(m_mutex);
    if (!m_sessions.contains(folderId))
        return std::nullopt;
    UploadGrant grant;
    grant.folderId = folderId;
    grant.key = "live/" + std::to_string(folderId) + '/' + randomText(16, lowerAlphanumerics) +
                '/' + std::string(filename);
    grant.fields = PresignedPost::fields(grant.key, contentType, QDateTime::currentDateTimeUtc(),
                                         m_presignLifetime);
    m_grants.insert_or_assign(grant.key, grant);
    return grant;
}

std::optional<UploadGrant> ServiceState::grantFor(std::string_view key) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_grants.find(key);
    if (found == m_grants.end())
        return std::nullopt;
    return found->second;
}

void ServiceState::setPresignLifetime(std::chrono::milliseconds lifetime) {
    const std::lock_guard lock(m_mutex);
    m_presignLifetime = lifetime;
}

std::filesystem::path ServiceState::scratchFile(std::string_view purpose) {
    return scratchDir() / (std::to_string(++m_scratchCounter) + '.' + std::string(purpose));
}

bool ServiceState::storeObject(const std::string &key, const std::filesystem::path &scratch) {
    // Keys carry the photographer's file names; hashing them keeps every name, however odd,
    // inside the objects folder.
    const QByteArray digest =
        QCryptographicHash::hash(QByteArray::fromStdString(key), QCryptographicHash::Sha256)
            .toHex();
    const std::filesystem::path target = objectsDir() / digest.toStdString();
    std::error_code error;
    std::filesystem::rename(scratch, target, error);
    if (error)
        return false;
    const std::uint64_t size = std::filesystem::file_size(target, error);
    const std::lock_guard lock(m_mutex);
    m_objects.insert_or_assign(key, StoredObject{target, error ? 0 : size});
    return true;
}

std::optional<StoredObject> ServiceState::object(std::string_view key) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_objects.find(key);
    if (found == m_objects.end())
        return std::nullopt;
    return found->second;
}

ServiceState::Registration ServiceState::registerFile(qint64 folderId, RegisteredFile file) {
    const std::lock_guard lock(m_mutex);
    const auto session = m_sessions.find(folderId);
    if (session == m_sessions.end())
        return Registration::unknownFolder;
    const auto grant = m_grants.find(file.key);
    if (grant == m_grants.end() || grant->second.folderId != folderId)
        return Registration::notGranted;
    if (file.bucket != PresignedPost::bucket)
        return Registration::wrongBucket;
    if (!m_objects.contains(file.key))
        return Registration::notStored;
    auto &files = session->second.files;
    if (std::ranges::any_of(files, [&](const RegisteredFile &f) { return f.key == file.key; }))
        return Registration::alreadyRegistered;
    file.registeredAt = now();
    files.push_back(std::move(file));
    return Registration::registered;
}

void ServiceState::reset() {
    const std::lock_guard lock(m_mutex);
    m_tokens.clear();
    m_sessions.clear();
    m_folderBySlug.clear();
    m_nextFolderId = firstFolderId;
    m_presignLifetime = m_firstPresignLifetime;
    m_grants.clear();
    m_objects.clear();
    std::error_code ignored;
    std::filesystem::remove_all(objectsDir(), ignored);
    prepareDirectories();
}
