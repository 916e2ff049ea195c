#include "ui/CommandField.h"

#include <QKeyEvent>

#include <limits>
#include <optional>

namespace pindle::ui {
namespace {

const QKeyEvent *g_currentEvent = nullptr;

std::optional<TextCommand> commandFor(const QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return TextCommand::insertNewline;
    case Qt::Key_Escape:
        return TextCommand::cancelOperation;
    case Qt::Key_Delete:
        return TextCommand::deleteForward;
    case Qt::Key_Up:
        return TextCommand::moveUp;
    case Qt::Key_Down:
        return TextCommand::moveDown;
    default:
        return std::nullopt;
    }
}

} // namespace

CurrentEventScope::CurrentEventScope(const QKeyEvent *event) : m_previous(g_currentEvent)
{
    g_currentEvent = event;
}

CurrentEventScope::~CurrentEventScope()
{
    g_currentEvent = m_previous;
}

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

const QKeyEvent *CommandField::currentEvent()
{
    return g_currentEvent;
}

void CommandField::keyPressEvent(QKeyEvent *event)
{
    const CurrentEventScope scope(event);
    if (const auto command = commandFor(event); command && onCommand) {
        if (onCommand(this, *command)) {
            event->accept();
            return;
        }
        // Forward delete not taken by the mode removes one character whatever modifiers are
        // held, as on the desktops shortcut files come from; Qt would take a word with Ctrl, or
        // cut with Shift.
        if (*command == TextCommand::deleteForward) {
            del();
            event->accept();
            return;
        }
    }
    QLineEdit::keyPressEvent(event);
}

} // namespace pindle::ui
