// SPDX-License-Identifier: MIT
#include "uploadlanes.h"

#include "asyncsemaphore.h"
#include "previewmaker.h"

UploadLanes::UploadLanes(APIClient &client)
    : api(client)
    , previewPermits(std::make_shared<AsyncSemaphore>(previewLimit))
    , originalPermits(std::make_shared<AsyncSemaphore>(originalLimit))
    , previews(std::make_shared<PreviewMaker>())
{
}
