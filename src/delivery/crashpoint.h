// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

class JournalDatabase;

// For the tests of a program that dies at any step of a photo's way. In development builds the
// environment variable QUILLMERE_TEST_CRASH_AT, as "before:previewStored" or
// "after:handedOver", makes the program kill itself (SIGKILL: no clean-up, nothing flushed)
// right before or right after the journal writes that step down: once every write queued
// before it, or with it, is on disk. Shipped builds have no such switch: the calls do nothing
// there.
class CrashPoint {
public:
    enum class Step {
        handedOver,
        previewPresigned,
        previewStored,
        registrationSent,
        previewRegistered,
        originalPresigned,
        originalStored,
    };

    static void before(Step step, JournalDatabase &journal);
    static void after(Step step, JournalDatabase &journal);
    static QString name(Step step);
};
