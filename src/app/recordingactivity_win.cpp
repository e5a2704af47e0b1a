// SPDX-License-Identifier: MIT
// Windows: SetThreadExecutionState with ES_CONTINUOUS | ES_SYSTEM_REQUIRED keeps the system
// from idle sleep until the state is cleared, and leaves the display to its own timeout
// (https://learn.microsoft.com/windows/win32/api/winbase/nf-winbase-setthreadexecutionstate).
// The state belongs to the calling thread, so it is set and cleared from the main thread only.
#include "recordingactivity.h"

#include <windows.h>

struct RecordingActivity::Token {};

RecordingActivity::RecordingActivity() = default;

RecordingActivity::~RecordingActivity() {
    setHeld(false);
}

void RecordingActivity::setHeld(bool held) {
    if (held == m_held)
        return;
    m_held = held;
    SetThreadExecutionState(held ? (ES_CONTINUOUS | ES_SYSTEM_REQUIRED) : ES_CONTINUOUS);
}
