// SPDX-License-Identifier: MIT
#pragma once

#include "sessionviewmodel.h"

#include <QtQml/qqml.h>

// The core knows nothing of QML: the screens reach the controller through this declaration.
struct SessionViewModelForeign {
    Q_GADGET
    QML_FOREIGN(SessionViewModel)
    QML_NAMED_ELEMENT(SessionViewModel)
    QML_UNCREATABLE("made by the application")
};
