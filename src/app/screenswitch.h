// SPDX-License-Identifier: MIT
#pragma once

#include "appstate.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QtQml/qqml.h>

class SessionViewModel;
Q_MOC_INCLUDE("sessionviewmodel.h")

// Which screen the panel shows. QML cannot name the controller's lower-case AppState keys, so
// the choice is made here and handed to the panel as an enumeration of its own.
class ScreenSwitch : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(
        SessionViewModel *viewModel READ viewModel WRITE setViewModel NOTIFY viewModelChanged)
    Q_PROPERTY(Screen screen READ screen NOTIFY screenChanged)

public:
    // None leaves the slot above the divider empty.
    enum class Screen { None, Login, Setup, Recording, Finished };
    Q_ENUM(Screen)

    explicit ScreenSwitch(QObject *parent = nullptr);

    // Without a stored token the login screen, whatever the state; a recording is shown only
    // while there is an upload manager to count for it.
    static Screen choose(bool hasStoredToken, AppState state, bool hasUploadManager);
    // The screen the controller calls for right now.
    static Screen current(const SessionViewModel &viewModel);
    static QString name(Screen screen);

    SessionViewModel *viewModel() const { return m_viewModel; }
    void setViewModel(SessionViewModel *viewModel);
    Screen screen() const { return m_screen; }

    // Looks again. Every change the controller announces does this; the token is not observed.
    Q_INVOKABLE void refresh();

Q_SIGNALS:
    void viewModelChanged();
    void screenChanged();

private:
    QPointer<SessionViewModel> m_viewModel;
    QList<QMetaObject::Connection> m_changes;
    Screen m_screen = Screen::None;
};
