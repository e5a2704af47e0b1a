// SPDX-License-Identifier: MIT
// macOS. Not compiled or run on the machines this was written on: written from the document
// cited, untried. An activity begun with NSActivityUserInitiatedAllowingIdleSystemSleep keeps
// App Nap off the program; NSActivityIdleSystemSleepDisabled adds that the computer does not
// idle-sleep; the display may (NSProcessInfo beginActivityWithOptions:reason:,
// https://developer.apple.com/documentation/foundation/nsprocessinfo/1415995-beginactivitywithoptions).
// The returned object must be kept, and handed back with endActivity:.
#include "recordingactivity.h"

#import <Foundation/Foundation.h>

struct RecordingActivity::Token {
    id<NSObject> activity = nil;
};

RecordingActivity::RecordingActivity() = default;

RecordingActivity::~RecordingActivity() {
    setHeld(false);
}

void RecordingActivity::setHeld(bool held) {
    if (held == m_held)
        return;
    m_held = held;
    if (held) {
        m_token = std::make_unique<Token>();
        m_token->activity = [[NSProcessInfo processInfo]
            beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep |
                                     NSActivityIdleSystemSleepDisabled
                              reason:@"A live session is recording"];
        [m_token->activity retain];
    } else if (m_token) {
        [[NSProcessInfo processInfo] endActivity:m_token->activity];
        [m_token->activity release];
        m_token.reset();
    }
}
