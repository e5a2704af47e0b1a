// SPDX-License-Identifier: MIT
#include "preferences.h"

#include <QSettings>


std::optional<QString> Preferences::string(const QString &key)
{
    const QSettings settings(organisation, application);
    const QVariant value = settings.value(key);
    if (!value.isValid() || value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

void Preferences::setString(const QString &key, const QString &value)
{
    QSettings settings(organisation, application);
    settings.setValue(key, value);
    settings.sync();
}
