#pragma once

// A mode's keys as a table: which key press, with which modifiers, asks for which action. The
// panel looks each key press in its field up here before the field's own editing sees it.

#include <QKeyEvent>

#include <span>

namespace pindle::ui {

// What a key asks of a panel; each mode says what it means there.
enum class KeyAction
{
    // Return: the launcher opens the selected shortcut, the creator saves or adopts a name.
    submit,
    // Escape: clears the field, or closes the panel when it is empty.
    cancel,
    // Copies the selected shortcut's address.
    copy,
    // The delete chord: asks to move the selected shortcut to the Trash. With no row selected
    // it is forward delete.
    deleteRow,
    // Removes the character after the caret (or the selected text), whatever modifiers are held.
    deleteForward,
    moveUp,
    moveDown,
};

struct KeyBinding
{
    enum class Match
    {
        // These modifiers and no other (Caps Lock counts as another).
        exactly,
        // These modifiers, whatever else is held.
        atLeast,
    };

    Qt::Key key;
    Qt::KeyboardModifiers modifiers;
    Match match;
    KeyAction action;
    // Whether the action needs the list: while the folder is still being read, such a key waits
    // for it, and so does every key after it.
    bool actsOnList;
};

// The first binding of table the key press matches, or null.
const KeyBinding *bindingFor(std::span<const KeyBinding> table, const QKeyEvent &event);

} // namespace pindle::ui
