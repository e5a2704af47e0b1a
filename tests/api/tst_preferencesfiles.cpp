// SPDX-License-Identifier: MIT
// The preferences file that keeps the bearer token, on disk after a real sign-in against
// devservice: readable and writable by its owner only, in a folder that is the owner's alone,
// however it was before and whatever the umask.
#include "apiclient.h"
#include "devservicefixture.h"
#include "preferences.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTest>
#include <sys/stat.h>

namespace {

// The permission bits as the system has them, set-id bits included, in octal as ls shows them.
QString modeOf(const QString &path) {
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return QStringLiteral("(missing)");
    return QString::number(status.st_mode & 07777, 8);
}

QString settingsFile() {
    return QSettings(Preferences::organisation, Preferences::application).fileName();
}

} // namespace

class PreferencesFilesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
        m_api = std::make_unique<APIClient>(m_service.baseURL(), m_service.storageHost());
        m_umask = ::umask(022);
        ::umask(m_umask);
    }

    void init() {
        m_preferences.reset();
        m_preferences = std::make_unique<ScopedPreferences>();
    }

    void cleanup() { ::umask(m_umask); }

    void signInMakesAPrivateFile_data() {
        QTest::addColumn<int>("umask");
        QTest::newRow("umask 022") << 022;
        QTest::newRow("umask 000") << 0;
    }

    void signInMakesAPrivateFile() {
        QFETCH(int, umask);
        m_umask = ::umask(static_cast<mode_t>(umask));
        const QString file = settingsFile();
        QVERIFY(!QFileInfo::exists(file));

        signIn();
        QVERIFY(QFile(file).open(QIODevice::ReadOnly)); // the owner still reads it
        QCOMPARE(modeOf(file), "600");
        QCOMPARE(modeOf(QFileInfo(file).absolutePath()), "700");

        // A second write replaces the file: it stays private.
        signIn();
        QCOMPARE(modeOf(file), "600");
    }

    // A file and folder left by an earlier version, open to every local user.
    void signInClosesAnOpenFile() {
        m_preferences->store(Preferences::savedEmailKey, QStringLiteral("ana@estudio.test"));
        const QString file = settingsFile();
        const QString folder = QFileInfo(file).absolutePath();
        QVERIFY(QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner |
                                                QFile::ReadGroup | QFile::ReadOther));
        QVERIFY(QFile::setPermissions(
            folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup |
                        QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther));
        QCOMPARE(modeOf(file), "644");
        QCOMPARE(modeOf(folder), "755");

        signIn();
        QCOMPARE(modeOf(file), "600");
        QCOMPARE(modeOf(folder), "700");
        QCOMPARE(m_preferences->stored(Preferences::savedEmailKey),
                 QStringLiteral("ana@estudio.test"));
    }

private:
    void signIn() {
        const auto outcome =
            awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword()));
        QVERIFY(outcome.value);
        QCOMPARE(m_preferences->stored(Preferences::apiTokenKey), outcome.value);
    }

    DevService m_service;
    std::unique_ptr<APIClient> m_api;
    std::unique_ptr<ScopedPreferences> m_preferences;
    mode_t m_umask = 0; // the program's own, put back after each test
};

QTEST_GUILESS_MAIN(PreferencesFilesTest)
#include "tst_preferencesfiles.moc"
