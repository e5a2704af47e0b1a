// SPDX-License-Identifier: MIT
#include "passwordfieldaccessible.h"

#include <QQuickItem>
#include <QQuickWindow>
#include <algorithm>

namespace {

// TextInput.EchoMode's values.
constexpr int normalEcho = 0;
constexpr int noEcho = 1;

bool hidesItsText(const QObject *field) {
    return field->property("echoMode").toInt() != normalEcho;
}

// Qt Quick asks for a field's interface as soon as the field is made, before the screen sets
// its echo mode, and keeps the one it got. When the mode changes, an interface of the wrong
// kind is dropped, so that the next request comes to the factory again.
class EchoModeWatcher : public QObject {
    Q_OBJECT

public Q_SLOTS:
    void echoModeChanged() {
        QObject *field = sender();
        QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(field);
        const bool ours = dynamic_cast<PasswordFieldAccessible *>(accessible) != nullptr;
        if (accessible && ours != hidesItsText(field))
            QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(accessible));
    }
};

EchoModeWatcher &echoModeWatcher() {
    static EchoModeWatcher watcher;
    return watcher;
}

QAccessibleInterface *passwordFieldFactory(const QString &, QObject *object) {
    auto *item = qobject_cast<QQuickItem *>(object);
    if (!item || !item->inherits("QQuickTextInput"))
        return nullptr;
    QObject::connect(item, SIGNAL(echoModeChanged(QQuickTextInput::EchoMode)), &echoModeWatcher(),
                     SLOT(echoModeChanged()), Qt::UniqueConnection);
    return hidesItsText(item) ? new PasswordFieldAccessible(item) : nullptr;
}

// The item's `Accessible` attached object, if it has one: Qt Quick makes it a child of the
// item, and only items that have one are part of the accessibility tree.
QObject *accessibleAttached(const QQuickItem *item) {
    if (!item)
        return nullptr;
    const QObjectList &children = item->children();
    const auto found = std::ranges::find_if(
        children, [](const QObject *child) { return child->inherits("QQuickAccessibleAttached"); });
    return found == children.end() ? nullptr : *found;
}

} // namespace

PasswordFieldAccessible::PasswordFieldAccessible(QQuickItem *field)
    : QAccessibleObject(field)
    , m_field(field) {}

void PasswordFieldAccessible::install() {
    // Factories installed last are asked first, so this one comes before Qt Quick's.
    QAccessible::installFactory(&passwordFieldFactory);
}

QWindow *PasswordFieldAccessible::window() const {
    return m_field ? m_field->window() : nullptr;
}

// The nearest ancestor in the accessibility tree, or the window at the top, as Qt Quick's own
// interfaces answer, so that the tree reads the same walking up as walking down.
QAccessibleInterface *PasswordFieldAccessible::parent() const {
    if (!m_field)
        return nullptr;
    QQuickWindow *window = m_field->window();
    const QQuickItem *content = window ? window->contentItem() : nullptr;
    for (QQuickItem *ancestor = m_field->parentItem(); ancestor;
         ancestor = ancestor->parentItem()) {
        if (ancestor == content)
            return QAccessible::queryAccessibleInterface(window);
        if (accessibleAttached(ancestor))
            return QAccessible::queryAccessibleInterface(ancestor);
    }
    return nullptr;
}

QAccessibleInterface *PasswordFieldAccessible::child(int) const {
    return nullptr;
}

int PasswordFieldAccessible::childCount() const {
    return 0;
}

int PasswordFieldAccessible::indexOfChild(const QAccessibleInterface *) const {
    return -1;
}

QString PasswordFieldAccessible::text(QAccessible::Text type) const {
    if (!m_field)
        return {};
    switch (type) {
    case QAccessible::Name:
        return m_field->property("accessibleName").toString();
    case QAccessible::Description:
        if (const QObject *attached = accessibleAttached(m_field))
            return attached->property("description").toString();
        return {};
    case QAccessible::Value:
        return shownText();
    default:
        return {};
    }
}

// Assistive tools read the field; they do not fill it in.
void PasswordFieldAccessible::setText(QAccessible::Text, const QString &) {}

QRect PasswordFieldAccessible::rect() const {
    if (!m_field || !m_field->window() || !m_field->isVisible())
        return {};
    const QPointF topLeft = m_field->mapToScene(QPointF(0, 0));
    return QRect(m_field->window()->mapToGlobal(topLeft.toPoint()),
                 QSize(qRound(m_field->width()), qRound(m_field->height())));
}

QAccessible::Role PasswordFieldAccessible::role() const {
    return QAccessible::EditableText;
}

QAccessible::State PasswordFieldAccessible::state() const {
    QAccessible::State state;
    if (!m_field) {
        state.invalid = true;
        return state;
    }
    const bool readOnly = m_field->property("readOnly").toBool();
    state.passwordEdit = true;
    state.focusable = true;
    state.focused = m_field->hasActiveFocus();
    state.editable = !readOnly;
    state.readOnly = readOnly;
    state.disabled = !m_field->isEnabled();
    state.invisible = !m_field->isVisible();
    return state;
}

void *PasswordFieldAccessible::interface_cast(QAccessible::InterfaceType type) {
    if (type == QAccessible::TextInterface)
        return static_cast<QAccessibleTextInterface *>(this);
    if (type == QAccessible::ActionInterface)
        return static_cast<QAccessibleActionInterface *>(this);
    return nullptr;
}

void PasswordFieldAccessible::selection(int selectionIndex, int *startOffset,
                                        int *endOffset) const {
    *startOffset = 0;
    *endOffset = 0;
    if (selectionIndex == 0 && selectionCount() == 1) {
        *startOffset = m_field->property("selectionStart").toInt();
        *endOffset = m_field->property("selectionEnd").toInt();
    }
}

int PasswordFieldAccessible::selectionCount() const {
    if (!m_field)
        return 0;
    return m_field->property("selectionStart") != m_field->property("selectionEnd") ? 1 : 0;
}

void PasswordFieldAccessible::addSelection(int startOffset, int endOffset) {
    setSelection(0, startOffset, endOffset);
}

void PasswordFieldAccessible::removeSelection(int) {
    if (m_field)
        QMetaObject::invokeMethod(m_field, "deselect");
}

void PasswordFieldAccessible::setSelection(int, int startOffset, int endOffset) {
    if (m_field)
        QMetaObject::invokeMethod(m_field, "select", Q_ARG(int, startOffset),
                                  Q_ARG(int, endOffset));
}

int PasswordFieldAccessible::cursorPosition() const {
    return m_field ? m_field->property("cursorPosition").toInt() : 0;
}

void PasswordFieldAccessible::setCursorPosition(int position) {
    if (m_field)
        m_field->setProperty("cursorPosition", position);
}

QString PasswordFieldAccessible::text(int startOffset, int endOffset) const {
    if (startOffset < 0 || endOffset < startOffset)
        return {};
    return shownText().mid(startOffset, endOffset - startOffset);
}

int PasswordFieldAccessible::characterCount() const {
    return static_cast<int>(shownText().size());
}

QRect PasswordFieldAccessible::characterRect(int offset) const {
    QRectF local;
    if (!m_field || !m_field->window() ||
        !QMetaObject::invokeMethod(m_field, "positionToRectangle", Q_RETURN_ARG(QRectF, local),
                                   Q_ARG(int, offset)))
        return {};
    const QPointF topLeft = m_field->mapToScene(local.topLeft());
    return QRect(m_field->window()->mapToGlobal(topLeft.toPoint()), local.size().toSize());
}

// Not offered: Qt Quick's text fields can tell the position at a point only to QML.
int PasswordFieldAccessible::offsetAtPoint(const QPoint &) const {
    return -1;
}

void PasswordFieldAccessible::scrollToSubstring(int, int) {}

QString PasswordFieldAccessible::attributes(int offset, int *startOffset, int *endOffset) const {
    *startOffset = offset;
    *endOffset = offset;
    return {};
}

QStringList PasswordFieldAccessible::actionNames() const {
    return {QAccessibleActionInterface::pressAction(),
            QAccessibleActionInterface::setFocusAction()};
}

void PasswordFieldAccessible::doAction(const QString &actionName) {
    if (m_field && actionNames().contains(actionName))
        m_field->forceActiveFocus(Qt::OtherFocusReason);
}

QStringList PasswordFieldAccessible::keyBindingsForAction(const QString &) const {
    return {};
}

// One mask character for each typed one, whatever the field shows at the moment: in the echo
// modes that show the last character typed, or everything while editing, the text on screen
// is not safe to hand out.
QString PasswordFieldAccessible::shownText() const {
    if (!m_field || m_field->property("echoMode").toInt() == noEcho)
        return {};
    const QString mask = m_field->property("passwordCharacter").toString();
    return QString(m_field->property("length").toInt(), mask.isEmpty() ? QChar(u'•') : mask[0]);
}

#include "passwordfieldaccessible.moc"
