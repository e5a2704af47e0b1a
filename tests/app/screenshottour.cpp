// SPDX-License-Identifier: MIT
#include "screenshottour.h"

#include "devservicefixture.h"
#include "livesession.h"
#include "panelcamera.h"
#include "sessionviewmodel.h"
#include "theme.h"
#include "uploadmanager.h"

#include <QCoroTask>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQmlComponent>
#include <QQuickItem>
#include <QQuickWindow>

namespace {
const QString clientName = QStringLiteral("Boda Marta y Javier");
const QString nestedFolder = QStringLiteral(
    "Clientes/2026/Noviembre/Boda Marta y Javier/Ceremonia en la finca/Tethering/Capture One");
} // namespace

ScreenshotTour::ScreenshotTour(DevService &service, const QDir &output)
    : m_service(service)
    , m_output(output) {}

ScreenshotTour::~ScreenshotTour() {
    // The screens hold the controller: they go first.
    m_camera.reset();
    m_engine.reset();
}

QStringList ScreenshotTour::written() const {
    return m_camera ? m_camera->written() : QStringList();
}

bool ScreenshotTour::fail(const QString &message) {
    if (m_error.isEmpty())
        m_error = message;
    return false;
}

bool ScreenshotTour::waitUntil(const std::function<bool()> &condition, int milliseconds) {
    QElapsedTimer waited;
    waited.start();
    while (!condition()) {
        if (waited.elapsed() > milliseconds)
            return false;
        PanelCamera::settle(10);
    }
    return true;
}

bool ScreenshotTour::shoot(const QString &state) {
    return m_camera->shoot(state) || fail(m_camera->errorString());
}

void ScreenshotTour::editSession(const std::function<void(LiveSession &)> &edit) {
    LiveSession session = m_viewModel->session();
    edit(session);
    m_viewModel->setSession(session);
}

bool ScreenshotTour::load() {
    if (!m_folders.isValid())
        return fail(QStringLiteral("no temporary folder"));
    m_watchFolder = m_folders.filePath(nestedFolder);
    if (!QDir().mkpath(m_watchFolder))
        return fail(QStringLiteral("cannot make %1").arg(m_watchFolder));

    m_viewModel = std::make_unique<SessionViewModel>();
    m_viewModel->setFolderChooser(
        [this](const QString &) { return std::optional(QUrl::fromLocalFile(m_watchFolder)); });

    m_engine = std::make_unique<QQmlApplicationEngine>();
    m_engine->setInitialProperties(
        {{QStringLiteral("viewModel"), QVariant::fromValue(m_viewModel.get())}});
    m_engine->load(QUrl(QStringLiteral("qrc:/qt/qml/Quillmere/Live/PanelWindow.qml")));
    const QList<QObject *> roots = m_engine->rootObjects();
    m_window = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(roots.first());
    const int themeType = qmlTypeId("Quillmere.Live", 1, 0, "Theme");
    auto *theme = m_engine->singletonInstance<Theme *>(themeType);
    if (!m_window || !theme)
        return fail(QStringLiteral("the panel did not load"));
    m_window->show();
    m_camera = std::make_unique<PanelCamera>(*m_window, *theme, m_output);
    return true;
}

bool ScreenshotTour::login() {
    if (!shoot(QStringLiteral("login-empty")))
        return false;

    m_viewModel->setEmail(DevService::demoEmail());
    m_viewModel->setPassword(QStringLiteral("no-es-la-clave"));
    QCoro::waitFor(m_viewModel->loginTask());
    if (!m_viewModel->error())
        return fail(QStringLiteral("a wrong password was accepted"));
    if (!shoot(QStringLiteral("login-error")))
        return false;

    // Held back by the service long enough to draw the spinner in both appearances.
    if (!m_service.injectFault(DevService::Fault::withDelay(QStringLiteral("authenticate"), 3000)))
        return fail(QStringLiteral("devservice refused the delay"));
    m_viewModel->setPassword(DevService::demoPassword());
    m_viewModel->login();
    if (!m_viewModel->isAuthenticating() || !shoot(QStringLiteral("login-signing-in")))
        return fail(QStringLiteral("no sign-in under way to draw"));
    if (!waitUntil([this] { return !m_viewModel->isAuthenticating(); }, 10000) ||
        !m_viewModel->hasStoredToken())
        return fail(QStringLiteral("the demo account did not sign in"));
    return true;
}

bool ScreenshotTour::setup() {
    if (!shoot(QStringLiteral("setup-empty")))
        return false;
    m_viewModel->setClientName(clientName);
    m_viewModel->pickFolder();
    if (!shoot(QStringLiteral("setup-long-folder")))
        return false;
    m_viewModel->setClientName(QString());
    QCoro::waitFor(m_viewModel->startSessionTask());
    if (m_viewModel->state() != AppState::setup || !m_viewModel->error())
        return fail(QStringLiteral("a start without a name was not refused"));
    if (!shoot(QStringLiteral("setup-error")))
        return false;
    m_viewModel->setClientName(clientName);
    QCoro::waitFor(m_viewModel->startSessionTask());
    if (m_viewModel->state() != AppState::recording)
        return fail(QStringLiteral("the session did not start: %1")
                        .arg(m_viewModel->error().value_or(QString())));
    return true;
}

bool ScreenshotTour::recording() {
    if (!shoot(QStringLiteral("recording-live")))
        return false;

    QImage photo(1200, 800, QImage::Format_RGB32);
    photo.fill(QColor(0x5B, 0x7F, 0xA6));
    const QString photoPath = QDir(m_watchFolder).filePath(QStringLiteral("IMG_0001.JPG"));
    if (!photo.save(photoPath, "JPEG", 85))
        return fail(QStringLiteral("cannot write %1").arg(photoPath));
    if (!waitUntil([this] { return m_viewModel->uploadManager()->uploadedCount() == 1; }, 20000))
        return fail(QStringLiteral("the photo was not uploaded"));
    if (!shoot(QStringLiteral("recording-one-photo")))
        return false;

    if (!shootQrCode(QStringLiteral("recordingView"), QStringLiteral("recording-qr")))
        return false;

    m_viewModel->setIsPaused(true);
    if (!shoot(QStringLiteral("recording-paused")))
        return false;
    m_viewModel->setIsPaused(false);

    const LiveSession withLink = m_viewModel->session();
    editSession([](LiveSession &session) { session.liveURL.reset(); });
    if (!shoot(QStringLiteral("recording-no-link")))
        return false;
    m_viewModel->setSession(withLink);

    // No session uploads ten thousand photos for a picture: a stand-in counts for the screen.
    QQmlComponent standInType(m_engine.get());
    standInType.setData("import QtQml\nQtObject { property double uploadedCount: 12345 }", QUrl());
    std::unique_ptr<QObject> standIn(standInType.create());
    auto *content = m_window->findChild<QQuickItem *>(QStringLiteral("contentView"));
    if (!standIn || !content)
        return fail(QStringLiteral("no stand-in counter: %1").arg(standInType.errorString()));
    content->setProperty("uploadManager", QVariant::fromValue(standIn.get()));
    const bool shot = shoot(QStringLiteral("recording-five-digits"));
    content->setProperty("uploadManager", QVariant::fromValue(m_viewModel->uploadManager()));
    return shot;
}

bool ScreenshotTour::waiting() {
    // The service turns the photos' authorisations away for a while: they wait, and say so.
    if (!m_service.injectFault(
            DevService::Fault::withStatus(QStringLiteral("presign"), 503, {}, 100000)))
        return fail(QStringLiteral("no fault for the waiting photos"));
    for (const QString &name : {QStringLiteral("IMG_0002.JPG"), QStringLiteral("IMG_0003.JPG")}) {
        QImage photo(1200, 800, QImage::Format_RGB32);
        photo.fill(QColor(0x8A, 0x6F, 0x5B));
        if (!photo.save(QDir(m_watchFolder).filePath(name), "JPEG", 85))
            return fail(QStringLiteral("cannot write %1").arg(name));
    }
    if (!waitUntil([this] { return m_viewModel->waitingCount() == 2; }, 20000))
        return fail(QStringLiteral("the photos were not seen waiting"));
    if (!shoot(QStringLiteral("recording-waiting")))
        return false;
    QCoro::waitFor(m_viewModel->stopSessionTask());
    if (m_viewModel->state() != AppState::finished)
        return fail(QStringLiteral("the session did not stop"));
    if (!shoot(QStringLiteral("finished-waiting")))
        return false;
    // The service takes them again; the screens after this one have nothing waiting.
    if (!m_service.clearFaults())
        return fail(QStringLiteral("the faults stayed"));
    if (!waitUntil([this] { return m_viewModel->originalsOwed() == 0; }, 60000))
        return fail(QStringLiteral("the waiting photos were not delivered"));
    return true;
}

bool ScreenshotTour::finished() {
    const LiveSession stopped = m_viewModel->session();

    editSession([](LiveSession &session) {
        session.uploadedCount = 128;
        session.fullResUploaded = 3;
        session.fullResTotal = 10;
    });
    if (!shoot(QStringLiteral("finished-originals-gallery")))
        return false;
    editSession([](LiveSession &session) { session.galleryURL.reset(); });
    if (!shoot(QStringLiteral("finished-originals-only")))
        return false;
    editSession([&stopped](LiveSession &session) {
        session.fullResUploaded = 10;
        session.galleryURL = stopped.galleryURL;
    });
    if (!shoot(QStringLiteral("finished-gallery-only")))
        return false;
    if (!shootQrCode(QStringLiteral("finishedView"), QStringLiteral("finished-qr")))
        return false;
    editSession([](LiveSession &session) {
        session.uploadedCount = 0;
        session.fullResUploaded = 0;
        session.fullResTotal = 0;
        session.galleryURL.reset();
    });
    return shoot(QStringLiteral("finished-plain"));
}

bool ScreenshotTour::shootQrCode(const QString &screen, const QString &state) {
    auto *view = m_window->findChild<QQuickItem *>(screen);
    if (!view)
        return fail(QStringLiteral("no %1 to show a QR code on").arg(screen));
    view->setProperty("qrShown", true);
    const bool shot = shoot(state);
    view->setProperty("qrShown", false);
    return shot;
}

void ScreenshotTour::restartController() {
    auto restarted = std::make_unique<SessionViewModel>();
    restarted->setFolderChooser(
        [this](const QString &) { return std::optional(QUrl::fromLocalFile(m_watchFolder)); });
    m_window->setProperty("viewModel", QVariant::fromValue(restarted.get()));
    // The screens let go of the old controller before it goes.
    PanelCamera::settle(10);
    m_viewModel = std::move(restarted);
}

bool ScreenshotTour::resumed() {
    m_viewModel->newSession();
    m_viewModel->setClientName(QStringLiteral("Ana Muñoz & Co"));
    m_viewModel->pickFolder();
    QCoro::waitFor(m_viewModel->startSessionTask());
    if (m_viewModel->state() != AppState::recording)
        return fail(QStringLiteral("the session to quit from did not start"));
    m_viewModel->recordQuit();
    restartController();
    // A photo the camera wrote while the program was away.
    QImage photo(1200, 800, QImage::Format_RGB32);
    photo.fill(QColor(0x6B, 0x8A, 0x5B));
    if (!photo.save(QDir(m_watchFolder).filePath(QStringLiteral("IMG_0004.JPG")), "JPEG", 85))
        return fail(QStringLiteral("cannot write the photo shot meanwhile"));
    if (!m_viewModel->resumeOffer().isValid())
        return fail(QStringLiteral("the session quit from was not offered"));
    if (!shoot(QStringLiteral("setup-continue")))
        return false;
    m_viewModel->continueSession();
    if (m_viewModel->state() != AppState::recording ||
        !waitUntil([this] { return m_viewModel->uploadManager()->uploadedCount() == 1; }, 20000))
        return fail(QStringLiteral("the session was not taken up again"));
    return shoot(QStringLiteral("recording-resumed"));
}

bool ScreenshotTour::run() {
    return load() && (m_camera->shootTrayIcons() || fail(m_camera->errorString())) && login() &&
           setup() && recording() && waiting() && finished() && resumed();
}
