// SPDX-License-Identifier: MIT
// The tray's picture: the camera, and the red dot beside it exactly while the controller
// records, paused or not. The states come from a real session against devservice.
#include "apiclient.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "sessionviewmodel.h"
#include "statusicon.h"
#include "statusitem.h"

#include <QCoroTask>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

namespace {
bool isRed(QRgb pixel) {
    return qRed(pixel) > 200 && qGreen(pixel) < 100 && qBlue(pixel) < 100;
}

int countPixels(const QImage &image, const QRect &area, const std::function<bool(QRgb)> &test) {
    int count = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            count += test(image.pixel(x, y)) ? 1 : 0;
    return count;
}

bool isInk(QRgb pixel) {
    return qAlpha(pixel) > 128 && qGray(pixel) < 60;
}
} // namespace

class TestStatusItem : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void idlePictureIsTheCameraAlone();
    void recordingPictureHasTheRedDotBeside();
    void drawnAtEveryScale_data();
    void drawnAtEveryScale();
    void dotFollowsTheControllersState();
};

void TestStatusItem::idlePictureIsTheCameraAlone() {
    const QImage image = StatusIcon::image(false, Qt::black, 1.0);
    QCOMPARE(image.size(), QSize(18, 18));
    QVERIFY(countPixels(image, image.rect(), isInk) > 60);
    QCOMPARE(countPixels(image, image.rect(), isRed), 0);
}

void TestStatusItem::recordingPictureHasTheRedDotBeside() {
    const QImage image = StatusIcon::image(true, Qt::black, 1.0);
    // 18 of camera, 4 apart, 6 of dot.
    QCOMPARE(image.size(), QSize(28, 18));
    const QRect camera(0, 0, 18, 18);
    const QRect gap(18, 0, 4, 18);
    const QRect dot(22, 6, 6, 6);
    QVERIFY(countPixels(image, camera, isInk) > 60);
    QCOMPARE(countPixels(image, camera, isRed), 0);
    QCOMPARE(countPixels(image, gap, [](QRgb pixel) { return qAlpha(pixel) > 0; }), 0);
    QVERIFY(isRed(image.pixel(dot.center())));
    // Centred vertically: nothing red above or below the dot's 6 rows.
    QCOMPARE(countPixels(image, QRect(22, 0, 6, 5), isRed), 0);
    QCOMPARE(countPixels(image, QRect(22, 13, 6, 5), isRed), 0);
}

void TestStatusItem::drawnAtEveryScale_data() {
    QTest::addColumn<qreal>("scale");
    QTest::newRow("1x") << 1.0;
    QTest::newRow("2x") << 2.0;
    QTest::newRow("3x") << 3.0;
}

void TestStatusItem::drawnAtEveryScale() {
    QFETCH(qreal, scale);
    const QImage image = StatusIcon::image(true, Qt::black, scale);
    QCOMPARE(image.size(), (QSizeF(28, 18) * scale).toSize());
    QVERIFY(isRed(image.pixel(int(25 * scale), int(9 * scale))));
    // Drawn from the vector source at this size, not scaled from a small picture: from twice
    // the size on, the thin open ring around the lens (1.2 pixels wide at 1x) is clear of ink.
    // The glyph is drawn on 24 units, at 18 pixels a unit is 0.75 pixels.
    const auto pixelAt = [&image, scale](qreal unitX, qreal unitY) {
        return image.pixel(int(unitX * 0.75 * scale), int(unitY * 0.75 * scale));
    };
    if (scale >= 2.0)
        QCOMPARE(qAlpha(pixelAt(15.9, 13.5)), 0);
    QVERIFY(isInk(pixelAt(12, 13.5))); // the lens
    QVERIFY(isInk(pixelAt(3.5, 16)));  // the body
    QVERIFY(!isInk(pixelAt(3.5, 5)));  // beside the viewfinder hump

    const QIcon icon = StatusIcon::icon(true, Qt::black, false);
    QVERIFY(!icon.isNull());
    QVERIFY(icon.availableSizes().size() >= 4);
}

void TestStatusItem::dotFollowsTheControllersState() {
    ScopedPreferences preferences;
    DevService service;
    QVERIFY2(service.start(), qPrintable(service.errorString()));
    APIClient::redirectShared(service.baseURL(), service.storageHost());
    QTemporaryDir folder;
    QVERIFY(folder.isValid());

    SessionViewModel viewModel;
    viewModel.setFolderChooser(
        [&folder](const QString &) { return std::optional(QUrl::fromLocalFile(folder.path())); });
    StatusItem item(viewModel);
    QVERIFY(!item.showsRecording());

    viewModel.setEmail(DevService::demoEmail());
    viewModel.setPassword(DevService::demoPassword());
    QCoro::waitFor(viewModel.loginTask());
    viewModel.setClientName(QStringLiteral("Eva"));
    viewModel.pickFolder();
    QCoro::waitFor(viewModel.startSessionTask());
    QCOMPARE(viewModel.state(), AppState::recording);
    QVERIFY(item.showsRecording());

    viewModel.setIsPaused(true);
    QVERIFY(item.showsRecording());

    QCoro::waitFor(viewModel.stopSessionTask());
    QCOMPARE(viewModel.state(), AppState::finished);
    QVERIFY(!item.showsRecording());
    viewModel.newSession();
    QVERIFY(!item.showsRecording());
}

QTEST_MAIN(TestStatusItem)
#include "tst_statusitem.moc"
