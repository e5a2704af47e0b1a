// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

// Tells the system that the program is at work while a session records, so that it neither
// naps the hidden program's timers and uploads (macOS's App Nap) nor lets the computer fall
// asleep when idle; the display may still sleep. Released when the session stops recording.
// One source file per system: recordingactivity_mac.mm, recordingactivity_win.cpp,
// recordingactivity_other.cpp.
class RecordingActivity {
public:
    RecordingActivity();
    ~RecordingActivity();
    RecordingActivity(const RecordingActivity &) = delete;
    RecordingActivity &operator=(const RecordingActivity &) = delete;

    void setHeld(bool held);
    bool isHeld() const { return m_held; }

private:
    struct Token;
    std::unique_ptr<Token> m_token; // what the system handed out, while held
    bool m_held = false;
};
