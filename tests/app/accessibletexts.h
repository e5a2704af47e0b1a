// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>
#include <QVariantMap>

class QQuickItem;

// What a screen shows and what assistive tools are told of it, compared. Texts are found as a
// person finds them, by what is visible (drawn, not hidden, not fully transparent); what the
// tools get is read through Qt's accessibility interfaces, as a screen reader's bridge reads it.
namespace AccessibleTexts {

// Every text drawn under `root`, in item order.
QStringList visible(QQuickItem *root);
// The drawn texts under `root` that no accessible element names or describes, less those whose
// item says it is read through another (Accessible.ignored, as a count's single digits are).
QStringList unexposed(QQuickItem *root);
// The accessible value of `item`: "current", "minimum", "maximum"; empty when it has none.
QVariantMap value(QQuickItem *item);

} // namespace AccessibleTexts
