// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

class APIClient;
class AsyncSemaphore;
class PreviewMaker;

// The lanes every attempt at a photo goes through: at most two previews at once, one original
// at a time, and the maker of the previews. The program has one set for all its sessions, so
// that a session's photos and those an earlier session still owes share the link and the
// processor by the same rules.
struct UploadLanes {
    static constexpr int previewLimit = 2;
    static constexpr int originalLimit = 1;

    explicit UploadLanes(APIClient &client);

    APIClient &api;
    std::shared_ptr<AsyncSemaphore> previewPermits;
    std::shared_ptr<AsyncSemaphore> originalPermits;
    std::shared_ptr<PreviewMaker> previews;
};
