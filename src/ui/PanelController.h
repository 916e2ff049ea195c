#pragma once

// The floating panel shared by the launcher and the creator: fixed layout, placement under the
// mouse, sizing to its rows, the selection, the mode's keys, and the confirmed move of the
// selected shortcut to the Trash.

#include "core/FileIndex.h"
#include "core/FolderScanner.h"
#include "platform/Platform.h"
#include "ui/CommandField.h"
#include "ui/DeletionConfirmation.h"
#include "ui/HeldKeys.h"
#include "ui/KeyBinding.h"
#include "ui/KeyablePanel.h"

#include <QHash>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QWidget>

#include <optional>
#include <span>

class QFrame;
class QLabel;
class QVBoxLayout;

namespace pindle::ui {

class ResultRowView;

class PanelController : public QObject
{
    Q_OBJECT
public:
    // header: an empty widget the mode fills afterwards; the panel takes ownership of it.
    PanelController(QWidget *header, double headerHeight);
    ~PanelController() override;

    QList<ResultRowView *> rowViews;
    QList<ScoredFile> results;
    QList<IndexedFile> files;
    qsizetype selectedIndex = -1;

    KeyablePanel *panel() const { return m_panel; }
    bool isVisible() const;
    // True while the deletion confirmation is open.
    bool isConfirming() const { return m_deletion.isConfirming(); }
    // True while the folder is being scanned beside the interface; the list comes after.
    bool isAwaitingFiles() const { return m_isAwaitingFiles; }
    // Waits for the scan under way and shows the list it makes. For tests.
    void waitForFiles() { m_scanner.waitForScan(); }
    // Tests scan small folders beside the interface too.
    void setMostBytesScannedInPlace(qint64 bytes) { m_scanner.setMostBytesInPlace(bytes); }

    virtual void show();
    virtual void hide(bool restoringFocus);
    virtual void rowClicked(qsizetype index);
    virtual void updateResults();

    void renderRows(const std::optional<QString> &message);
    void updateSelectionHighlight();
    void move(qsizetype step, bool allowNoSelection);

    // Asks, as a window-modal sheet on the panel, whether to move the selected shortcut to the
    // Trash; focusAfter gets the focus back once the sheet has closed, whatever the answer.
    void confirmDeleteSelection(QWidget *focusAfter);

protected:
    // Replaces the file list with a fresh scan of the folder, as every showing starts. False
    // when a large folder is being scanned beside the interface: filesScanned() then brings it.
    bool rescanFiles();
    // The list of a scan made beside the interface is in: by default the results follow it
    // and the keys held meanwhile act on them.
    virtual void filesScanned();
    // True while there is no list for keys to act on.
    virtual bool isAwaitingList() const { return m_isAwaitingFiles; }
    // Sends the keys held back to their fields in order, as they would have gone had the list
    // been there, until one of them brings the wait back.
    void replayHeldKeys();
    // Hooks a mode's field up to it: user edits update the results, and each key press is
    // looked up in keyBindings() before the field edits with it.
    void attachField(CommandField *field);
    // The mode's keys. The panel asks for them for every key press in one of its fields.
    virtual std::span<const KeyBinding> keyBindings() const { return {}; }
    // Does what a key pressed in field asks; false leaves the key to the field's editing. Both
    // deletions are done here, alike for both modes; a mode performs the rest.
    virtual bool perform(KeyAction action, CommandField *field);
    // The presentation steps every mode ends its showing with: capture the frontmost
    // application, place the panel, activate, make it key. The mode then focuses its field.
    void present();
    void positionWindow();

private:
    // Nothing when the platform knows no screen at all.
    std::optional<platform::Screen> screenUnderMouse() const;
    void resizeWindow(qsizetype rowCount, bool hasContent);
    bool keyPressed(CommandField *field, const QKeyEvent &event);
    void removeDeleted(const IndexedFile &file, qsizetype wasAt);
    void windowDidResignKey();
    const QIcon &iconFor(const IndexedFile &file);

    KeyablePanel *m_panel = nullptr;
    QFrame *m_separator = nullptr;
    QWidget *m_resultsStack = nullptr;
    QVBoxLayout *m_resultsLayout = nullptr;
    QLabel *m_messageLabel = nullptr;
    // The workspace's icons for the files listed since the last scan, by path: typing renders
    // the rows again and again, and each lookup goes to the disk.
    QHash<QString, QIcon> m_icons;
    double m_headerHeight = 0;
    bool m_isOrderingOut = false;
    DeletionConfirmation m_deletion;
    // Threads: the scanner's worker only lists the folder; everything here is the main thread's.
    FolderScanner m_scanner;
    bool m_isAwaitingFiles = false;
    HeldKeys m_heldKeys;
};

} // namespace pindle::ui
