// SPDX-License-Identifier: MIT
// A journal the program cannot write, for real: a read-only file, and a disk that fills up in
// the middle of a shoot. The photographer is told, and the photos go out all the same. The
// program runs as a process of its own: the read-only file is read-only to it even where the
// test runs as root (it runs without the capabilities that override file permissions), and the
// full disk is a small tmpfs of its own, mounted in a mount namespace of its own.
#include "deliveryjournal.h"
#include "headlessprogram.h"
#include "requiredtool.h"
#include "sessionharness.h"
#include "storedfiles.h"
#include "tracedapp.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

namespace {
constexpr int settles = 30000;
const QString unwritable = QStringLiteral("journal No se puede guardar el registro de envíos (");

QString photoName(int number) {
    return QStringLiteral("IMG_%1.JPG").arg(number, 4, 10, QLatin1Char('0'));
}

bool runsAsRoot() {
#ifdef Q_OS_UNIX
    return ::geteuid() == 0;
#else
    return false;
#endif
}
} // namespace

class JournalFaultsTest : public QObject {
    Q_OBJECT

    bool recordAndDrop(TracedApp &program, int number) {
        return m_harness.dropPhoto(photoName(number), SessionHarness::photoJpeg(number)) &&
               program.waitFor(QStringLiteral("stored %1").arg(number), settles);
    }

    bool startRecording(TracedApp &program) {
        return program.send(QStringLiteral("signin")) &&
               program.waitFor(QStringLiteral("signed in"), settles) &&
               program.send(QStringLiteral("start Ana")) &&
               program.waitFor(QStringLiteral("screen recording 1001"), settles);
    }

    void expectDeliveredOnce(int count) {
        QTRY_COMPARE_WITH_TIMEOUT(m_harness.service().registeredFiles(1001).size(), count, settles);
        const StoredFiles store(m_harness.service());
        for (int number = 1; number <= count; ++number) {
            QCOMPARE(store.registeredCount(1001, photoName(number)), 1);
            QCOMPARE(store.storedCount(photoName(number)), 1);
        }
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void aReadOnlyJournalIsToldAndPhotosGoOut() {
        const QString journal = m_harness.preferences().journalPath();
        {
            DeliveryJournal made;
            QVERIFY(made.open(journal));
        }
        QVERIFY(QFile::setPermissions(journal, QFileDevice::ReadOwner | QFileDevice::ReadGroup |
                                                   QFileDevice::ReadOther));
        TracedApp program;
        if (runsAsRoot()) {
            const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
            if (setpriv.isEmpty())
                QUILLMERE_MISSING_TOOL(QStringLiteral("setpriv"),
                                       QStringLiteral("it is not installed (package util-linux)"));
            QVERIFY(program.start(
                setpriv, HeadlessProgram::environment(m_harness),
                {QStringLiteral("--bounding-set=-dac_override,-dac_read_search,-fowner"),
                 HeadlessProgram::path()}));
        } else {
            QVERIFY(
                program.start(HeadlessProgram::path(), HeadlessProgram::environment(m_harness)));
        }
        const std::optional<QString> told = program.next(unwritable, settles);
        QVERIFY2(told, qPrintable(program.transcript()));
        QVERIFY2(told->endsWith(QStringLiteral("). Las fotos se siguen enviando, pero no se "
                                               "retomarán si Quillmere Live se cierra.")),
                 qPrintable(*told));
        QVERIFY2(startRecording(program), qPrintable(program.transcript()));
        QVERIFY2(recordAndDrop(program, 1), qPrintable(program.transcript()));
        QVERIFY2(recordAndDrop(program, 2), qPrintable(program.transcript()));
        expectDeliveredOnce(2);
    }

    void aDiskThatFillsUpIsToldAndPhotosGoOut() {
        if (!runsAsRoot())
            QUILLMERE_MISSING_TOOL(QStringLiteral("root"),
                                   QStringLiteral("a small disk of its own is mounted for the "
                                                  "program, which takes root"));
        const QString unshare = QStandardPaths::findExecutable(QStringLiteral("unshare"));
        if (unshare.isEmpty())
            QUILLMERE_MISSING_TOOL(QStringLiteral("unshare"),
                                   QStringLiteral("it is not installed (package util-linux)"));
        QTemporaryDir mountPoint;
        QVERIFY(mountPoint.isValid());
        QProcessEnvironment environment = HeadlessProgram::environment(m_harness);
        environment.insert(QStringLiteral("CHILD_JOURNAL"),
                           mountPoint.filePath(QStringLiteral("delivery.sqlite")));
        TracedApp program;
        QVERIFY(program.start(
            unshare, environment,
            {QStringLiteral("--mount"), QStringLiteral("--propagation"), QStringLiteral("private"),
             QStringLiteral("sh"), QStringLiteral("-c"),
             QStringLiteral("mount -t tmpfs -o size=4m quillmere-journal \"$1\" && shift && "
                            "exec \"$@\""),
             QStringLiteral("sh"), mountPoint.path(), HeadlessProgram::path()}));
        QUILLMERE_EXPECT_LINE(program, QStringLiteral("journal ok"), settles);
        QVERIFY2(startRecording(program), qPrintable(program.transcript()));
        QVERIFY2(recordAndDrop(program, 1), qPrintable(program.transcript()));

        QVERIFY(program.send(QStringLiteral("fill ") + mountPoint.path()));
        QUILLMERE_EXPECT_LINE(program, QStringLiteral("filled"), settles);
        QVERIFY(m_harness.dropPhoto(photoName(2), SessionHarness::photoJpeg(2)));
        QUILLMERE_EXPECT_LINE(program,
                              unwritable + QStringLiteral("el disco está lleno). Las fotos se "
                                                          "siguen enviando, pero no se "
                                                          "retomarán si Quillmere Live se "
                                                          "cierra."),
                              settles);
        QUILLMERE_EXPECT_LINE(program, QStringLiteral("stored 2"), settles);
        QVERIFY2(recordAndDrop(program, 3), qPrintable(program.transcript()));

        // Room again: the next photo is written down, and the line goes.
        QVERIFY(program.send(QStringLiteral("unfill ") + mountPoint.path()));
        QUILLMERE_EXPECT_LINE(program, QStringLiteral("unfilled"), settles);
        QVERIFY2(recordAndDrop(program, 4), qPrintable(program.transcript()));
        QUILLMERE_EXPECT_LATEST(program, QStringLiteral("journal "), QStringLiteral("journal ok"),
                                settles);
        expectDeliveredOnce(4);
    }

private:
    SessionHarness m_harness;
};

QUILLMERE_HEADLESS_TEST_MAIN(JournalFaultsTest)

#include "tst_journalfaults.moc"
