// SPDX-License-Identifier: MIT
#pragma once

#include <QAccessibleObject>
#include <QPointer>

class QQuickItem;

// What assistive tools see of a text field that hides what is typed into it (a TextInput or
// TextField whose echoMode is not Normal). Qt Quick 6.4 gives such a field the interface of any
// other text field, whose value and text are the typed text itself: a screen reader, or any
// program on the accessibility bus, could read the password back. This one offers what the
// field shows instead, the mask characters, as Qt Widgets' line edit does, and declares itself
// a password field; the caret, the selection, focus and geometry are the field's own.
//
// Qt Quick also hides `Accessible.name` of a password field, so the name is taken from the
// field's `accessibleName` property (FieldBox's).
class PasswordFieldAccessible : public QAccessibleObject,
                                public QAccessibleTextInterface,
                                public QAccessibleActionInterface {
public:
    explicit PasswordFieldAccessible(QQuickItem *field);

    // Gives every password field this interface from now on. Call it before the first window
    // is shown.
    static void install();

    QWindow *window() const override;
    QAccessibleInterface *parent() const override;
    QAccessibleInterface *child(int index) const override;
    int childCount() const override;
    int indexOfChild(const QAccessibleInterface *child) const override;
    QString text(QAccessible::Text type) const override;
    void setText(QAccessible::Text type, const QString &text) override;
    QRect rect() const override;
    QAccessible::Role role() const override;
    QAccessible::State state() const override;
    void *interface_cast(QAccessible::InterfaceType type) override;

    void selection(int selectionIndex, int *startOffset, int *endOffset) const override;
    int selectionCount() const override;
    void addSelection(int startOffset, int endOffset) override;
    void removeSelection(int selectionIndex) override;
    void setSelection(int selectionIndex, int startOffset, int endOffset) override;
    int cursorPosition() const override;
    void setCursorPosition(int position) override;
    QString text(int startOffset, int endOffset) const override;
    int characterCount() const override;
    QRect characterRect(int offset) const override;
    int offsetAtPoint(const QPoint &point) const override;
    void scrollToSubstring(int startIndex, int endIndex) override;
    QString attributes(int offset, int *startOffset, int *endOffset) const override;

    QStringList actionNames() const override;
    void doAction(const QString &actionName) override;
    QStringList keyBindingsForAction(const QString &actionName) const override;

private:
    QString shownText() const;

    QPointer<QQuickItem> m_field;
};
