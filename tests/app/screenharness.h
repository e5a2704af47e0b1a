// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QTemporaryDir>
#include <QVariantMap>
#include <memory>
#include <optional>

class DevService;
class QQuickItem;
class ScopedPreferences;
class SessionViewModel;
Q_MOC_INCLUDE("sessionviewmodel.h")
Q_MOC_INCLUDE(<QQuickItem>)

// What the screen tests reach as the singleton Harness: a real controller against devservice,
// and the few things a person does outside the panel (answer the folder panel, drop a photo
// into the folder, paste) or that set the stage (a stored token, a record's counts). The
// operations that wait for the service spin the event loop until they are done.
class ScreenHarness : public QObject {
    Q_OBJECT
    Q_PROPERTY(SessionViewModel *viewModel READ viewModel CONSTANT)

public:
    ScreenHarness(DevService &service, ScopedPreferences &preferences, QObject *parent = nullptr);
    ~ScreenHarness() override;

    SessionViewModel *viewModel() const { return m_viewModel.get(); }

    // Back to a first start: no token, no session, no error, empty fields, nothing planned.
    Q_INVOKABLE bool reset();
    Q_INVOKABLE QString stateName() const;

    // Signs in through the controller with the demo account, as the login screen does.
    Q_INVOKABLE bool signIn();
    Q_INVOKABLE void forgetToken();
    Q_INVOKABLE bool hasStoredToken() const;
    // The service holds the next sign-in back this long.
    Q_INVOKABLE bool delaySignIn(int milliseconds);
    Q_INVOKABLE int requestCount(const QString &endpoint);
    // The service answers the next call of `endpoint` with `status` and nothing else.
    Q_INVOKABLE bool refuseNext(const QString &endpoint, int status);

    // A folder under this harness's temporary folder (made if needed), and the answer the
    // folder panel gives next: that folder, or a cancel for an empty path.
    Q_INVOKABLE QString makeFolder(const QString &relativePath);
    Q_INVOKABLE void answerFolderPanel(const QString &path);
    Q_INVOKABLE int folderPanelShown() const { return m_folderPanelShown; }

    // Signed in, a name and a folder, and the session started on the service.
    Q_INVOKABLE bool startRecording(const QString &clientName);
    Q_INVOKABLE bool stopRecording();
    // A complete JPEG written into the watch folder, as a camera would.
    Q_INVOKABLE bool dropPhoto(const QString &fileName);

    // Sets fields of the controller's record. Counters by name; "liveURL" and "galleryURL" to
    // a text, or to null for none.
    Q_INVOKABLE void editSession(const QVariantMap &changes);

    // Presses the item through its accessibility interface, as a screen reader would. False
    // when the item offers no press action.
    Q_INVOKABLE bool pressAccessibly(QQuickItem *item) const;
    // Every text an assistive tool can read from the item through its accessibility interface
    // ("name", "value", "description", and "text" from its text interface), with "password"
    // telling whether it declares itself a password field. Empty when it has no interface.
    Q_INVOKABLE QVariantMap accessibleReading(QQuickItem *item) const;
    Q_INVOKABLE QString clipboardText() const;
    // Every text drawn under `root`; the drawn texts no assistive tool is told of; an item's
    // accessible value (see AccessibleTexts).
    Q_INVOKABLE QStringList visibleTexts(QQuickItem *root) const;
    Q_INVOKABLE QStringList unexposedTexts(QQuickItem *root) const;
    Q_INVOKABLE QVariantMap accessibleValue(QQuickItem *item) const;

private:
    DevService &m_service;
    ScopedPreferences &m_preferences;
    QTemporaryDir m_folders;
    std::unique_ptr<SessionViewModel> m_viewModel;
    std::optional<QString> m_folderAnswer;
    QString m_watchFolder;
    int m_folderPanelShown = 0;
};
