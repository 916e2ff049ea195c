#pragma once

// A single-line text field that maps its key presses to the text-editing commands the modes
// handle (Return, Escape, forward delete, Up, Down) before the standard editing sees them, and
// reports user edits.

#include <QLineEdit>

#include <functional>

class QKeyEvent;

namespace pindle::ui {

enum class TextCommand
{
    insertNewline,
    cancelOperation,
    deleteForward,
    moveUp,
    moveDown
};

class CommandField : public QLineEdit
{
    Q_OBJECT
public:
    explicit CommandField(QWidget *parent = nullptr);

    // Asked first for each mapped key; true means consumed, false lets the field handle the key.
    std::function<bool(CommandField *field, TextCommand command)> onCommand;

    // The key event being handled while onCommand runs (the platform's "current event"), or null.
    static const QKeyEvent *currentEvent();

protected:
    void keyPressEvent(QKeyEvent *event) override;
};

// Makes a key event the current event for as long as it lives; scopes nest, so a key equivalent
// offered while a field handles a key still sees its own event.
class CurrentEventScope
{
public:
    explicit CurrentEventScope(const QKeyEvent *event);
    ~CurrentEventScope();
    CurrentEventScope(const CurrentEventScope &) = delete;
    CurrentEventScope &operator=(const CurrentEventScope &) = delete;

private:
    const QKeyEvent *m_previous;
};

} // namespace pindle::ui
