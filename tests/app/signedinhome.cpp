// SPDX-License-Identifier: MIT
#include "signedinhome.h"

#include "devservicefixture.h"
#include "tracedapp.h"
#include "virtualdisplay.h"

#include <QDir>
#include <QSettings>
#include <QTest>

namespace {
constexpr int settles = 30000;

bool failed(const QString &why) {
    QTest::qFail(qPrintable(why), __FILE__, __LINE__);
    return false;
}
} // namespace

bool SignedInHome::prepare(DevService &service, const QString &watchFolderName) {
    if (!m_home.isValid())
        return failed(QStringLiteral("no temporary home"));
    m_watchFolder = m_home.filePath(watchFolderName);
    if (!QDir().mkpath(m_watchFolder))
        return failed(QStringLiteral("cannot make ") + m_watchFolder);
    m_serviceURL = service.baseURL();
    m_storageHost = service.storageHost();
    QSettings stored(m_home.filePath(QStringLiteral("config/Quillmere/QuillmereLive.conf")),
                     QSettings::IniFormat);
    stored.setValue(QStringLiteral("api_token"), service.demoToken());
    stored.sync();
    return stored.status() == QSettings::NoError ||
           failed(QStringLiteral("the token could not be stored"));
}

QProcessEnvironment SignedInHome::environment(const QString &display,
                                              const QString &appearance) const {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), display);
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                       m_home.filePath(QStringLiteral("config")));
    // Where the program keeps its journal.
    environment.insert(QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data")));
    environment.insert(QStringLiteral("QUILLMERE_SERVICE_URL"), m_serviceURL);
    environment.insert(QStringLiteral("QUILLMERE_STORAGE_HOST"), m_storageHost);
    environment.insert(QStringLiteral("QUILLMERE_TEST_FOLDER"), m_watchFolder);
    environment.insert(QStringLiteral("QUILLMERE_TEST_TRACE"), QStringLiteral("1"));
    environment.insert(QStringLiteral("QUILLMERE_APPEARANCE"), appearance);
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    return environment;
}

bool SignedInHome::startSession(TracedApp &app, const QString &client) {
    if (!app.waitFor(QStringLiteral("screen setup"), settles))
        return failed(QStringLiteral("no setup screen:\n") + app.transcript());
    const QString window = VirtualDisplay::findWindow(QStringLiteral("Quillmere Live"));
    if (window.isEmpty() ||
        !VirtualDisplay::xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), window}))
        return failed(QStringLiteral("the window cannot be focused"));
    if (!app.waitForLatest(QStringLiteral("focus "), QStringLiteral("focus Cliente"), 10000))
        return failed(QStringLiteral("the client's field has no focus:\n") + app.transcript());
    if (!VirtualDisplay::xdotool(
            {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("30"), client}))
        return failed(QStringLiteral("the client's name could not be typed"));
    const bool started = app.send(QStringLiteral("press Seleccionar carpeta...")) &&
                         app.waitFor(QStringLiteral("pressed Seleccionar carpeta..."), 10000) &&
                         app.send(QStringLiteral("press Iniciar")) &&
                         app.waitFor(QStringLiteral("screen recording"), settles);
    return started || failed(QStringLiteral("the session did not start:\n") + app.transcript());
}
