#pragma once

// The Alt+U panel: one large search field over the shortcut folder. Typing lists the best
// matches; Return opens the selected shortcut file, Ctrl-C or Super-C copies its address,
// Ctrl+Delete moves it to the Trash after a confirmation, Escape clears the query or closes.

#include "core/SearchSession.h"
#include "ui/CommandField.h"
#include "ui/PanelController.h"

namespace pindle::ui {

class LauncherController : public PanelController
{
    Q_OBJECT
public:
    // header: the empty widget handed to the panel; buildField() fills it.
    LauncherController(QWidget *header, double headerHeight);

    // Puts the search field into the header. Called once, right after construction.
    void buildField(QWidget *header);
    // Null until buildField().
    CommandField *textField() const { return m_textField; }

    void show() override;
    void hide(bool restoringFocus) override;
    void rowClicked(qsizetype index) override;
    void updateResults() override;

protected:
    std::span<const KeyBinding> keyBindings() const override;
    bool perform(KeyAction action, CommandField *field) override;

private:
    void open(qsizetype index);
    void copyURL(qsizetype index);

    CommandField *m_textField = nullptr;
    SearchSession m_search;
};

} // namespace pindle::ui
