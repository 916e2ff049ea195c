#pragma once

// The floating panel shared by the launcher and the creator: window, fixed layout, placement
// under the mouse, sizing to its rows, the selection, key equivalents, and the confirmed move of
// the selected shortcut to the Trash.

#include "core/FileIndex.h"
#include "core/FolderScanner.h"
#include "platform/Platform.h"
#include "ui/CommandField.h"

#include <QHash>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QRectF>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QFrame;
class QKeyEvent;
class QLabel;
class QVBoxLayout;

namespace pindle::ui {

class ResultRowView;

// A frameless tool window that can take the keyboard focus and offers every key press carrying
// Ctrl or Meta (a key equivalent) to onKeyEquivalent before its widgets see it.
class KeyablePanel : public QWidget
{
    Q_OBJECT
public:
    explicit KeyablePanel(QWidget *parent = nullptr);

    std::function<bool(QKeyEvent *)> onKeyEquivalent;
    // Told when the window stops being the active (key) window.
    std::function<void()> onResignKey;

    // The window's frame in points, origin at the bottom left of the primary screen, y up.
    QRectF frame() const { return m_frame; }
    // Moves and sizes the window; with display it is repainted at once.
    void setFrame(const QRectF &frame, bool display);

    // Whether the background is drawn translucent (a compositor blends it with what lies
    // behind); otherwise it is opaque and the rounded corners are cut with a mask.
    bool isTranslucent() const { return m_isTranslucent; }

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QRectF m_frame;
    bool m_isTranslucent = false;
};

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
    bool isConfirming() const { return m_isConfirming; }
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
    // True when the mode consumed the key equivalent.
    virtual bool handleKeyEquivalent(QKeyEvent *event);

    void renderRows(const std::optional<QString> &message);
    void updateSelectionHighlight();
    void move(qsizetype step, bool allowNoSelection);

    // True when the key event being handled has Control held (other modifiers ignored); false
    // when no key event is being handled.
    bool isDeleteChord() const;
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
    // Whether a key acts on the list, and so waits for it (and every key after it with it).
    virtual bool actsOnList(const QKeyEvent *event) const;
    // Sends the keys held back to their fields in order, as they would have gone had the list
    // been there, until one of them brings the wait back.
    void replayHeldKeys();
    void dropHeldKeys();
    bool eventFilter(QObject *watched, QEvent *event) override;
    // Hooks a mode's field up to it: user edits update the results and the field's commands go
    // to doCommand.
    void attachField(CommandField *field);
    // True when the mode consumed the command; otherwise the field handles the key itself.
    virtual bool doCommand(CommandField *field, TextCommand command);
    // The presentation steps every mode ends its showing with: capture the frontmost
    // application, place the panel, activate, make it key. The mode then focuses its field.
    void present();
    void positionWindow();
    // The commands both modes give the list alike: the delete chord on a selected row asks to
    // delete it, with the field focused afterwards; Up and Down move the selection. False for
    // any other command, and for forward delete that is no chord on a row.
    bool handleListCommand(QWidget *field, TextCommand command, bool allowNoSelection);

private:
    // Key presses held back while there is no list, with the field they were for.
    struct HeldKey
    {
        QPointer<QWidget> receiver;
        std::unique_ptr<QKeyEvent> event;
    };

    // Nothing when the platform knows no screen at all.
    std::optional<platform::Screen> screenUnderMouse() const;
    void resizeWindow(qsizetype rowCount, bool hasContent);
    void deleteFile(const IndexedFile &file, qsizetype wasAt);
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
    bool m_isConfirming = false;
    bool m_isOrderingOut = false;
    // Threads: the scanner's worker only lists the folder; everything here is the main thread's.
    FolderScanner m_scanner;
    bool m_isAwaitingFiles = false;
    std::vector<HeldKey> m_heldKeys;
    bool m_isReplaying = false;
};

} // namespace pindle::ui
