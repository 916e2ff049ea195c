#pragma once

// The floating panel shared by the launcher and the creator: window, fixed layout, placement
// under the mouse, sizing to its rows, the selection, key equivalents, and the confirmed move of
// the selected shortcut to the Trash.

#include "core/FileIndex.h"
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
#include <optional>

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
    // Replaces the file list with a fresh scan of the folder, as every showing starts.
    void rescanFiles();
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
};

} // namespace pindle::ui
