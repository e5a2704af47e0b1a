// SPDX-License-Identifier: MIT
#include "panelplacement.h"

#include <QTest>

// Desktop layouts as their trays report them: where the icon is, what the screen leaves free.
class TestPanelPlacement : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void position_data();
    void position();
    void staysInsideTheFreeArea();
    void anchorIsTheIconWhenKnown();
    void anchorFallsBackToThePointer();
};

void TestPanelPlacement::position_data() {
    QTest::addColumn<QRect>("icon");
    QTest::addColumn<QRect>("available");
    QTest::addColumn<QSize>("panel");
    QTest::addColumn<QPoint>("expected");

    const QSize panel(340, 420);
    // A menu bar at the top (macOS, GNOME): the panel hangs under the icon, centred on it.
    QTest::newRow("top bar") << QRect(1000, 0, 24, 24) << QRect(0, 24, 1440, 876) << panel
                             << QPoint(1012 - 170, 24 + PanelPlacement::gap);
    // The icon near the right end: pushed left until it fits.
    QTest::newRow("top bar, right end")
        << QRect(1400, 0, 24, 24) << QRect(0, 24, 1440, 876) << panel << QPoint(1440 - 340, 28);
    // The icon near the left end: pushed right until it fits.
    QTest::newRow("top bar, left end")
        << QRect(10, 0, 24, 24) << QRect(0, 24, 1440, 876) << panel << QPoint(0, 28);
    // A taskbar at the bottom (Windows, KDE): the panel stands on top of the icon.
    QTest::newRow("bottom bar") << QRect(1700, 1040, 32, 40) << QRect(0, 0, 1920, 1040) << panel
                                << QPoint(1716 - 170, 1040 - PanelPlacement::gap - 420);
    // A dock at the left: the panel opens to the right of the icon, centred on it.
    QTest::newRow("left bar") << QRect(0, 500, 48, 48) << QRect(48, 0, 1872, 1080) << panel
                              << QPoint(48 + PanelPlacement::gap, 524 - 210);
    // A dock at the right: to the left of the icon.
    QTest::newRow("right bar") << QRect(1872, 500, 48, 48) << QRect(0, 0, 1872, 1080) << panel
                               << QPoint(1872 - PanelPlacement::gap - 340, 524 - 210);
    // The second of two screens side by side: all coordinates are the virtual desktop's.
    QTest::newRow("second screen") << QRect(2900, 0, 22, 22) << QRect(1920, 22, 1920, 1058) << panel
                                   << QPoint(2911 - 170, 22 + PanelPlacement::gap);
    // A bar that reserves no room (or the pointer standing in for the icon) in the upper half.
    QTest::newRow("inside, upper half") << QRect(600, 10, 1, 1) << QRect(0, 0, 1280, 800) << panel
                                        << QPoint(600 - 170, 11 + PanelPlacement::gap);
    // ... and in the lower half.
    QTest::newRow("inside, lower half") << QRect(600, 790, 1, 1) << QRect(0, 0, 1280, 800) << panel
                                        << QPoint(600 - 170, 790 - 4 - 420);
    // A screen too low for the panel: its top stays in view.
    QTest::newRow("too tall") << QRect(100, 0, 24, 24) << QRect(0, 24, 800, 300) << panel
                              << QPoint(0, 24);
}

void TestPanelPlacement::position() {
    QFETCH(QRect, icon);
    QFETCH(QRect, available);
    QFETCH(QSize, panel);
    QFETCH(QPoint, expected);
    QCOMPARE(PanelPlacement::position(icon, available, panel), expected);
}

void TestPanelPlacement::staysInsideTheFreeArea() {
    const QRect available(0, 30, 1280, 770);
    const QSize panel(340, 500);
    // Wherever the icon is along the edges, the panel is whole and inside the free area.
    for (int x = -10; x <= 1290; x += 37) {
        for (const int y : {0, 400, 800}) {
            const QRect icon(x, y, 24, 24);
            const QRect placed(PanelPlacement::position(icon, available, panel), panel);
            QVERIFY2(available.contains(placed),
                     qPrintable(QStringLiteral("icon at %1,%2").arg(x).arg(y)));
        }
    }
}

void TestPanelPlacement::anchorIsTheIconWhenKnown() {
    const QRect icon(1000, 0, 24, 24);
    QCOMPARE(PanelPlacement::anchor(icon, QPoint(5, 5)), icon);
}

void TestPanelPlacement::anchorFallsBackToThePointer() {
    // X11 trays through StatusNotifierItem report an empty or invalid rectangle.
    QCOMPARE(PanelPlacement::anchor(QRect(), QPoint(700, 12)), QRect(700, 12, 1, 1));
    QCOMPARE(PanelPlacement::anchor(QRect(0, 0, 0, 0), QPoint(5, 790)), QRect(5, 790, 1, 1));
}

QTEST_GUILESS_MAIN(TestPanelPlacement)
#include "tst_panelplacement.moc"
