// SPDX-License-Identifier: MIT
#include "headlessprogram.h"

#include "apiclient.h"
#include "delivery.h"
#include "deliveryjournal.h"
#include "devservicefixture.h"
#include "preferences.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "uploadmanager.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QDir>
#include <QFile>
#include <QSocketNotifier>
#include <cstdio>
#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

namespace {

constexpr const char *programVariable = "QUILLMERE_HEADLESS_PROGRAM";
const QString fillerName = QStringLiteral("filler.bin");

void say(const QString &line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

QString textOr(const QVariant &value, const QString &otherwise) {
    return value.isValid() ? value.toString() : otherwise;
}

QString screenName(AppState state) {
    switch (state) {
    case AppState::setup:
        return QStringLiteral("setup");
    case AppState::recording:
        return QStringLiteral("recording");
    case AppState::finished:
        break;
    }
    return QStringLiteral("finished");
}

// Writes until the disk says it is full; what is left of the last write stays.
bool fillDisk(const QString &folder) {
    QFile filler(QDir(folder).filePath(fillerName));
    if (!filler.open(QIODevice::WriteOnly))
        return false;
    const QByteArray block(64 * 1024, 'x');
    while (filler.write(block) == block.size() && filler.flush()) {
    }
    return true;
}

// Says what the controller shows, each time it changes, and does what the test asks.
class Program : public QObject {
public:
    Program()
        : m_model(new SessionViewModel(this)) {
        connect(m_model, &SessionViewModel::stateChanged, this, &Program::reportScreen);
        connect(m_model, &SessionViewModel::sessionChanged, this, &Program::reportScreen);
        connect(m_model, &SessionViewModel::isPausedChanged, this,
                [this] { say(QStringLiteral("paused %1").arg(m_model->isPaused() ? 1 : 0)); });
        connect(m_model, &SessionViewModel::resumeOfferChanged, this, [this] {
            say(QStringLiteral("offer ") + textOr(m_model->resumeOffer(), QStringLiteral("none")));
        });
        connect(m_model, &SessionViewModel::resumeNoticeChanged, this, [this] {
            if (m_model->resumeNotice().isValid())
                say(QStringLiteral("resumed ") + m_model->resumeNotice().toString());
        });
        connect(m_model, &SessionViewModel::folderNoticeChanged, this, [this] {
            change(m_folder, QStringLiteral("folder "),
                   textOr(m_model->folderNotice(), QStringLiteral("ok")));
        });
        connect(m_model, &SessionViewModel::errorChanged, this, [this] {
            if (m_model->error())
                say(QStringLiteral("error ") + *m_model->error());
        });
        connect(m_model, &SessionViewModel::deliveriesChanged, this, &Program::reportDeliveries);
        connect(m_model, &SessionViewModel::uploadManagerChanged, this, &Program::follow);
#ifdef Q_OS_UNIX
        m_commands = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
        connect(m_commands, &QSocketNotifier::activated, this, &Program::readCommands);
#endif
        // How the program stands as it starts, whatever it took up from its journal.
        reportScreen();
        if (m_model->state() == AppState::recording)
            say(QStringLiteral("paused %1").arg(m_model->isPaused() ? 1 : 0));
        say(QStringLiteral("offer ") + textOr(m_model->resumeOffer(), QStringLiteral("none")));
        if (m_model->resumeNotice().isValid())
            say(QStringLiteral("resumed ") + m_model->resumeNotice().toString());
        reportDeliveries();
        follow();
        change(m_folder, QStringLiteral("folder "),
               textOr(m_model->folderNotice(), QStringLiteral("ok")));
    }

private:
    static void change(QString &last, const QString &prefix, const QString &now) {
        if (std::exchange(last, now) != now)
            say(prefix + now);
    }

    void reportScreen() {
        change(m_screen, QStringLiteral("screen "),
               screenName(m_model->state()) + QLatin1Char(' ') +
                   QString::number(m_model->session().folderId.value_or(0)));
    }

    void reportDeliveries() {
        change(m_owed, QStringLiteral("owed "),
               QString::number(m_model->deliveries().unfinishedCount()));
        change(m_notice, QStringLiteral("notice "),
               textOr(m_model->deliveryNotice(), QStringLiteral("none")));
        change(m_refused, QStringLiteral("refused "),
               textOr(m_model->refusedNotice(), QStringLiteral("none")));
        change(m_journal, QStringLiteral("journal "),
               textOr(m_model->journalNotice(), QStringLiteral("ok")));
    }

    void follow() {
        UploadManager *manager = m_model->uploadManager();
        if (!manager)
            return;
        const auto counts = [this, manager] {
            change(m_uploaded, QStringLiteral("uploaded "),
                   QString::number(manager->uploadedCount()));
            change(m_stored, QStringLiteral("stored "),
                   QString::number(manager->fullResUploaded()));
        };
        connect(manager, &UploadManager::uploadedCountChanged, this, counts);
        connect(manager, &UploadManager::fullResUploadedChanged, this, counts);
        m_uploaded.clear();
        m_stored.clear();
        counts();
    }

    void readCommands() {
#ifdef Q_OS_UNIX
        char buffer[256];
        const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count <= 0) {
            m_commands->setEnabled(false); // the test is gone
            return;
        }
        m_pending.append(buffer, count);
        qsizetype end;
        while ((end = m_pending.indexOf('\n')) >= 0) {
            const QString line = QString::fromUtf8(m_pending.left(end)).trimmed();
            m_pending.remove(0, end + 1);
            obey(line);
        }
#endif
    }

    void obey(const QString &line) {
        const QString command = line.section(QLatin1Char(' '), 0, 0);
        const QString argument = line.section(QLatin1Char(' '), 1);
        if (command == QLatin1String("signin")) {
            signIn();
        } else if (command == QLatin1String("start")) {
            start(argument);
        } else if (command == QLatin1String("pause") || command == QLatin1String("unpause")) {
            m_model->setIsPaused(command == QLatin1String("pause"));
        } else if (command == QLatin1String("stop")) {
            m_model->stopSession();
        } else if (command == QLatin1String("new")) {
            m_model->newSession();
        } else if (command == QLatin1String("continue")) {
            m_model->continueSession();
        } else if (command == QLatin1String("quit")) {
            m_model->recordQuit();
            QCoreApplication::quit();
        } else if (command == QLatin1String("fill")) {
            say(fillDisk(argument) ? QStringLiteral("filled") : QStringLiteral("cannot fill"));
        } else if (command == QLatin1String("unfill")) {
            QFile::remove(QDir(argument).filePath(fillerName));
            say(QStringLiteral("unfilled"));
        }
    }

    void signIn() {
        m_model->setEmail(DevService::demoEmail());
        m_model->setPassword(DevService::demoPassword());
        [](QPointer<SessionViewModel> model) -> QCoro::Task<> {
            QCoro::Task<> signingIn = model->loginTask();
            co_await signingIn;
            if (const SessionViewModel *signedIn = model.data(); signedIn && !signedIn->error())
                say(QStringLiteral("signed in"));
        }(m_model);
    }

    void start(const QString &clientName) {
        const QUrl folder = QUrl::fromLocalFile(qEnvironmentVariable("CHILD_FOLDER"));
        m_model->setClientName(clientName);
        m_model->setFolderChooser([folder](const QString &) { return std::optional(folder); });
        m_model->pickFolder();
        m_model->startSession();
    }

    SessionViewModel *m_model;
    QSocketNotifier *m_commands = nullptr;
    QByteArray m_pending;
    QString m_screen, m_folder, m_owed, m_notice, m_refused, m_journal, m_uploaded, m_stored;
};

} // namespace

bool HeadlessProgram::isProgram() {
    return !qEnvironmentVariableIsEmpty(programVariable);
}

QString HeadlessProgram::path() {
    return QCoreApplication::applicationFilePath();
}

int HeadlessProgram::run() {
    Preferences::useFile(qEnvironmentVariable("CHILD_PREFERENCES"));
    DeliveryJournal::setPathForTests(qEnvironmentVariable("CHILD_JOURNAL"));
    APIClient::redirectShared(qEnvironmentVariable("CHILD_SERVICE"),
                              qEnvironmentVariable("CHILD_STORAGE"));
    Program program;
    return QCoreApplication::exec();
}

QProcessEnvironment HeadlessProgram::environment(SessionHarness &harness) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(programVariable), QStringLiteral("1"));
    environment.insert(QStringLiteral("CHILD_PREFERENCES"), harness.preferences().file());
    environment.insert(QStringLiteral("CHILD_JOURNAL"), harness.preferences().journalPath());
    environment.insert(QStringLiteral("CHILD_SERVICE"), harness.service().baseURL());
    environment.insert(QStringLiteral("CHILD_STORAGE"), harness.service().storageHost());
    environment.insert(QStringLiteral("CHILD_FOLDER"), harness.folderPath());
    return environment;
}
