// SPDX-License-Identifier: MIT
#include "attemptstep.h"

void AttemptStep::applyTo(PhotoProgress &progress) const
{
    switch (kind) {
    case Kind::previewPresigned:
        progress.previewPresign = presign;
        break;
    case Kind::previewStored:
        progress.storedPreview = preview;
        break;
    case Kind::registrationSending:
        progress.registrationSent = true;
        break;
    case Kind::previewRegistered:
        progress.previewRegistered = true;
        break;
    case Kind::originalPresigned:
        progress.originalPresign = presign;
        break;
    case Kind::failed:
        // A permission the store refused is not offered to it again.
        if (failure && failure->permissionRefused) {
            if (part == Part::preview)
                progress.previewPresign.reset();
            else
                progress.originalPresign.reset();
        }
        break;
    case Kind::previewMade:
    case Kind::originalRead:
    case Kind::originalStored:
        break;
    }
}
