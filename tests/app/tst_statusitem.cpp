// SPDX-License-Identifier: MIT
// The tray's picture, menu and clicks, and what stands in for them without a tray: a square
// picture at every size a tray asks for, with the camera at full size and the red dot in a
// corner exactly while the controller records, paused or not; the window's title and icon;
// a tray that comes and goes. The states come from a real session against devservice.
#include "apiclient.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "sessionviewmodel.h"
#include "statusicon.h"
#include "statusitem.h"
#include "trayhostwatch.h"
#include "windowstatus.h"

#include <QAction>
#include <QCoroTask>
#include <QDir>
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWindow>

namespace {
bool isRed(QRgb pixel) {
    return qAlpha(pixel) > 200 && qRed(pixel) > 200 && qGreen(pixel) < 100 && qBlue(pixel) < 100;
}

bool isInk(QRgb pixel) {
    return qAlpha(pixel) > 128 && qGray(pixel) < 60;
}

// The smallest rectangle holding every pixel that passes `test`.
QRect extent(const QImage &image, const std::function<bool(QRgb)> &test) {
    QRect box;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (test(image.pixel(x, y)))
                box |= QRect(x, y, 1, 1);
    return box;
}

// What a tray of `side` logical pixels at `ratio` device pixels each is given.
QImage trayPicture(const QIcon &icon, int side, qreal ratio) {
    return icon.pixmap(QSize(side, side), ratio).toImage().convertToFormat(QImage::Format_ARGB32);
}

// The dot's centre, in a picture `pixels` across: in the bottom-right corner.
QPoint dotCentre(int pixels) {
    return StatusIcon::dotRect(pixels).center().toPoint();
}

// One recording session on devservice, driven through the controller.
struct RecordedSession {
    ScopedPreferences preferences;
    DevService service;
    QTemporaryDir folder;
    SessionViewModel viewModel;

    bool signIn() {
        if (!service.start() || !folder.isValid())
            return false;
        APIClient::redirectShared(service.baseURL(), service.storageHost());
        viewModel.setFolderChooser(
            [this](const QString &) { return std::optional(QUrl::fromLocalFile(folder.path())); });
        viewModel.setEmail(DevService::demoEmail());
        viewModel.setPassword(DevService::demoPassword());
        QCoro::waitFor(viewModel.loginTask());
        return viewModel.hasStoredToken();
    }
    bool start() {
        viewModel.setClientName(QStringLiteral("Eva"));
        viewModel.pickFolder();
        QCoro::waitFor(viewModel.startSessionTask());
        return viewModel.state() == AppState::recording;
    }
    bool stop() {
        QCoro::waitFor(viewModel.stopSessionTask());
        return viewModel.state() == AppState::finished;
    }
};
} // namespace

class TestStatusItem : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void squareAtEverySize_data();
    void squareAtEverySize();
    void cameraKeepsItsSizeWhenRecordingStarts();
    void dotFollowsTheControllersState();
    void contextMenuOpensAndQuits();
    void leftClickTogglesTheMenuDoesNot();
    void windowTitleAndIconShowTheRecording();
    void trayHostComingAndGoingIsFollowed();
};

void TestStatusItem::squareAtEverySize_data() {
    QTest::addColumn<int>("side");
    QTest::addColumn<qreal>("ratio");
    QTest::addColumn<bool>("recording");
    for (const int side : {16, 20, 22, 24, 32, 48, 64})
        for (const qreal ratio : {1.0, 2.0})
            for (const bool recording : {false, true})
                QTest::addRow("%d px @%gx %s", side, ratio, recording ? "recording" : "idle")
                    << side << ratio << recording;
}

void TestStatusItem::squareAtEverySize() {
    QFETCH(int, side);
    QFETCH(qreal, ratio);
    QFETCH(bool, recording);
    const QImage picture = trayPicture(StatusIcon::icon(recording, Qt::black, false), side, ratio);
    const int pixels = qRound(side * ratio);
    QCOMPARE(picture.size(), QSize(pixels, pixels));
    // Kept for a person to look at, in the build folder's "tray-sizes".
    const QDir shots(QStringLiteral(QUILLMERE_TRAY_SIZES_DIR));
    QVERIFY(shots.mkpath(QStringLiteral(".")));
    QVERIFY(picture.save(shots.filePath(QStringLiteral("%1px-%2x-%3.png")
                                            .arg(side)
                                            .arg(ratio)
                                            .arg(recording ? QStringLiteral("recording")
                                                           : QStringLiteral("idle")))));

    // The camera spans the picture's width, the dot or not.
    const QRect camera = extent(picture, isInk);
    QVERIFY2(camera.width() >= pixels * 0.75, qPrintable(QStringLiteral("camera %1 of %2")
                                                              .arg(camera.width())
                                                              .arg(pixels)));
    QCOMPARE(isRed(picture.pixel(dotCentre(pixels))), recording);
    const QRect dot = extent(picture, isRed);
    if (!recording) {
        QVERIFY(dot.isNull());
        return;
    }
    // A badge in the bottom-right corner: at least a third of the side, within its quarter.
    QVERIFY2(dot.width() >= pixels / 3, qPrintable(QString::number(dot.width())));
    QVERIFY(dot.left() >= pixels / 2 && dot.top() >= pixels / 2);
    QVERIFY(dot.right() == pixels - 1 || dot.right() == pixels - 2);
}

void TestStatusItem::cameraKeepsItsSizeWhenRecordingStarts() {
    // Outside the dot and the clear ring around it, both pictures are the same camera.
    const int pixels = 44;
    const QImage idle = StatusIcon::image(false, Qt::black, pixels);
    const QImage recording = StatusIcon::image(true, Qt::black, pixels);
    const QRectF ring = StatusIcon::ringRect(pixels).adjusted(-1, -1, 1, 1);
    int compared = 0;
    for (int y = 0; y < pixels; ++y)
        for (int x = 0; x < pixels; ++x) {
            if (ring.contains(QPointF(x + 0.5, y + 0.5)))
                continue;
            QCOMPARE(recording.pixel(x, y), idle.pixel(x, y));
            ++compared;
        }
    QVERIFY(compared > pixels * pixels / 2);
}

void TestStatusItem::dotFollowsTheControllersState() {
    RecordedSession session;
    QVERIFY(session.signIn());
    StatusItem item(session.viewModel);
    // What the tray shows, at a usual panel size.
    const auto dotShown = [&item] {
        const QImage picture = trayPicture(item.trayIcon().icon(), 22, 1.0);
        return picture.size() == QSize(22, 22) && isRed(picture.pixel(dotCentre(22)));
    };
    QVERIFY(!dotShown());

    QVERIFY(session.start());
    QVERIFY(dotShown());
    session.viewModel.setIsPaused(true);
    QVERIFY(dotShown());

    QVERIFY(session.stop());
    QVERIFY(!dotShown());
    session.viewModel.newSession();
    QVERIFY(!dotShown());
}

void TestStatusItem::contextMenuOpensAndQuits() {
    SessionViewModel viewModel;
    StatusItem item(viewModel);
    QMenu *menu = item.trayIcon().contextMenu();
    QVERIFY(menu);
    QStringList texts;
    for (const QAction *action : menu->actions())
        texts.append(action->text());
    QCOMPARE(texts, (QStringList{QStringLiteral("Abrir"), QStringLiteral("Salir")}));

    QSignalSpy opened(&item, &StatusItem::openRequested);
    QSignalSpy quit(&item, &StatusItem::quitRequested);
    menu->actions().at(0)->trigger();
    QCOMPARE(opened.size(), 1);
    QCOMPARE(quit.size(), 0);
    menu->actions().at(1)->trigger();
    QCOMPARE(quit.size(), 1);
    QCOMPARE(opened.size(), 1);
}

void TestStatusItem::leftClickTogglesTheMenuDoesNot() {
    SessionViewModel viewModel;
    StatusItem item(viewModel);
    QSignalSpy clicked(&item, &StatusItem::clicked);
    QSignalSpy opened(&item, &StatusItem::openRequested);
    Q_EMIT item.trayIcon().activated(QSystemTrayIcon::Trigger);
    QCOMPARE(clicked.size(), 1);
    // A right click opens the menu, which the tray shows by itself; the panel stays as it is.
    Q_EMIT item.trayIcon().activated(QSystemTrayIcon::Context);
    QCOMPARE(clicked.size(), 1);
    QCOMPARE(opened.size(), 0);
}

void TestStatusItem::windowTitleAndIconShowTheRecording() {
    RecordedSession session;
    QVERIFY(session.signIn());
    QWindow window;
    WindowStatus status(session.viewModel, &window);
    const auto iconDot = [&window] {
        const QImage picture = trayPicture(window.icon(), 32, 1.0);
        return picture.size() == QSize(32, 32) && isRed(picture.pixel(dotCentre(32)));
    };
    QCOMPARE(window.title(), QStringLiteral("Quillmere Live"));
    QVERIFY(!iconDot());
    QVERIFY(!window.icon().isNull());

    QVERIFY(session.start());
    QCOMPARE(window.title(), QStringLiteral("● Grabando — Quillmere Live"));
    QVERIFY(iconDot());
    session.viewModel.setIsPaused(true);
    QCOMPARE(window.title(), QStringLiteral("● Grabando — Quillmere Live"));
    QVERIFY(iconDot());

    QVERIFY(session.stop());
    QCOMPARE(window.title(), QStringLiteral("Quillmere Live"));
    QVERIFY(!iconDot());
}

void TestStatusItem::trayHostComingAndGoingIsFollowed() {
    bool trayThere = false;
    TrayHostWatch watch(std::chrono::milliseconds(20), [&trayThere] { return trayThere; });
    QSignalSpy changes(&watch, &TrayHostWatch::availableChanged);
    QVERIFY(!watch.available());
    trayThere = true;
    QVERIFY(changes.wait(5000));
    QCOMPARE(changes.last().at(0).toBool(), true);
    QVERIFY(watch.available());
    trayThere = false;
    QVERIFY(changes.wait(5000));
    QCOMPARE(changes.last().at(0).toBool(), false);
    QCOMPARE(changes.size(), 2);
}

QTEST_MAIN(TestStatusItem)
#include "tst_statusitem.moc"
