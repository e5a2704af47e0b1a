// SPDX-License-Identifier: MIT
// Linux and the others: no nap to hold off; a desktop's idle suspend is left to its own
// settings, as for any program that works in the background.
#include "recordingactivity.h"

struct RecordingActivity::Token {};

RecordingActivity::RecordingActivity() = default;
RecordingActivity::~RecordingActivity() = default;

void RecordingActivity::setHeld(bool held) {
    m_held = held;
}
