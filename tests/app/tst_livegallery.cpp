// SPDX-License-Identifier: MIT
// The client's side of a live session: devservice's live page, as a real browser (headless
// Chromium) shows it, picks up a preview registered through the service client.
#include "apiclient.h"
#include "devservicefixture.h"
#include "requiredtool.h"
#include "scopedpreferences.h"

#include <QBuffer>
#include <QCoroTask>
#include <QImage>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

class TestLiveGallery : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void registeredPreviewShowsOnTheLivePage();

private:
    // The page's DOM after its scripts have run for a few seconds.
    QString pageAsShown(const QString &url);
    static QStringList imageSources(const QString &dom);

    QString m_browser;
    ScopedPreferences m_preferences;
    DevService m_service;
};

void TestLiveGallery::initTestCase() {
    for (const char *name : {"chromium", "chromium-browser"}) {
        m_browser = QStandardPaths::findExecutable(QString::fromLatin1(name));
        if (!m_browser.isEmpty())
            break;
    }
    if (m_browser.isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("Chromium"),
                               QStringLiteral("neither chromium nor chromium-browser is installed"));
    QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
}

QString TestLiveGallery::pageAsShown(const QString &url) {
    QTemporaryDir profile;
    if (!profile.isValid())
        return {};
    QProcess browser;
    browser.setProcessChannelMode(QProcess::SeparateChannels);
    browser.start(
        m_browser,
        {QStringLiteral("--headless"), QStringLiteral("--no-sandbox"),
         QStringLiteral("--disable-gpu"), QStringLiteral("--disable-quic"),
         QStringLiteral("--no-first-run"), QStringLiteral("--disable-background-networking"),
         QStringLiteral("--disable-component-update"), QStringLiteral("--disable-sync"),
         QStringLiteral("--user-data-dir=") + profile.path(),
         QStringLiteral("--virtual-time-budget=4000"), QStringLiteral("--dump-dom"), url});
    if (!browser.waitForFinished(60000)) {
        browser.kill();
        browser.waitForFinished();
        return {};
    }
    return QString::fromUtf8(browser.readAllStandardOutput());
}

QStringList TestLiveGallery::imageSources(const QString &dom) {
    static const QRegularExpression image(QStringLiteral(R"re(<img\b[^>]*\bsrc="([^"]+)")re"));
    QStringList sources;
    for (const QRegularExpressionMatch &match : image.globalMatch(dom))
        sources.append(match.captured(1));
    return sources;
}

void TestLiveGallery::registeredPreviewShowsOnTheLivePage() {
    APIClient client(m_service.baseURL(), m_service.storageHost());
    QCoro::waitFor(client.authenticate(DevService::demoEmail(), DevService::demoPassword()));
    const QString sessionName = QStringLiteral("Galería");
    const SessionResponse session = QCoro::waitFor(client.createSession(sessionName));
    QVERIFY(!session.live_url.isEmpty());

    // Before any photo the page waits, with no picture.
    const QString before = pageAsShown(session.live_url);
    QVERIFY2(before.contains(QStringLiteral("id=\"grid\"")), qPrintable(before.left(400)));
    QVERIFY(imageSources(before).filter(QStringLiteral("preview_")).isEmpty());

    QImage picture(800, 533, QImage::Format_RGB32);
    picture.fill(QColor(0x3C, 0x6E, 0x71));
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    QVERIFY(buffer.open(QIODevice::WriteOnly) && picture.save(&buffer, "JPEG", 85));
    const QString name = QStringLiteral("preview_IMG_0001.jpg");
    const PresignResponse presign =
        QCoro::waitFor(client.presign(session.folder_id, name, QStringLiteral("image/jpeg")));
    const QString stored = QCoro::waitFor(client.uploadToStorage(presign, jpeg));
    QCoro::waitFor(
        client.registerAttachment(session.folder_id, stored, presign.key, presign.bucket));

    const QString after = pageAsShown(session.live_url);
    const QStringList previews = imageSources(after).filter(name);
    QVERIFY2(previews.size() == 1, qPrintable(after.right(1200)));

    // The picture behind the <img> is the preview as uploaded.
    QNetworkAccessManager network;
    QNetworkReply *reply =
        network.get(QNetworkRequest(QUrl(session.live_url).resolved(previews.first())));
    QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 10000);
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QCOMPARE(reply->readAll(), jpeg);
    reply->deleteLater();
}

QTEST_GUILESS_MAIN(TestLiveGallery)
#include "tst_livegallery.moc"
