// SPDX-License-Identifier: MIT
// Draws every screen in every state worth seeing, light and dark, to PNG files in the folder
// given on the command line (else the build folder's "screenshots").
#include "apiclient.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "screenshottour.h"

#include <QDir>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QtQml/QQmlExtensionPlugin>
#include <cstdio>

Q_IMPORT_QML_PLUGIN(Quillmere_LivePlugin)

int main(int argc, char *argv[]) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Pictures without a GPU: the software renderer draws the same on every machine.
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QGuiApplication application(argc, argv);

    const QStringList arguments = QGuiApplication::arguments();
    const QDir output(arguments.size() > 1 ? arguments.at(1)
                                           : QStringLiteral(QUILLMERE_SCREENSHOT_DIR));
    if (!QDir().mkpath(output.path())) {
        std::fprintf(stderr, "cannot make %s\n", qPrintable(output.path()));
        return 1;
    }

    DevService service;
    if (!service.start()) {
        std::fprintf(stderr, "devservice: %s\n", qPrintable(service.errorString()));
        return 1;
    }
    APIClient::redirectShared(service.baseURL(), service.storageHost());
    const ScopedPreferences preferences;

    ScreenshotTour tour(service, output);
    const bool ok = tour.run();
    for (const QString &path : tour.written())
        std::printf("%s\n", qPrintable(path));
    if (!ok)
        std::fprintf(stderr, "%s\n", qPrintable(tour.errorString()));
    return ok ? 0 : 1;
}
