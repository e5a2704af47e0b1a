// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>

#include <functional>

class SessionViewModel;

// Quitting while photos wait or originals are on their way asks first: how many, and that they
// go out the next time the program runs. Nothing asked when nothing is owed.
class QuitConfirmation : public QObject {
    Q_OBJECT
public:
    // Asks the question with the given explanation; true to quit. The app shows a native
    // message box; tests answer it themselves.
    using Asker = std::function<bool(const QString &explanation)>;

    static inline const QString question = QStringLiteral("¿Salir de Quillmere Live?");
    static inline const QString quitButton = QStringLiteral("Salir");
    static inline const QString cancelButton = QStringLiteral("Cancelar");

    QuitConfirmation(SessionViewModel &viewModel, Asker asker, QObject *parent = nullptr);

    // The platform's message box, with Cancel as the default answer.
    static bool askWithMessageBox(const QString &explanation);

public Q_SLOTS:
    // Quits the application, at once or once the photographer says so.
    void request();

Q_SIGNALS:
    void quitConfirmed();

private:
    SessionViewModel &m_viewModel;
    Asker m_asker;
    bool m_asking = false;
};
