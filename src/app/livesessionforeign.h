// SPDX-License-Identifier: MIT
#pragma once

#include "livesession.h"

#include <QtQml/qqml.h>

// The session record as a QML value type, read field by field by the screens.
struct LiveSessionForeign {
    Q_GADGET
    QML_FOREIGN(LiveSession)
    QML_VALUE_TYPE(liveSession)
};
