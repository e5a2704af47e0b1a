// SPDX-License-Identifier: MIT
#include "progressaccessible.h"

#include <QQmlProperty>
#include <QQuickItem>
#include <QQuickWindow>

namespace {

QAccessibleInterface *progressFactory(const QString &className, QObject *object) {
    if (className != QLatin1String("QQuickProgressBar"))
        return nullptr;
    auto *bar = qobject_cast<QQuickItem *>(object);
    return bar ? new ProgressAccessible(bar) : nullptr;
}

} // namespace

void ProgressAccessible::install() {
    // Factories are asked newest first, so this one answers before Qt Quick's, which Qt Quick
    // installs when it is first imported.
    static const bool installed = [] {
        QAccessible::installFactory(progressFactory);
        return true;
    }();
    Q_UNUSED(installed);
}

ProgressAccessible::ProgressAccessible(QQuickItem *bar)
    : QAccessibleObject(bar) {}

QQuickItem *ProgressAccessible::bar() const {
    return static_cast<QQuickItem *>(object());
}

QAccessibleInterface *ProgressAccessible::parent() const {
    // The nearest item that has an element of its own, else the window.
    for (QQuickItem *up = bar()->parentItem(); up; up = up->parentItem())
        if (QAccessibleInterface *element = QAccessible::queryAccessibleInterface(up))
            return element;
    return bar()->window() ? QAccessible::queryAccessibleInterface(bar()->window()) : nullptr;
}

QAccessibleInterface *ProgressAccessible::child(int) const {
    return nullptr;
}

int ProgressAccessible::childCount() const {
    return 0;
}

int ProgressAccessible::indexOfChild(const QAccessibleInterface *) const {
    return -1;
}

QAccessibleInterface *ProgressAccessible::childAt(int, int) const {
    return nullptr;
}

QWindow *ProgressAccessible::window() const {
    return bar()->window();
}

QRect ProgressAccessible::rect() const {
    const QQuickWindow *window = bar()->window();
    if (!window)
        return {};
    const QRectF local(0, 0, bar()->width(), bar()->height());
    const QRect inWindow = bar()->mapRectToScene(local).toAlignedRect();
    return inWindow.translated(window->mapToGlobal(QPoint(0, 0)));
}

QAccessible::Role ProgressAccessible::role() const {
    return QAccessible::ProgressBar;
}

QAccessible::State ProgressAccessible::state() const {
    QAccessible::State state;
    const QQuickWindow *window = bar()->window();
    state.invisible = !bar()->isVisible() || !window || !window->isVisible();
    state.readOnly = true;
    return state;
}

QString ProgressAccessible::text(QAccessible::Text kind) const {
    // What the screen set as Accessible.name and .description.
    const char *attached = kind == QAccessible::Name          ? "Accessible.name"
                           : kind == QAccessible::Description ? "Accessible.description"
                                                              : nullptr;
    if (!attached)
        return {};
    return QQmlProperty(bar(), QString::fromLatin1(attached), qmlContext(bar())).read().toString();
}

void *ProgressAccessible::interface_cast(QAccessible::InterfaceType type) {
    if (type == QAccessible::ValueInterface)
        return static_cast<QAccessibleValueInterface *>(this);
    return QAccessibleObject::interface_cast(type);
}

QVariant ProgressAccessible::currentValue() const {
    return bar()->property("value");
}

void ProgressAccessible::setCurrentValue(const QVariant &) {
    // A progress bar shows progress; nobody sets it from outside.
}

QVariant ProgressAccessible::maximumValue() const {
    return bar()->property("to");
}

QVariant ProgressAccessible::minimumValue() const {
    return bar()->property("from");
}

QVariant ProgressAccessible::minimumStepSize() const {
    return 0;
}
