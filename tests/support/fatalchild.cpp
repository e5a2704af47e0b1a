// SPDX-License-Identifier: MIT
#include "fatalchild.h"

#include <QCoreApplication>

#ifdef Q_OS_UNIX
#include <sys/resource.h>
#endif

namespace {
constexpr const char *modeVariable = "QUILLMERE_FATAL_CHILD_MODE";
} // namespace

QByteArray FatalChild::mode()
{
    return qgetenv(modeVariable);
}

void FatalChild::expectAbort()
{
#ifdef Q_OS_UNIX
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
#endif
}

FatalChild::Result FatalChild::run(const QByteArray &mode, const QProcessEnvironment &environment)
{
    QProcess child;
    QProcessEnvironment childEnvironment = QProcessEnvironment::systemEnvironment();
    childEnvironment.insert(environment);
    childEnvironment.insert(QString::fromLatin1(modeVariable), QString::fromLatin1(mode));
    child.setProcessEnvironment(childEnvironment);
    child.start(QCoreApplication::applicationFilePath(), {});
    if (!child.waitForFinished(120'000))
        child.kill();
    return {child.exitStatus(), child.exitCode(), child.readAllStandardOutput(),
            child.readAllStandardError()};
}
