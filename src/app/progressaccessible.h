// SPDX-License-Identifier: MIT
#pragma once

#include <QAccessibleObject>
#include <QPointer>

class QQuickItem;

// What assistive tools are told of a Qt Quick progress bar: Qt Quick names it and gives it its
// role but keeps its value to itself (only sliders, spin boxes, dials and scroll bars get one),
// so a screen reader cannot say how far the originals have got. This element adds the value:
// the bar's `value` between its `from` and `to`.
class ProgressAccessible : public QAccessibleObject, public QAccessibleValueInterface {
public:
    // Puts this element in front of Qt Quick's for every progress bar asked about from then on:
    // after the first QML file has been loaded. Once is enough; more calls do nothing.
    static void install();

    explicit ProgressAccessible(QQuickItem *bar);

    QAccessibleInterface *parent() const override;
    QAccessibleInterface *child(int index) const override;
    int childCount() const override;
    int indexOfChild(const QAccessibleInterface *child) const override;
    QAccessibleInterface *childAt(int x, int y) const override;
    QWindow *window() const override;
    QRect rect() const override;
    QAccessible::Role role() const override;
    QAccessible::State state() const override;
    QString text(QAccessible::Text kind) const override;
    void *interface_cast(QAccessible::InterfaceType type) override;

    QVariant currentValue() const override;
    void setCurrentValue(const QVariant &value) override;
    QVariant maximumValue() const override;
    QVariant minimumValue() const override;
    QVariant minimumStepSize() const override;

private:
    QQuickItem *bar() const;
};
