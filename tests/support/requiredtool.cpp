// SPDX-License-Identifier: MIT
#include "requiredtool.h"

#include <QtGlobal>

bool RequiredTool::underCi() {
    return qEnvironmentVariable("CI").compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
}

QString RequiredTool::missingMessage(const QString &tool, const QString &why) {
    return QStringLiteral("%1 cannot be used: %2%3")
        .arg(tool, why,
             underCi() ? QStringLiteral(" (a CI run must run this test: install it, see "
                                        "scripts/install-deps)")
                       : QStringLiteral(" (skipped on this machine; under CI=true it fails)"));
}
