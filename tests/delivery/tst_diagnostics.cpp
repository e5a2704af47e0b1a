// SPDX-License-Identifier: MIT
// What the program tells a support person: nothing at all as it ships, and with the usual
// QT_LOGGING_RULES every room's story, from which one photo's way can be read: handed over, its
// attempts, a failure and the wait after it, its preview registered, its original stored.
#include "headlessprogram.h"
#include "sessionharness.h"
#include "tracedapp.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace {
constexpr int settles = 30000;
const QString photo = QStringLiteral("IMG_0007.JPG");
} // namespace

class DiagnosticsTest : public QObject {
    Q_OBJECT

    // A session with one photo whose registration is refused once, then the photographer's
    // "Salir": everything the program wrote to its standard error meanwhile.
    QString shootOnePhoto(const std::optional<QString> &loggingRules)
    {
        QProcessEnvironment environment = HeadlessProgram::environment(m_harness);
        // Nothing of the machine's own settings: no rules but the test's, the default pattern.
        environment.remove(QStringLiteral("QT_LOGGING_RULES"));
        environment.remove(QStringLiteral("QT_LOGGING_CONF"));
        environment.remove(QStringLiteral("QT_MESSAGE_PATTERN"));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_config.path());
        if (loggingRules)
            environment.insert(QStringLiteral("QT_LOGGING_RULES"), *loggingRules);
        if (!m_harness.service().injectFault(
                DevService::Fault::withStatus(QStringLiteral("register"), 500)))
            return QStringLiteral("(no fault)");

        TracedApp program;
        if (!program.start(HeadlessProgram::path(), environment))
            return QStringLiteral("(not started)");
        const bool shot = program.send(QStringLiteral("signin")) &&
                          program.waitFor(QStringLiteral("signed in"), settles) &&
                          program.send(QStringLiteral("start Marta")) &&
                          program.waitFor(QStringLiteral("screen recording 1001"), settles) &&
                          m_harness.dropPhoto(photo, SessionHarness::photoJpeg(7)) &&
                          program.waitForLatest(QStringLiteral("stored "), QStringLiteral("stored 1"),
                                                60000) &&
                          program.send(QStringLiteral("quit")) && program.waitForExit(settles);
        const QString said = QString::fromUtf8(program.process().readAllStandardError());
        if (!shot)
            return QStringLiteral("(the session did not go as planned)\n") + program.transcript() +
                   QLatin1Char('\n') + said;
        return said;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_config.isValid());
        QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString()));
    }
    void init() { m_harness.resetForTest(); }

    void silentAsItShips()
    {
        const QString said = shootOnePhoto(std::nullopt);
        QVERIFY2(!said.startsWith(QLatin1Char('(')), qPrintable(said));
        QVERIFY2(!said.contains(QStringLiteral("quillmere.")), qPrintable(said));
    }

    void everyRoomTellsWhenAsked()
    {
        const QString said = shootOnePhoto(QStringLiteral("quillmere.*.debug=true"));
        QVERIFY2(!said.startsWith(QLatin1Char('(')), qPrintable(said));
        for (const QString &room :
             {QStringLiteral("api"), QStringLiteral("watch"), QStringLiteral("upload"),
              QStringLiteral("delivery"), QStringLiteral("journal"), QStringLiteral("session")})
            QVERIFY2(said.contains(QStringLiteral("\nquillmere.") + room + QStringLiteral(": ")) ||
                         said.startsWith(QStringLiteral("quillmere.") + room + QStringLiteral(": ")),
                     qPrintable(room + QStringLiteral(" said nothing:\n") + said));

        // The photo's way, in order.
        const QStringList story{
            QStringLiteral("quillmere.watch: IMG_0007.JPG: new, handed over"),
            QStringLiteral("quillmere.delivery: photo \\d+ IMG_0007.JPG: handed over"),
            QStringLiteral("quillmere.upload: IMG_0007.JPG: preview made"),
            QStringLiteral("quillmere.api: POST [^ ]+/source_files.json: 500"),
            QStringLiteral("quillmere.delivery: photo \\d+ IMG_0007.JPG: failed: "),
            QStringLiteral("quillmere.delivery: photo \\d+: waits to go again"),
            QStringLiteral("quillmere.delivery: next round in \\d+ ms"),
            QStringLiteral("quillmere.delivery: \\d+ photos go again"),
            QStringLiteral("quillmere.delivery: photo \\d+ IMG_0007.JPG: preview registered"),
            QStringLiteral("quillmere.delivery: photo \\d+ IMG_0007.JPG: original stored"),
            QStringLiteral("quillmere.session: folder 1001 left at a quit")};
        qsizetype from = 0;
        for (const QString &step : story) {
            const QRegularExpressionMatch found =
                QRegularExpression(QStringLiteral("^") + step, QRegularExpression::MultilineOption)
                    .match(said, from);
            QVERIFY2(found.hasMatch(), qPrintable(QStringLiteral("no \"") + step +
                                                  QStringLiteral("\" after what came before:\n") +
                                                  said));
            from = found.capturedEnd();
        }
        // Never the password, nor the token.
        QVERIFY(!said.contains(DevService::demoPassword()));
        QVERIFY(!said.contains(QStringLiteral("Bearer")));
    }

private:
    QTemporaryDir m_config;
    SessionHarness m_harness;
};

QUILLMERE_HEADLESS_TEST_MAIN(DiagnosticsTest)

#include "tst_diagnostics.moc"
