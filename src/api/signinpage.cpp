// SPDX-License-Identifier: MIT
#include "signinpage.h"

#include <QUrl>

namespace {

bool isWebPage(const QByteArray &contentType, const QByteArray &body)
{
    if (contentType.trimmed().toLower().startsWith("text/html"))
        return true;
    // Some portals send their page with no type, or the wrong one.
    const QByteArray start = body.left(512).trimmed().toLower();
    return start.startsWith("<!doctype html") || start.startsWith("<html");
}

} // namespace

bool SignInPage::answered(const QUrl &asked, int status, const QByteArray &contentType,
                          const QByteArray &location, const QByteArray &body)
{
    if (status == 511)
        return true;
    if (status >= 300 && status <= 399 && !location.isEmpty()) {
        // A redirect within the service's own host is the service's, however unexpected.
        const QUrl target = asked.resolved(QUrl::fromEncoded(location));
        return target.isValid() && target.host().compare(asked.host(), Qt::CaseInsensitive) != 0;
    }
    // An answer with a body the service or the store would send as JSON, XML or nothing.
    return status >= 200 && status <= 299 && isWebPage(contentType, body);
}
