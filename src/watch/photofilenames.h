// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

// The names in the watch folder that count as photos, and the order in which new ones are
// handed over.
namespace PhotoFileNames {

// Every entry of the folder by name (files, folders, links alike), in no particular order;
// empty when the folder cannot be listed.
QStringList entries(const QString &folderPath);

// A visible name whose extension, lower-cased, is one a camera or tethering tool writes.
bool isAccepted(const QString &name);

// Ascending order of Unicode code points.
bool precedes(const QString &left, const QString &right);

} // namespace PhotoFileNames
