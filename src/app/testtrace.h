// SPDX-License-Identifier: MIT
#pragma once

#include "screenswitch.h"

#include <QMetaObject>
#include <QObject>
#include <QPointer>

class SessionViewModel;
class UploadManager;

// For the end-to-end test that drives the program from outside, as a person would: with
// QUILLMERE_TEST_TRACE set, one line on standard output for every change of the screen shown
// ("screen setup"), of the upload count ("uploaded 3") and of the control that has the
// keyboard focus ("focus Detener"). Off otherwise, and absent from shipped builds.
class TestTrace : public QObject {
    Q_OBJECT

public:
    static bool enabled();

    explicit TestTrace(SessionViewModel &viewModel, QObject *parent = nullptr);
    ~TestTrace() override;

private:
    void follow(UploadManager *manager);
    void reportFocus(QObject *focused);
    static void say(const QString &line);

    SessionViewModel &m_viewModel;
    ScreenSwitch m_screen;
    QPointer<UploadManager> m_manager;
    QMetaObject::Connection m_counter;
    qint64 m_lastCount = -1;
};
