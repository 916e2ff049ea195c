#include "ui/CommandField.h"

#include <QKeyEvent>

#include <limits>

namespace pindle::ui {

CommandField::CommandField(QWidget *parent) : QLineEdit(parent)
{
    // The panel draws the background; a field only draws its text.
    setFrame(false);
    QPalette transparentBase = palette();
    transparentBase.setColor(QPalette::Base, Qt::transparent);
    setPalette(transparentBase);
    setStyleSheet(QStringLiteral("QLineEdit { background: transparent; }"));
    // A line edit cuts its text at 32,767 characters unless told otherwise; an address is kept
    // whole, however long.
    setMaxLength(std::numeric_limits<int>::max());
}

void CommandField::keyPressEvent(QKeyEvent *event)
{
    if (onKey && onKey(this, *event)) {
        event->accept();
        return;
    }
    // A Ctrl or Super chord is a command, never typing: the key events carry the letter as
    // text, and a line edit would insert it for Super (and for Ctrl with Alt). The field's own
    // commands (select all, cut, paste, undo, word moves) go by key, so they still work.
    if ((event->modifiers() & (Qt::ControlModifier | Qt::MetaModifier)) &&
        !event->text().isEmpty()) {
        QKeyEvent command(event->type(), event->key(), event->modifiers(), event->nativeScanCode(),
                          event->nativeVirtualKey(), event->nativeModifiers(), QString(),
                          event->isAutoRepeat(), event->count(), event->device());
        QLineEdit::keyPressEvent(&command);
        event->setAccepted(command.isAccepted());
        return;
    }
    QLineEdit::keyPressEvent(event);
}

} // namespace pindle::ui
