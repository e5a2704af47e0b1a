// SPDX-License-Identifier: MIT
#include "screenswitch.h"

#include "sessionviewmodel.h"

#include <QMetaEnum>
#include <QMetaProperty>

ScreenSwitch::ScreenSwitch(QObject *parent)
    : QObject(parent) {}

ScreenSwitch::Screen ScreenSwitch::choose(bool hasStoredToken, AppState state,
                                          bool hasUploadManager) {
    if (!hasStoredToken)
        return Screen::Login;
    switch (state) {
    case AppState::setup:
        return Screen::Setup;
    case AppState::recording:
        return hasUploadManager ? Screen::Recording : Screen::None;
    case AppState::finished:
        return Screen::Finished;
    }
    return Screen::None;
}

ScreenSwitch::Screen ScreenSwitch::current(const SessionViewModel &viewModel) {
    return choose(viewModel.hasStoredToken(), viewModel.state(),
                  viewModel.uploadManager() != nullptr);
}

QString ScreenSwitch::name(Screen screen) {
    return QString::fromLatin1(QMetaEnum::fromType<Screen>().valueToKey(int(screen))).toLower();
}

void ScreenSwitch::setViewModel(SessionViewModel *viewModel) {
    if (m_viewModel == viewModel)
        return;
    for (const QMetaObject::Connection &connection : std::as_const(m_changes))
        disconnect(connection);
    m_changes.clear();
    m_viewModel = viewModel;
    if (viewModel) {
        // Every announced change, not a chosen few: the screen is whatever the controller and
        // the token say at the moment, as if the panel were drawn anew.
        const QMetaObject *type = viewModel->metaObject();
        const QMetaMethod look = metaObject()->method(metaObject()->indexOfMethod("refresh()"));
        for (int i = type->propertyOffset(); i < type->propertyCount(); ++i) {
            const QMetaProperty property = type->property(i);
            if (property.hasNotifySignal())
                m_changes.append(connect(viewModel, property.notifySignal(), this, look));
        }
        m_changes.append(connect(viewModel, &QObject::destroyed, this, &ScreenSwitch::refresh,
                                 Qt::QueuedConnection));
    }
    Q_EMIT viewModelChanged();
    refresh();
}

void ScreenSwitch::refresh() {
    const Screen screen = m_viewModel ? current(*m_viewModel) : Screen::None;
    if (screen == m_screen)
        return;
    m_screen = screen;
    Q_EMIT screenChanged();
}
