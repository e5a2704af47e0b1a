// SPDX-License-Identifier: MIT
// The program killed in the middle of a shoot (kill -9) and started again: what it had been
// handed is delivered, into its own session, each photo exactly once, and the photographer
// sees it happen. The program runs as a child process of the test, killed for real.
#include "apiclient.h"
#include "deliveryjournal.h"
#include "deliveryqueue.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "taskoutcome.h"
#include "uploadmanager.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSettings>
#include <QTest>

#include <cstdio>

namespace {

constexpr const char *childVariable = "QUILLMERE_RESTART_CHILD";

void say(const QString &line)
{
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

// The child: the controller alone, headless, as the program runs it. "shoot" signs in and
// records the folder; "resume" only starts, as the program does after a restart.
int runChild(const QString &mode)
{
    const QString settings = qEnvironmentVariable("CHILD_SETTINGS");
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settings);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settings);
    DeliveryJournal::setPathForTests(qEnvironmentVariable("CHILD_JOURNAL"));
    APIClient::redirectShared(qEnvironmentVariable("CHILD_SERVICE"),
                              qEnvironmentVariable("CHILD_STORAGE"));
    auto *model = new SessionViewModel(QCoreApplication::instance());
    QObject::connect(model, &SessionViewModel::deliveriesChanged, model, [model] {
        say(QStringLiteral("owed %1").arg(model->deliveries().unfinishedCount()));
        if (const QVariant notice = model->deliveryNotice(); notice.isValid())
            say(QStringLiteral("notice ") + notice.toString());
    });
    if (mode == QLatin1String("shoot")) {
        model->setEmail(DevService::demoEmail());
        model->setPassword(DevService::demoPassword());
        awaitOutcome(model->loginTask());
        model->setClientName(QStringLiteral("Fernanda"));
        const QUrl folder = QUrl::fromLocalFile(qEnvironmentVariable("CHILD_FOLDER"));
        model->setFolderChooser([folder](const QString &) { return std::optional(folder); });
        model->pickFolder();
        awaitOutcome(model->startSessionTask());
        if (!model->uploadManager())
            return 3;
        QObject::connect(model->uploadManager(), &UploadManager::fullResUploadedChanged, model,
                         [model] {
                             say(QStringLiteral("stored %1")
                                     .arg(model->uploadManager()->fullResUploaded()));
                         });
        say(QStringLiteral("recording %1").arg(*model->session().folderId));
    }
    return QCoreApplication::exec();
}

} // namespace

class RestartTest : public QObject {
    Q_OBJECT

    QProcess *startChild(const QString &mode)
    {
        auto *child = new QProcess(this);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QString::fromLatin1(childVariable), mode);
        environment.insert(QStringLiteral("CHILD_SETTINGS"), m_settings.path());
        environment.insert(QStringLiteral("CHILD_JOURNAL"), m_harness.preferences().journalPath());
        environment.insert(QStringLiteral("CHILD_SERVICE"), m_harness.service().baseURL());
        environment.insert(QStringLiteral("CHILD_STORAGE"), m_harness.service().storageHost());
        environment.insert(QStringLiteral("CHILD_FOLDER"), m_harness.folderPath());
        child->setProcessEnvironment(environment);
        child->start(QCoreApplication::applicationFilePath(), {});
        return child;
    }

    // Waits until the child has printed `line`; everything it printed is kept in `printed`.
    static bool waitForLine(QProcess *child, QByteArray &printed, const QByteArray &line,
                            int milliseconds = 60000)
    {
        QDeadlineTimer deadline(milliseconds);
        while (!printed.split('\n').contains(line)) {
            if (deadline.hasExpired() || child->state() == QProcess::NotRunning)
                return false;
            child->waitForReadyRead(200);
            printed += child->readAllStandardOutput();
        }
        return true;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void aKilledShootIsDeliveredOnceAfterARestart()
    {
        QByteArray printed;
        QProcess *shooting = startChild(QStringLiteral("shoot"));
        QVERIFY2(waitForLine(shooting, printed, "recording 1001"), printed.constData());
        QStringList names;
        for (int i = 1; i <= 3; ++i) {
            names << QStringLiteral("IMG_000%1.JPG").arg(i);
            QVERIFY(m_harness.dropPhoto(names.last(), SessionHarness::photoJpeg(i)));
        }
        QVERIFY2(waitForLine(shooting, printed, "stored 3"), printed.constData());

        // The next registration is certainly under way when the program dies; the previews and
        // originals of the photos after it are wherever they happen to be.
        DevService &service = m_harness.service();
        QVERIFY(service.injectFault(DevService::Fault::withHold(QStringLiteral("register"))));
        for (int i = 4; i <= 6; ++i) {
            names << QStringLiteral("IMG_000%1.JPG").arg(i);
            QVERIFY(m_harness.dropPhoto(names.last(), SessionHarness::photoJpeg(i)));
        }
        QTRY_VERIFY_WITH_TIMEOUT(service.requests(QStringLiteral("register")).size() >= 4, 30000);
        // Every photo handed over, so written down: the journal is read as it stands on disk.
        DeliveryJournal written;
        QVERIFY(written.open(m_harness.preferences().journalPath()));
        QTRY_VERIFY_WITH_TIMEOUT(written.photo(6).has_value(), 30000);
        shooting->kill();
        QVERIFY(shooting->waitForFinished());
        // The held registration goes on without anyone waiting for its answer.
        QVERIFY(service.releaseHeld());

        printed.clear();
        QProcess *resuming = startChild(QStringLiteral("resume"));
        QVERIFY2(waitForLine(resuming, printed, "owed 0", 120000), printed.constData());
        // While it went, the photographer was told what waited.
        const QList<QByteArray> lines = printed.split('\n');
        QVERIFY2(std::any_of(lines.cbegin(), lines.cend(),
                             [](const QByteArray &line) {
                                 return line.startsWith("notice ") &&
                                        line.endsWith(QStringLiteral("en espera — enviando").toUtf8());
                             }),
                 printed.constData());

        QCOMPARE(service.registeredFiles(1001).size(), names.size());
        const StoredFiles store(service);
        for (const QString &name : names) {
            QVERIFY2(store.registeredCount(1001, name) == 1, qPrintable(name));
            QVERIFY2(store.storedCount(name) == 1, qPrintable(name));
        }
        // Delivered into the session it was shot for, which nothing ended.
        QCOMPARE(service.sessions().size(), 1);
        resuming->kill();
        resuming->waitForFinished();
    }

private:
    SessionHarness m_harness;
    QTemporaryDir m_settings;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (const QString mode = qEnvironmentVariable(childVariable); !mode.isEmpty())
        return runChild(mode);
    RestartTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_restart.moc"
