// SPDX-License-Identifier: MIT
#pragma once

#include "apiclient.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "sessionviewmodel.h"

#include <QTemporaryDir>

#include <cstdio>
#include <functional>
#include <memory>

// What the session benchmarks share: devservice on loopback with the process-wide client
// pointed at it, and the controller signed in and recording a folder of its own.

// Runs the event loop, sleeping between looks, until the condition holds or the limit passes.
// The looks are 20 ms apart so the waiting itself costs next to nothing in the idle figure.
bool waitUntil(const std::function<bool()> &condition, int limitMs);

struct Session {
    DevService service;
    ScopedPreferences preferences;
    QTemporaryDir folder;
    std::unique_ptr<SessionViewModel> model;

    // `servicePort` 0 lets devservice pick a free one; a shaped link that slows one direction
    // only needs to know it beforehand.
    bool open(quint16 servicePort = 0)
    {
        const QStringList port = servicePort == 0
            ? QStringList()
            : QStringList{QStringLiteral("--port"), QString::number(servicePort)};
        if (!service.start(DevService::Transport::http, {}, port)) {
            std::fprintf(stderr, "devservice: %s\n", qPrintable(service.errorString()));
            return false;
        }
        APIClient::redirectShared(service.baseURL(), service.storageHost());
        model = std::make_unique<SessionViewModel>();
        return true;
    }

    bool start()
    {
        model->setEmail(DevService::demoEmail());
        model->setPassword(DevService::demoPassword());
        model->login();
        if (!waitUntil([&] { return model->hasStoredToken() && !model->isAuthenticating(); }, 10000))
            return false;
        model->setClientName(QStringLiteral("Benchmark"));
        const QUrl url = QUrl::fromLocalFile(folder.path());
        model->setFolderChooser([url](const QString &) { return std::optional(url); });
        model->pickFolder();
        model->startSession();
        return waitUntil([&] { return model->state() == AppState::recording; }, 10000);
    }
};

