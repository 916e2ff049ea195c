#include "ui/PanelController.h"

#include "platform/FocusRestore.h"
#include "ui/Palette.h"
#include "ui/ResultRowView.h"

#include <QApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QScopedValueRollback>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

#include <algorithm>
#include <cmath>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace pindle::ui {
namespace {

constexpr double panelWidth = 660;
constexpr double separatorHeight = 1;
constexpr int listInset = 6;
constexpr int messageLeading = 18;
// How long after a panel hides the freed memory is returned to the system.
constexpr int trimDelayMs = 250;
constexpr int messagePixelSize = 13;
// The panel's top edge sits this share of the visible height below the top of the screen.
constexpr double topOffsetShare = -0.22;
// Height changes this small leave the frame alone, so typing that keeps the row count does not
// touch the window.
constexpr double resizeTolerance = 0.5;

// A point on a frame's left or top edge is inside it, one on its right or bottom edge outside, so
// that side-by-side screens never both claim the pointer.
bool mouseInRect(const QPointF &point, const QRectF &rect)
{
    return point.x() >= rect.x() && point.x() < rect.x() + rect.width() && point.y() > rect.y() &&
           point.y() <= rect.y() + rect.height();
}

// The hairline between the header and the list, drawn in a thin shade of the text colour so it
// reads on light and dark palettes alike.
class SeparatorLine : public QFrame
{
public:
    SeparatorLine()
    {
        setObjectName(QStringLiteral("separator"));
        setFrameShape(QFrame::NoFrame);
        setFixedHeight(int(separatorHeight));
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        QColor line = palette().color(QPalette::WindowText);
        line.setAlphaF(isDark(palette()) ? 0.16f : 0.11f);
        painter.fillRect(rect(), line);
    }
};

} // namespace

PanelController::PanelController(QWidget *header, double headerHeight)
    : m_scanner(this, [this](const QList<IndexedFile> &scanned) {
          files = scanned;
          m_isAwaitingFiles = false;
          filesScanned();
      })
{
    m_separator = new SeparatorLine;
    m_resultsStack = new QWidget;
    m_messageLabel = new QLabel(QString());
    m_headerHeight = headerHeight;

    m_panel = new KeyablePanel;
    m_panel->setFrame(QRectF(0, 0, panelWidth, headerHeight), false);

    const QPointer<PanelController> weak(this);
    m_panel->onResignKey = [weak] {
        if (weak)
            weak->windowDidResignKey();
    };

    m_separator->hide();
    m_resultsStack->setObjectName(QStringLiteral("resultsStack"));
    m_resultsLayout = new QVBoxLayout(m_resultsStack);
    m_resultsLayout->setContentsMargins(0, listInset, 0, listInset);
    m_resultsLayout->setSpacing(0);
    m_resultsStack->hide();
    m_messageLabel->setObjectName(QStringLiteral("messageLabel"));
    QFont messageFont = QApplication::font();
    messageFont.setPixelSize(messagePixelSize);
    m_messageLabel->setFont(messageFont);
    m_messageLabel->setForegroundRole(QPalette::PlaceholderText);

    if (header->objectName().isEmpty())
        header->setObjectName(QStringLiteral("header"));
    header->setFixedHeight(qRound(headerHeight));
    auto *outer = new QVBoxLayout(m_panel);
    outer->setObjectName(QStringLiteral("outerStack"));
    // The window's height follows the rows (resizeWindow), not the layout's wishes.
    outer->setSizeConstraint(QLayout::SetNoConstraint);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);
    outer->addWidget(header);
    outer->addWidget(m_separator);
    outer->addWidget(m_resultsStack);
    outer->addStretch(1);
}

PanelController::~PanelController()
{
    m_panel->onResignKey = nullptr;
    if (m_messageLabel->parent() == nullptr)
        delete m_messageLabel;
    delete m_panel;
}

bool PanelController::isVisible() const
{
    return m_panel->isVisible();
}

void PanelController::show()
{
    present();
}

void PanelController::hide(bool restoringFocus)
{
    {
        const QScopedValueRollback orderingOut(m_isOrderingOut, true);
        m_panel->hide();
    }
    m_heldKeys.drop();
    if (restoringFocus)
        FocusRestore::restore();
#ifdef __GLIBC__
    // Each showing scans the folder again and frees the list it replaces, but the C library keeps
    // the freed pages for later; handing them back once the panel is gone is what keeps an idle
    // Pindle small. Done later, so that it delays neither the hiding nor a quick reopening.
    QTimer::singleShot(trimDelayMs, m_panel, [panel = m_panel] {
        if (!panel->isVisible())
            ::malloc_trim(0);
    });
#endif
}

bool PanelController::rescanFiles()
{
    // The old list goes first, so a rescan of a large folder never holds two lists at once.
    files.clear();
    m_icons.clear();
    std::optional<QList<IndexedFile>> scanned = m_scanner.scan();
    m_isAwaitingFiles = !scanned;
    if (scanned)
        files = std::move(*scanned);
    return !m_isAwaitingFiles;
}

void PanelController::filesScanned()
{
    if (!isVisible())
        return;
    updateResults();
    replayHeldKeys();
}

void PanelController::replayHeldKeys()
{
    m_heldKeys.replay([this] { return isAwaitingList(); }, [this] { return isVisible(); });
}

void PanelController::attachField(CommandField *field)
{
    connect(field, &QLineEdit::textEdited, this, [this] { updateResults(); });
    field->onKey = [self = QPointer(this)](CommandField *pressed, const QKeyEvent &event) {
        return self && self->keyPressed(pressed, event);
    };
}

// While there is no list, the keys that act on it are held back, and so is every key after
// them, so that the keys act in the order typed once the list is there. Keys that act on the
// fields alone (typed text) go through, and Escape gives up the keys held.
bool PanelController::keyPressed(CommandField *field, const QKeyEvent &event)
{
    const KeyBinding *binding = bindingFor(keyBindings(), event);
    if (!m_heldKeys.isReplaying()) {
        if (binding != nullptr && binding->action == KeyAction::cancel) {
            m_heldKeys.drop();
        } else if (!m_heldKeys.isEmpty() ||
                   (binding != nullptr && binding->actsOnList && isAwaitingList())) {
            m_heldKeys.hold(field, event);
            return true;
        }
    }
    return binding != nullptr && perform(binding->action, field);
}

bool PanelController::perform(KeyAction action, CommandField *field)
{
    switch (action) {
    case KeyAction::deleteRow:
        if (selectedIndex >= 0) {
            confirmDeleteSelection(field);
            return true;
        }
        [[fallthrough]];
    case KeyAction::deleteForward:
        // One character, as on the desktops shortcut files come from: Qt would take a word with
        // Ctrl, or cut with Shift. The edit is the user's, so the list follows it.
        field->del();
        return true;
    default:
        return false;
    }
}

void PanelController::present()
{
    FocusRestore::capture();
    positionWindow();
    platform::services().application->activateIgnoringOtherApps();
    m_panel->show();
    platform::services().application->makeKeyAndOrderFront(m_panel->windowHandle());
}

void PanelController::positionWindow()
{
    if (!platform::services().screens->canPlaceWindows())
        return;
    const std::optional<platform::Screen> screen = screenUnderMouse();
    if (!screen)
        return;
    const QRectF visible = screen->visibleFrame;
    const double height = m_panel->frame().height();
    const double x = visible.x() + (visible.width() - panelWidth) * 0.5;
    const double maxY = visible.y() + visible.height();
    const double y = (maxY + visible.height() * topOffsetShare) - height;
    // std::round takes halves away from zero, also below zero.
    m_panel->setFrame(QRectF(std::round(x), std::round(y), panelWidth, height), false);
}

std::optional<platform::Screen> PanelController::screenUnderMouse() const
{
    platform::Screens &screens = *platform::services().screens;
    const QPointF mouse = screens.mouseLocation();
    const QList<platform::Screen> all = screens.screens();
    for (const platform::Screen &screen : all) {
        if (mouseInRect(mouse, screen.frame))
            return screen;
    }
    if (std::optional<platform::Screen> main = screens.mainScreen())
        return main;
    if (!all.isEmpty())
        return all.first();
    return std::nullopt;
}

void PanelController::renderRows(const std::optional<QString> &message)
{
    while (QLayoutItem *item = m_resultsLayout->takeAt(0)) {
        if (QWidget *row = item->widget()) {
            // The one message label outlives the rows that show it.
            if (m_messageLabel->parent() == row)
                m_messageLabel->setParent(nullptr);
            row->hide();
            // Later, not now: the row may be the one whose click brought us here.
            row->deleteLater();
        }
        delete item;
    }
    rowViews.clear();

    bool hasContent = false;
    qsizetype rowCount = 0;
    if (message) {
        m_messageLabel->setText(*message);
        auto *row = new QWidget(m_resultsStack);
        row->setObjectName(QStringLiteral("messageRow"));
        row->setFixedHeight(ResultRowView::rowHeight);
        auto *rowLayout = new QHBoxLayout(row);
        rowLayout->setContentsMargins(messageLeading, 0, 0, 0);
        rowLayout->addWidget(m_messageLabel, 0, Qt::AlignVCenter);
        m_messageLabel->show();
        m_resultsLayout->addWidget(row);
        row->show();
        hasContent = true;
        rowCount = 1;
    } else {
        const QPointer<PanelController> weak(this);
        for (qsizetype i = 0; i < results.size(); ++i) {
            auto *row = new ResultRowView(m_resultsStack);
            row->configure(results[i], iconFor(results[i].file));
            row->setSelected(i == selectedIndex);
            row->onClick = [weak, i] {
                if (weak)
                    weak->rowClicked(i);
            };
            m_resultsLayout->addWidget(row);
            row->show();
            rowViews.append(row);
        }
        hasContent = !results.isEmpty();
        rowCount = results.size();
    }
    m_separator->setVisible(hasContent);
    m_resultsStack->setVisible(hasContent);
    resizeWindow(rowCount, hasContent);
}

void PanelController::resizeWindow(qsizetype rowCount, bool hasContent)
{
    double target = m_headerHeight;
    if (hasContent)
        target = double(rowCount) * ResultRowView::rowHeight +
                 ((m_headerHeight + separatorHeight) + 2 * listInset);
    const QRectF frame = m_panel->frame();
    if (std::abs(frame.height() - target) <= resizeTolerance)
        return;
    const double maxY = frame.y() + frame.height();
    m_panel->setFrame(QRectF(frame.x(), maxY - target, panelWidth, target), true);
}

const QIcon &PanelController::iconFor(const IndexedFile &file)
{
    const QString path = file.url.toLocalFile();
    auto found = m_icons.constFind(path);
    if (found == m_icons.constEnd())
        found = m_icons.insert(path, platform::services().workspace->iconForFile(path));
    return *found;
}

void PanelController::updateSelectionHighlight()
{
    for (qsizetype i = 0; i < rowViews.size(); ++i)
        rowViews[i]->setSelected(i == selectedIndex);
}

void PanelController::move(qsizetype step, bool allowNoSelection)
{
    if (results.isEmpty())
        return;
    const qsizetype next = selectedIndex + step;
    const qsizetype lower = allowNoSelection ? -1 : 0;
    selectedIndex = std::max(lower, std::min(next, results.size() - 1));
    updateSelectionHighlight();
}

void PanelController::rowClicked(qsizetype) {}

void PanelController::updateResults() {}

void PanelController::confirmDeleteSelection(QWidget *focusAfter)
{
    const qsizetype index = selectedIndex;
    if (index < 0 || index >= results.size())
        return;
    // The file named in the question is the one deleted, whatever the list does meanwhile.
    const IndexedFile file = results[index].file;
    m_deletion.ask(m_panel, file, [this, file, index, focus = QPointer(focusAfter)](bool moved) {
        if (moved)
            removeDeleted(file, index);
        if (focus) {
            // The window manager may leave the keyboard with whatever it focuses after the
            // sheet; the panel asks for it back while it is still shown.
            if (isVisible())
                m_panel->activateWindow();
            focus->setFocus(Qt::OtherFocusReason);
        }
    });
}

void PanelController::removeDeleted(const IndexedFile &file, qsizetype wasAt)
{
    files.removeIf([&file](const IndexedFile &entry) { return entry.url == file.url; });
    updateResults();
    if (results.isEmpty())
        return;
    selectedIndex = std::min(results.size() - 1, wasAt);
    updateSelectionHighlight();
}

void PanelController::windowDidResignKey()
{
    // Qt also reports the deactivation of a panel that is being (or has been) ordered out, from
    // inside the hiding; there is nothing left to hide then.
    if (!isConfirming() && !m_isOrderingOut && isVisible())
        hide(false);
}

} // namespace pindle::ui
