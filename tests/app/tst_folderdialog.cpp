// SPDX-License-Identifier: MIT
// The folder chooser the setup screen opens, as the photographer meets it on a desktop that
// offers no dialog of its own: Qt's, in Spanish like the rest of the program, with the prompt
// as its title; choosing a folder answers it, cancelling answers nothing.
#include "folderpanel.h"
#include "qttexts.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <functional>

namespace {
const QString prompt = QStringLiteral("Selecciona la carpeta donde llegarán las fotos");

// Runs `act` on the folder dialog once it is up, while FolderPanel::ask waits for it.
void whenTheDialogIsUp(const std::function<void(QFileDialog *)> &act) {
    auto *poll = new QTimer;
    poll->setInterval(20);
    QObject::connect(poll, &QTimer::timeout, poll, [poll, act] {
        auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        poll->stop();
        poll->deleteLater();
        act(dialog);
    });
    poll->start();
}

QString labelText(const QFileDialog *dialog, const char *name) {
    const auto *label = dialog->findChild<QLabel *>(QLatin1String(name));
    return label ? label->text() : QStringLiteral("(no %1)").arg(QLatin1String(name));
}
} // namespace

class TestFolderDialog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void spanishTextsAndThePromptAsTitle();
    void choosingAFolderAnswersIt();
};

void TestFolderDialog::initTestCase() {
    QVERIFY2(QtTexts::installSpanish(*QCoreApplication::instance()),
             "Qt's Spanish translations are not installed (qt6-translations-l10n)");
}

void TestFolderDialog::spanishTextsAndThePromptAsTitle() {
    QString title, lookIn, folderLabel;
    QStringList buttons;
    whenTheDialogIsUp([&](QFileDialog *dialog) {
        title = dialog->windowTitle();
        lookIn = labelText(dialog, "lookInLabel");
        folderLabel = labelText(dialog, "fileNameLabel");
        if (const auto *box = dialog->findChild<QDialogButtonBox *>())
            for (const QAbstractButton *button : box->buttons())
                buttons.append(button->text());
        dialog->reject();
    });
    QCOMPARE(FolderPanel::ask(prompt), std::nullopt);
    QCOMPARE(title, prompt);
    QCOMPARE(lookIn, QStringLiteral("Ver en:"));
    QCOMPARE(folderLabel, QStringLiteral("Directorio:"));
    buttons.sort();
    QCOMPARE(buttons, (QStringList{QStringLiteral("&Seleccionar"), QStringLiteral("Cancelar")}));
}

void TestFolderDialog::choosingAFolderAnswersIt() {
    QTemporaryDir home;
    QVERIFY(home.isValid());
    const QString folder = home.filePath(QStringLiteral("Sesión de boda"));
    QVERIFY(QDir().mkpath(folder));
    whenTheDialogIsUp([&](QFileDialog *dialog) {
        // As a person types the path into the folder field and presses Return.
        auto *field = dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"));
        QVERIFY(field);
        field->setText(folder);
        QTest::keyClick(field, Qt::Key_Return);
    });
    const std::optional<QUrl> answer = FolderPanel::ask(prompt);
    QVERIFY(answer);
    QCOMPARE(answer->toLocalFile(), folder);
}

int main(int argc, char *argv[]) {
    // Qt's own dialog: the one every desktop without a dialog of its own shows.
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    QApplication application(argc, argv);
    TestFolderDialog test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_folderdialog.moc"
