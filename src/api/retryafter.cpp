// SPDX-License-Identifier: MIT
#include "retryafter.h"

#include <QLocale>
#include <QTimeZone>

#include <algorithm>

namespace {

// Servers have been seen asking for days; more than a day is read as a day and left to the
// caller's own bounds, without overflowing a millisecond count.
constexpr qint64 longestSeconds = 24 * 60 * 60;

std::optional<std::chrono::milliseconds> fromSeconds(const QByteArray &digits)
{
    if (digits.isEmpty() ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    // More digits than a 64-bit count holds are more than a day all the same.
    const qint64 seconds =
        digits.size() > 18 ? longestSeconds : std::min(digits.toLongLong(), longestSeconds);
    return std::chrono::seconds(seconds);
}

// The three forms HTTP has had: "Sun, 06 Nov 1994 08:49:37 GMT" (the one to send), the old
// "Sunday, 06-Nov-94 08:49:37 GMT" and asctime's "Sun Nov  6 08:49:37 1994".
std::optional<QDateTime> fromHttpDate(const QByteArray &value)
{
    const QString text = QString::fromLatin1(value).simplified();
    const QLocale c = QLocale::c();
    for (const QString &format : {QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'"),
                                  QStringLiteral("ddd MMM d hh:mm:ss yyyy")}) {
        const QDateTime read = c.toDateTime(text, format);
        if (read.isValid())
            return QDateTime(read.date(), read.time(), QTimeZone::utc());
    }
    // The old form's two-digit year is read as of the last century, where its day's name
    // would not match: the name is left out, and a year before 1970 taken as of this century.
    const qsizetype comma = text.indexOf(QLatin1Char(','));
    const QDateTime read =
        c.toDateTime(text.mid(comma + 1).trimmed(), QStringLiteral("dd-MMM-yy hh:mm:ss 'GMT'"));
    if (comma < 0 || !read.isValid())
        return std::nullopt;
    const QDate date = read.date().year() < 1970 ? read.date().addYears(100) : read.date();
    return QDateTime(date, read.time(), QTimeZone::utc());
}

} // namespace

std::optional<std::chrono::milliseconds> RetryAfter::read(const QByteArray &value,
                                                          const QDateTime &now)
{
    const QByteArray trimmed = value.trimmed();
    if (std::optional<std::chrono::milliseconds> wait = fromSeconds(trimmed))
        return wait;
    const std::optional<QDateTime> when = fromHttpDate(trimmed);
    if (!when)
        return std::nullopt;
    const qint64 ms = std::clamp<qint64>(now.msecsTo(*when), 0, longestSeconds * 1000);
    return std::chrono::milliseconds(ms);
}
