// SPDX-License-Identifier: MIT
#include "attemptfailure.h"

#include "apierror.h"
#include "filereaderror.h"
#include "requestfailure.h"

namespace {

bool statusPasses(int status)
{
    // 0: the reply was not HTTP at all, which a proxy or a broken link produces.
    return status == 0 || status == 408 || status == 429 || status >= 500;
}

} // namespace

AttemptFailure AttemptFailure::of(const std::exception &error)
{
    // The photo's own file failed, not the service: named as an unreadable file is.
    if (const auto *file = dynamic_cast<const FileReadError *>(&error))
        return {Kind::unreadable, file->fileName()};
    const auto *failure = dynamic_cast<const RequestFailure *>(&error);
    const QString description =
        failure ? failure->localizedDescription() : QString::fromUtf8(error.what());
    const auto *refusal = dynamic_cast<const APIError *>(&error);
    if (!refusal)
        return {Kind::passing, description};
    if (refusal->fromSignInPage())
        return {Kind::passing, description, false, Cause::networkSignIn};
    const int status = refusal->httpStatus();
    if (status == 401)
        return {Kind::signInNeeded, description};
    // Object stores refuse a presign past its expiry with 403: a fresh one goes through. A store
    // that says it refuses for another reason (a signature, a key) is asked again on a fresh
    // one too, but the photographer is told the truth; one that says nothing is taken at its
    // most likely, an expiry.
    if (refusal->errorCase() == APIError::uploadFailed && status == 403) {
        const std::optional<StorageRefusal> &said = refusal->storageRefusal();
        const bool expired = !said || said->permissionExpired();
        return {Kind::passing, description, true,
                expired ? Cause::unknown : Cause::storageRefuses};
    }
    // The folder the photos go into is unknown: the session was closed or removed on the
    // service, and no photo of it can go there any more.
    if (status == 404 && (refusal->errorCase() == APIError::presignFailed ||
                          refusal->errorCase() == APIError::registerFailed))
        return {Kind::sessionGone, description};
    AttemptFailure sorted{statusPasses(status) ? Kind::passing : Kind::refused, description};
    sorted.retryAfter = refusal->retryAfter();
    return sorted;
}
