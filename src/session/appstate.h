// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

// The stage of the live session. Whether the photographer is signed in is not part of it.
namespace AppStates {
Q_NAMESPACE
enum class AppState { setup, recording, finished };
Q_ENUM_NS(AppState)
} // namespace AppStates

using AppState = AppStates::AppState;
