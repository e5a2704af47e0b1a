// SPDX-License-Identifier: MIT
#include "preferences.h"
#include "scopedpreferences.h"
#include "screenswitch.h"
#include "sessionviewmodel.h"

#include <QSignalSpy>
#include <QTest>

using Screen = ScreenSwitch::Screen;

class TestScreenSwitch : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void choose_data();
    void choose();
    void names();
    void followsTheControllerAndTheToken();
};

void TestScreenSwitch::choose_data() {
    QTest::addColumn<bool>("token");
    QTest::addColumn<AppState>("state");
    QTest::addColumn<bool>("uploadManager");
    QTest::addColumn<Screen>("expected");

    QTest::newRow("no token, setup") << false << AppState::setup << false << Screen::Login;
    QTest::newRow("no token, recording") << false << AppState::recording << true << Screen::Login;
    QTest::newRow("no token, finished") << false << AppState::finished << true << Screen::Login;
    QTest::newRow("setup") << true << AppState::setup << false << Screen::Setup;
    QTest::newRow("recording") << true << AppState::recording << true << Screen::Recording;
    QTest::newRow("recording, no manager") << true << AppState::recording << false << Screen::None;
    QTest::newRow("finished") << true << AppState::finished << true << Screen::Finished;
    QTest::newRow("finished, no manager")
        << true << AppState::finished << false << Screen::Finished;
}

void TestScreenSwitch::choose() {
    QFETCH(bool, token);
    QFETCH(AppState, state);
    QFETCH(bool, uploadManager);
    QFETCH(Screen, expected);
    QCOMPARE(ScreenSwitch::choose(token, state, uploadManager), expected);
}

void TestScreenSwitch::names() {
    QCOMPARE(ScreenSwitch::name(Screen::Login), QStringLiteral("login"));
    QCOMPARE(ScreenSwitch::name(Screen::Recording), QStringLiteral("recording"));
    QCOMPARE(ScreenSwitch::name(Screen::None), QStringLiteral("none"));
}

void TestScreenSwitch::followsTheControllerAndTheToken() {
    ScopedPreferences preferences;
    SessionViewModel viewModel;
    ScreenSwitch screenSwitch;
    QCOMPARE(screenSwitch.screen(), Screen::None);
    QSignalSpy changes(&screenSwitch, &ScreenSwitch::screenChanged);
    screenSwitch.setViewModel(&viewModel);
    QCOMPARE(screenSwitch.screen(), Screen::Login);
    QCOMPARE(changes.size(), 1);

    // A token alone is not seen...
    Preferences::setString(Preferences::apiTokenKey, QStringLiteral("token"));
    QCOMPARE(screenSwitch.screen(), Screen::Login);
    // ...until the controller announces any change at all.
    viewModel.setPassword(QStringLiteral("x"));
    QCOMPARE(screenSwitch.screen(), Screen::Setup);
    QCOMPARE(changes.size(), 2);
    // Changes that leave the screen as it is do not announce one.
    viewModel.setEmail(QStringLiteral("a@b.c"));
    QCOMPARE(changes.size(), 2);

    preferences.remove(Preferences::apiTokenKey);
    viewModel.setIsPaused(true);
    QCOMPARE(screenSwitch.screen(), Screen::Login);
}

QTEST_GUILESS_MAIN(TestScreenSwitch)
#include "tst_screenswitch.moc"
