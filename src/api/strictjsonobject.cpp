// SPDX-License-Identifier: MIT
#include "strictjsonobject.h"

#include "decodingerror.h"

#include <QJsonDocument>
#include <QJsonParseError>

#include <cmath>

StrictJsonObject::StrictJsonObject(const QByteArray &body, QString recordName)
    : m_recordName(std::move(recordName))
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        throw DecodingError(QStringLiteral("%1: la respuesta no es JSON válido (%2)")
                                .arg(m_recordName, parseError.errorString()));
    if (!document.isObject())
        throw DecodingError(QStringLiteral("%1: la respuesta no es un objeto JSON").arg(m_recordName));
    m_object = document.object();
}

void StrictJsonObject::fail(const QString &key, const QString &problem) const
{
    throw DecodingError(QStringLiteral("%1: \"%2\" %3").arg(m_recordName, key, problem));
}

QJsonValue StrictJsonObject::required(const QString &key) const
{
    const auto it = m_object.constFind(key);
    if (it == m_object.constEnd())
        fail(key, QStringLiteral("falta"));
    if (it->isNull())
        fail(key, QStringLiteral("es null"));
    return *it;
}

QString StrictJsonObject::string(const QString &key) const
{
    const QJsonValue value = required(key);
    if (!value.isString())
        fail(key, QStringLiteral("no es un texto"));
    return value.toString();
}

qint64 StrictJsonObject::int64(const QString &key) const
{
    const QJsonValue value = required(key);
    if (!value.isDouble())
        fail(key, QStringLiteral("no es un número"));
    // Qt keeps integers that fit in 64 bits as integers, so toInteger() is exact for them; a
    // fraction or a number beyond the 64-bit range has no integer value.
    constexpr qint64 sentinel = std::numeric_limits<qint64>::min();
    const qint64 integer = value.toInteger(sentinel);
    if (integer == sentinel) {
        const double real = value.toDouble();
        if (real != -9223372036854775808.0)
            fail(key, QStringLiteral("no es un entero de 64 bits"));
    }
    return integer;
}

std::optional<QString> StrictJsonObject::optionalString(const QString &key) const
{
    const QJsonValue value = m_object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isString())
        fail(key, QStringLiteral("no es un texto"));
    return value.toString();
}

QMap<QString, QString> StrictJsonObject::stringMap(const QString &key) const
{
    const QJsonValue value = required(key);
    if (!value.isObject())
        fail(key, QStringLiteral("no es un objeto"));
    QMap<QString, QString> map;
    const QJsonObject object = value.toObject();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        if (!it->isString())
            fail(key + QLatin1Char('.') + it.key(), QStringLiteral("no es un texto"));
        map.insert(it.key(), it->toString());
    }
    return map;
}
