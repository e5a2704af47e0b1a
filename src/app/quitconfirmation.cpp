// SPDX-License-Identifier: MIT
#include "quitconfirmation.h"

#include "sessionviewmodel.h"

#include <QMessageBox>
#include <QPushButton>

QuitConfirmation::QuitConfirmation(SessionViewModel &viewModel, Asker asker, QObject *parent)
    : QObject(parent)
    , m_viewModel(viewModel)
    , m_asker(std::move(asker))
{
}

void QuitConfirmation::request()
{
    // The tray's menu and the panel's row can both ask while the question is up.
    if (m_asking)
        return;
    const QVariant warning = m_viewModel.quitWarning();
    if (warning.isValid()) {
        m_asking = true;
        const bool quit = m_asker(warning.toString());
        m_asking = false;
        if (!quit)
            return;
    }
    Q_EMIT quitConfirmed();
}

bool QuitConfirmation::askWithMessageBox(const QString &explanation)
{
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Quillmere Live"), question);
    box.setInformativeText(explanation);
    QPushButton *quit = box.addButton(quitButton, QMessageBox::DestructiveRole);
    QPushButton *cancel = box.addButton(cancelButton, QMessageBox::RejectRole);
    box.setDefaultButton(cancel);
    box.setEscapeButton(cancel);
    box.exec();
    return box.clickedButton() == quit;
}
