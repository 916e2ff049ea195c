#pragma once

// A single-line text field whose key presses go first to the panel it belongs to, and which
// never types the letter of a Ctrl or Super chord.

#include <QLineEdit>

#include <functional>

class QKeyEvent;

namespace pindle::ui {

class CommandField : public QLineEdit
{
    Q_OBJECT
public:
    explicit CommandField(QWidget *parent = nullptr);

    // Asked first for every key press; true means consumed, false lets the field edit with it.
    std::function<bool(CommandField *field, const QKeyEvent &event)> onKey;

protected:
    void keyPressEvent(QKeyEvent *event) override;
};

} // namespace pindle::ui
