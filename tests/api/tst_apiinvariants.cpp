// SPDX-License-Identifier: MIT
// Every address the client sends to is put together from trusted pieces: the service origin
// fixed at build time and the upload address the service itself presigned. One that does not
// parse is a defect, and the process stops rather than send anything anywhere. One that parses
// but is relative goes ahead, and fails as the network stack reports it.
#include "apiclient.h"
#include "fatalchild.h"
#include "presignresponse.h"

#include <QCoreApplication>
#include <QTest>

#include <cstdio>

namespace {

const QString unreachableOrigin = QStringLiteral("http://127.0.0.1:9");

PresignResponse presignFor(const QString &url)
{
    PresignResponse presign;
    presign.url = url;
    presign.key = QStringLiteral("preview_IMG_0001.jpg");
    presign.bucket = QStringLiteral("photos");
    return presign;
}

// Each mode starts one request and says so if the process is still there afterwards.
int runChildMode(const QByteArray &mode)
{
    FatalChild::expectAbort();
    if (mode == "service-origin-with-a-space") {
        APIClient api(QStringLiteral("http://api example"), QStringLiteral("storage.example"));
        QCoro::Task<QString> signingIn = api.authenticate(QStringLiteral("a@b.test"), QStringLiteral("x"));
    } else if (mode == "upload-address-with-a-space") {
        APIClient api(unreachableOrigin, QStringLiteral("storage.example"));
        QCoro::Task<QString> storing =
            api.uploadToStorage(presignFor(QStringLiteral("https://storage example/photos")), QByteArray("x"));
    } else if (mode == "sound-addresses") {
        APIClient api(unreachableOrigin, QStringLiteral("storage.example"));
        QCoro::Task<QString> signingIn = api.authenticate(QStringLiteral("a@b.test"), QStringLiteral("x"));
        QCoro::Task<QString> storing =
            api.uploadToStorage(presignFor(unreachableOrigin + QStringLiteral("/upload")), QByteArray("x"));
        QCoro::Task<QString> storingRelative =
            api.uploadToStorage(presignFor(QStringLiteral("upload/here")), QByteArray("x"));
        APIClient relative(QStringLiteral("api.example"), QStringLiteral("storage.example"));
        QCoro::Task<QString> signingInRelative =
            relative.authenticate(QStringLiteral("a@b.test"), QStringLiteral("x"));
    } else {
        return 2;
    }
    std::printf("still alive\n");
    std::fflush(stdout);
    std::_Exit(0); // the requests under way are of no interest
}

} // namespace

class ApiInvariantsTest : public QObject {
    Q_OBJECT

    static void expectStop(const QByteArray &mode, const QByteArray &address)
    {
        const FatalChild::Result child = FatalChild::run(mode);
        QCOMPARE(child.status, QProcess::CrashExit);
        QVERIFY(!child.output.contains("still alive"));
        QVERIFY2(child.errors.contains("\"" + address + "\" is not a valid URL"),
                 child.errors.constData());
    }

private Q_SLOTS:
    // Relative ones too: they parse.
    void soundAddressesGoAhead()
    {
        const FatalChild::Result child = FatalChild::run("sound-addresses");
        QCOMPARE(child.status, QProcess::NormalExit);
        QCOMPARE(child.exitCode, 0);
        QCOMPARE(child.output.trimmed(), QByteArray("still alive"));
    }

    void aServiceOriginThatDoesNotParseStopsTheProcess()
    {
        expectStop("service-origin-with-a-space", "http://api example/api/live/sessions/authenticate");
    }

    void anUploadAddressThatDoesNotParseStopsTheProcess()
    {
        expectStop("upload-address-with-a-space", "https://storage example/photos");
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (const QByteArray mode = FatalChild::mode(); !mode.isEmpty())
        return runChildMode(mode);
    ApiInvariantsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_apiinvariants.moc"
