// SPDX-License-Identifier: MIT
#include "accessibletexts.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQmlProperty>
#include <QQuickItem>
#include <QSet>
#include <functional>

namespace {

bool drawn(const QQuickItem *item) {
    if (!item->isVisible() || item->width() <= 0 || item->height() <= 0)
        return false;
    for (const QQuickItem *up = item; up; up = up->parentItem())
        if (up->opacity() <= 0)
            return false;
    return true;
}

void collectTexts(QQuickItem *item, QList<QQuickItem *> &texts) {
    if (!item->isVisible())
        return;
    if (item->inherits("QQuickText") && drawn(item) && !item->property("text").toString().isEmpty())
        texts.append(item);
    for (QQuickItem *child : item->childItems())
        collectTexts(child, texts);
}

// What assistive tools are told of the items under `item`: Qt gives an accessible element to
// every item that declares itself accessible, and leaves the others out of the tree.
void collectTold(QQuickItem *item, QSet<QString> &told) {
    if (!item->isVisible())
        return;
    if (QAccessibleInterface *node = QAccessible::queryAccessibleInterface(item);
        node && !node->state().invisible) {
        told.insert(node->text(QAccessible::Name));
        told.insert(node->text(QAccessible::Description));
    }
    for (QQuickItem *child : item->childItems())
        collectTold(child, told);
}

bool readThroughAnother(QQuickItem *item) {
    // Only asked of texts no tool was told of: reading the attached property makes one.
    return QQmlProperty(item, QStringLiteral("Accessible.ignored"), qmlContext(item))
        .read()
        .toBool();
}

} // namespace

QStringList AccessibleTexts::visible(QQuickItem *root) {
    QList<QQuickItem *> items;
    if (root)
        collectTexts(root, items);
    QStringList texts;
    for (const QQuickItem *item : items)
        texts.append(item->property("text").toString());
    return texts;
}

QStringList AccessibleTexts::unexposed(QQuickItem *root) {
    if (!root)
        return {QStringLiteral("(no item)")};
    QList<QQuickItem *> items;
    collectTexts(root, items);
    QSet<QString> told;
    collectTold(root, told);
    QStringList missing;
    for (QQuickItem *item : items) {
        const QString text = item->property("text").toString();
        if (!told.contains(text) && !readThroughAnother(item))
            missing.append(text);
    }
    return missing;
}

QVariantMap AccessibleTexts::value(QQuickItem *item) {
    QAccessibleInterface *node = item ? QAccessible::queryAccessibleInterface(item) : nullptr;
    QAccessibleValueInterface *value = node ? node->valueInterface() : nullptr;
    if (!value)
        return {};
    return {{QStringLiteral("current"), value->currentValue()},
            {QStringLiteral("minimum"), value->minimumValue()},
            {QStringLiteral("maximum"), value->maximumValue()}};
}
