// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// The files the tests read as they are, kept in the repository's tests/fixtures.
class RepositoryFixtures {
public:
    // The path of the named fixture, whether or not it is there.
    static QString path(const QString &name);
    // Why a test cannot go on when the fixture is missing: the empty string when it is there.
    static QString missing(const QString &name);
};

// Fails the running test, naming the file, when a fixture the repository should hold is gone:
// a missing sample then reads as such, not as an unreadable photo.
#define QUILLMERE_REQUIRE_FIXTURE(name)                                                            \
    do {                                                                                           \
        const QString quillmereFixtureProblem = RepositoryFixtures::missing(name);                 \
        QVERIFY2(quillmereFixtureProblem.isEmpty(), qPrintable(quillmereFixtureProblem));          \
    } while (false)
