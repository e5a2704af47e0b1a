// SPDX-License-Identifier: MIT
// The four screens and the panel's frame under Qt Quick Test, driven against a real controller
// and devservice; the test cases are the qml/tst_*.qml files.
#include "apiclient.h"
#include "devservicefixture.h"
#include "passwordfieldaccessible.h"
#include "scopedpreferences.h"
#include "screenharness.h"

#include <QQmlEngine>
#include <QtQml/QQmlExtensionPlugin>
#include <QtQuickTest>
#include <memory>

Q_IMPORT_QML_PLUGIN(Quillmere_LivePlugin)

class ScreensSetup : public QObject {
    Q_OBJECT

public Q_SLOTS:
    void applicationAvailable() {
        PasswordFieldAccessible::install(); // as the program does
        m_preferences = std::make_unique<ScopedPreferences>();
        m_service = std::make_unique<DevService>();
        if (!m_service->start())
            qFatal("devservice: %s", qPrintable(m_service->errorString()));
        APIClient::redirectShared(m_service->baseURL(), m_service->storageHost());

        // One harness, with its own controller, for each test file's engine.
        qmlRegisterSingletonType<ScreenHarness>(
            "Quillmere.Test", 1, 0, "Harness", [this](QQmlEngine *, QJSEngine *) -> QObject * {
                return new ScreenHarness(*m_service, *m_preferences);
            });
    }

    void qmlEngineAvailable(QQmlEngine *engine) {
        // Where the module's qmldir lies; Qt 6.4 does not look there by itself.
        engine->addImportPath(QStringLiteral("qrc:/qt/qml"));
    }

    void cleanupTestCase() {
        m_service.reset();
        m_preferences.reset();
    }

private:
    std::unique_ptr<ScopedPreferences> m_preferences;
    std::unique_ptr<DevService> m_service;
};

QUICK_TEST_MAIN_WITH_SETUP(screens, ScreensSetup)

#include "tst_screens.moc"
