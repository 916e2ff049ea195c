#pragma once

// The Alt+I panel: saves the address from the clipboard as a new shortcut under a typed name.
// While the name is empty it lists the shortcuts that already point at the address; once a name
// is typed, the shortcuts whose names match it. Return saves, or adopts the selected row's name.

#include "core/SearchSession.h"
#include "core/TargetReader.h"
#include "ui/CommandField.h"
#include "ui/PanelController.h"

namespace pindle::ui {

class CreatorController : public PanelController
{
    Q_OBJECT
public:
    // header: the empty widget handed to the panel; buildFields() fills it.
    CreatorController(QWidget *header, double headerHeight);

    // Puts the name and URL fields into the header. Called once, right after construction.
    void buildFields(QWidget *header);
    // Null until buildFields().
    CommandField *nameField() const { return m_nameField; }
    CommandField *urlField() const { return m_urlField; }

    // Opens the panel for the address (trimmed here), with an empty name.
    void show(const QString &url);
    // Puts the address (trimmed here) into the open panel, as show() would have.
    void setURL(const QString &url);
    void hide(bool restoringFocus) override;
    void rowClicked(qsizetype index) override;
    void updateResults() override;

    // True while the list waits for the targets being read.
    bool isAwaitingTargets() const { return m_isAwaitingTargets; }
    // Waits for the targets being read and shows the list they make. For tests.
    void waitForTargets() { m_targets.waitForReading(); }

protected:
    void filesScanned() override;
    bool isAwaitingList() const override;
    std::span<const KeyBinding> keyBindings() const override;
    bool perform(KeyAction action, CommandField *field) override;

private:
    using PanelController::show;

    void targetsRead();

    CommandField *makeField(const QString &placeholder, int fontPixels, const QColor &color);
    void adoptName(qsizetype index);
    void attemptCreate();

    CommandField *m_nameField = nullptr;
    CommandField *m_urlField = nullptr;
    // Threads: the reader's worker only reads files; everything here is the main thread's.
    TargetReader m_targets;
    bool m_isAwaitingTargets = false;
    SearchSession m_search;
};

} // namespace pindle::ui
