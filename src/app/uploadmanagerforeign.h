// SPDX-License-Identifier: MIT
#pragma once

#include "uploadmanager.h"

#include <QtQml/qqml.h>

// The core knows nothing of QML: the recording screen reads its counter through this.
struct UploadManagerForeign {
    Q_GADGET
    QML_FOREIGN(UploadManager)
    QML_NAMED_ELEMENT(UploadManager)
    QML_UNCREATABLE("made by the application")
};
