// SPDX-License-Identifier: MIT
// An original's part of an attempt, against devservice, with the original read from its file
// as it is sent: stored byte for byte, and a file that cannot be read, before or after its
// upload is authorised, ends the attempt at once as unreadable, with nothing stored.
#include "apiclient.h"
#include "attemptstep.h"
#include "devservicefixture.h"
#include "originalfile.h"
#include "photoattempt.h"
#include "scopedpreferences.h"
#include "storedfiles.h"
#include "taskoutcome.h"
#include "uploadlanes.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

namespace {

using StepHook = std::function<void(const AttemptStep &)>;

// Every step of the original's part, each handed to `taken` before the next is asked for, as
// the delivery's courier writes each down before the attempt goes on.
QCoro::Task<QList<AttemptStep>> originalSteps(std::shared_ptr<UploadLanes> lanes,
                                              PhotoAttempt::Photo photo, StepHook taken)
{
    QList<AttemptStep> steps;
    QCoro::AsyncGenerator<AttemptStep> original = PhotoAttempt::sendOriginal(lanes, photo);
    auto next = co_await original.begin();
    for (; next != original.end(); co_await ++next) {
        steps.append(*next);
        taken(steps.last());
    }
    co_return steps;
}

QList<AttemptStep::Kind> kindsOf(const QList<AttemptStep> &steps)
{
    QList<AttemptStep::Kind> kinds;
    for (const AttemptStep &step : steps)
        kinds.append(step.kind);
    return kinds;
}

} // namespace

class OriginalStreamingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
        m_api = std::make_unique<APIClient>(m_service.baseURL(), m_service.storageHost());
    }

    void init()
    {
        QVERIFY(m_service.reset());
        m_preferences = std::make_unique<ScopedPreferences>();
        QVERIFY(awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword())).value);
        const auto session = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        m_folderId = session.value->folder_id;
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }

    void originalIsStoredByteForByteFromItsFile()
    {
        const QByteArray original = OriginalFile::bytes(9 * 1024 * 1024);
        const QString path = OriginalFile::write(m_folder->filePath(QStringLiteral("IMG_0001.CR3")), original);
        const auto steps = awaitOutcome(originalSteps(lanes(), photo(path), [](const AttemptStep &) {}));
        QVERIFY(steps.value);
        QCOMPARE(kindsOf(*steps.value),
                 (QList{AttemptStep::Kind::originalRead, AttemptStep::Kind::originalPresigned,
                        AttemptStep::Kind::originalStored}));
        QCOMPARE(steps.value->first().taken->size, original.size());
        const std::optional<QByteArray> stored = StoredFiles(m_service).objectNamed(QStringLiteral("IMG_0001.CR3"));
        QVERIFY(stored);
        QCOMPARE(stored->size(), original.size());
        QVERIFY(*stored == original);
    }

    // Nothing is authorised for a file that is not there to send.
    void fileGoneBeforeItsAuthorisationEndsTheAttemptAtOnce()
    {
        const QString path = m_folder->filePath(QStringLiteral("IMG_0002.CR3"));
        const auto steps = awaitOutcome(originalSteps(lanes(), photo(path), [](const AttemptStep &) {}));
        QVERIFY(steps.value);
        QCOMPARE(kindsOf(*steps.value), (QList{AttemptStep::Kind::originalRead, AttemptStep::Kind::failed}));
        QCOMPARE(steps.value->last().failure->kind, AttemptFailure::Kind::unreadable);
        QCOMPARE(steps.value->last().failure->description, QStringLiteral("IMG_0002.CR3"));
        QVERIFY(m_service.requests(QStringLiteral("presign")).isEmpty());
    }

    // Gone between its authorisation and its upload: as unreadable as a file that never
    // opened, at once, without the pause and the second try that a refusal of the store's
    // gets, and with nothing stored.
    void fileGoneAfterItsAuthorisationIsUnreadable()
    {
        const QString path = OriginalFile::write(m_folder->filePath(QStringLiteral("IMG_0003.CR3")), OriginalFile::bytes(1024 * 1024));
        const auto steps = awaitOutcome(originalSteps(lanes(), photo(path), [&](const AttemptStep &step) {
            if (step.kind == AttemptStep::Kind::originalPresigned)
                QVERIFY(QFile::remove(path));
        }));
        QVERIFY(steps.value);
        QCOMPARE(kindsOf(*steps.value),
                 (QList{AttemptStep::Kind::originalRead, AttemptStep::Kind::originalPresigned,
                        AttemptStep::Kind::failed}));
        QCOMPARE(steps.value->last().failure->kind, AttemptFailure::Kind::unreadable);
        QCOMPARE(steps.value->last().failure->description, QStringLiteral("IMG_0003.CR3"));
        QCOMPARE(m_service.requests(QStringLiteral("presign")).size(), 1);
        QVERIFY(m_service.requests(QStringLiteral("upload")).isEmpty());
        QCOMPARE(StoredFiles(m_service).objectNamed(QStringLiteral("IMG_0003.CR3")), std::nullopt);
    }

private:
    std::shared_ptr<UploadLanes> lanes() { return std::make_shared<UploadLanes>(*m_api); }
    PhotoAttempt::Photo photo(const QString &path) const
    {
        PhotoAttempt::Photo photo;
        photo.fileURL = QUrl::fromLocalFile(path);
        photo.folderId = m_folderId;
        return photo;
    }

    DevService m_service;
    std::unique_ptr<APIClient> m_api;
    std::unique_ptr<ScopedPreferences> m_preferences;
    std::unique_ptr<QTemporaryDir> m_folder;
    qint64 m_folderId = 0;
};

QTEST_GUILESS_MAIN(OriginalStreamingTest)
#include "tst_originalstreaming.moc"
