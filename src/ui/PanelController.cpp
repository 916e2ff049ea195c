#include "ui/PanelController.h"

#include "platform/FocusRestore.h"
#include "ui/Alert.h"
#include "ui/CommandField.h"
#include "ui/ResultRowView.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QScopedValueRollback>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace pindle::ui {
namespace {

constexpr double panelWidth = 660;
constexpr double cornerRadius = 12;
constexpr double separatorHeight = 1;
constexpr int listInset = 6;
constexpr double rowHeight = 50;
constexpr int messageLeading = 18;
// How long after a panel hides the freed memory is returned to the system.
constexpr int trimDelayMs = 250;
constexpr int messagePixelSize = 13;
// The panel's top edge sits this share of the visible height below the top of the screen.
constexpr double topOffsetShare = -0.22;
// Height changes this small leave the frame alone, so typing that keeps the row count does not
// touch the window.
constexpr double resizeTolerance = 0.5;

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < 128;
}

// Whether something blends translucent windows with what lies behind them. Without it the panel
// stays opaque and cuts its corners with a mask.
bool compositorRuns()
{
    platform::Application *application = platform::services().application.get();
    return application != nullptr && application->isCompositing();
}

// Pressing a modifier on its own is no key equivalent, though the press carries its own flag.
bool isModifierKey(int key)
{
    switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Meta:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
        return true;
    default:
        return false;
    }
}

// A point on a frame's left or top edge is inside it, one on its right or bottom edge outside, so
// that side-by-side screens never both claim the pointer.
bool mouseInRect(const QPointF &point, const QRectF &rect)
{
    return point.x() >= rect.x() && point.x() < rect.x() + rect.width() && point.y() > rect.y() &&
           point.y() <= rect.y() + rect.height();
}

QPainterPath roundedOutline(const QRectF &rect, double radius = cornerRadius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    return path;
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

// ---- KeyablePanel

KeyablePanel::KeyablePanel(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("panel"));
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setWindowTitle(QApplication::applicationDisplayName());
    m_isTranslucent = compositorRuns();
    if (m_isTranslucent)
        setAttribute(Qt::WA_TranslucentBackground);
    // Key presses reach the focused field first; watching the application lets the panel see
    // them before any of its widgets does.
    qApp->installEventFilter(this);
}

void KeyablePanel::setFrame(const QRectF &frame, bool display)
{
    m_frame = frame;
    platform::Screens &screens = *platform::services().screens;
    const QRectF geometry = screens.toWindowSystem(frame);
    // Where the compositor places windows, the panel only tells it its size.
    if (screens.canPlaceWindows())
        setGeometry(QRect(qRound(geometry.x()), qRound(geometry.y()), qRound(geometry.width()),
                          qRound(geometry.height())));
    else
        resize(qRound(geometry.width()), qRound(geometry.height()));
    if (display && isVisible())
        repaint();
}

bool KeyablePanel::event(QEvent *event)
{
    if (event->type() == QEvent::WindowDeactivate && onResignKey)
        onResignKey();
    return QWidget::event(event);
}

bool KeyablePanel::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress || !watched->isWidgetType())
        return false;
    auto *receiver = static_cast<QWidget *>(watched);
    // A key the first receiver ignores travels on to its parents; offer it only once, at the
    // widget the window delivers it to.
    QWidget *first = focusWidget() != nullptr ? focusWidget() : this;
    if (receiver != first || receiver->window() != this)
        return false;
    auto *key = static_cast<QKeyEvent *>(event);
    if (!(key->modifiers() & (Qt::ControlModifier | Qt::MetaModifier)) ||
        isModifierKey(key->key()) || !onKeyEquivalent)
        return false;
    const CurrentEventScope scope(key);
    if (!onKeyEquivalent(key))
        return false;
    key->accept();
    return true;
}

void KeyablePanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const bool dark = isDark(palette());
    QColor background = palette().color(QPalette::Window);
    const QColor border = dark ? QColor(255, 255, 255, 46) : QColor(0, 0, 0, 56);
    if (m_isTranslucent) {
        background.setAlphaF(dark ? 0.88f : 0.90f);
        painter.setPen(QPen(border, 1));
        painter.setBrush(background);
        painter.drawPath(roundedOutline(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5)));
        return;
    }
    // The mask is one bit deep and cuts through an antialiased outline. So the whole window
    // gets the border's shade and the background is laid inside it, one pixel in: whatever
    // pixels the mask keeps at the corners read as the outline.
    const float a = border.alphaF();
    const QColor edge =
        QColor::fromRgbF(background.redF() + (border.redF() - background.redF()) * a,
                         background.greenF() + (border.greenF() - background.greenF()) * a,
                         background.blueF() + (border.blueF() - background.blueF()) * a);
    painter.fillRect(rect(), edge);
    painter.fillPath(roundedOutline(QRectF(rect()).adjusted(1, 1, -1, -1), cornerRadius - 1),
                     background);
}

void KeyablePanel::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (!m_isTranslucent)
        setMask(QRegion(roundedOutline(QRectF(rect())).toFillPolygon().toPolygon()));
}

// ---- PanelController

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
    m_panel->onKeyEquivalent = [weak](QKeyEvent *event) {
        return weak ? weak->handleKeyEquivalent(event) : false;
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
    m_panel->onKeyEquivalent = nullptr;
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
    dropHeldKeys();
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

bool PanelController::actsOnList(const QKeyEvent *event) const
{
    return event->key() == Qt::Key_Up || event->key() == Qt::Key_Down;
}

void PanelController::replayHeldKeys()
{
    const QScopedValueRollback replaying(m_isReplaying, true);
    std::vector<HeldKey> held = std::exchange(m_heldKeys, {});
    for (auto key = held.begin(); key != held.end(); ++key) {
        if (isAwaitingList()) {
            m_heldKeys.assign(std::make_move_iterator(key), std::make_move_iterator(held.end()));
            return;
        }
        if (key->receiver && isVisible())
            QCoreApplication::sendEvent(key->receiver, key->event.get());
    }
}

void PanelController::dropHeldKeys()
{
    m_heldKeys.clear();
}

// While there is no list, the keys that act on it are held back, and so is every key after
// them, so that the keys act in the order typed once the list is there. Keys that act on the
// fields alone (typed text) go through, and Escape gives up the keys held.
bool PanelController::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress || m_isReplaying || !watched->isWidgetType())
        return false;
    auto *key = static_cast<QKeyEvent *>(event);
    if (key->key() == Qt::Key_Escape) {
        dropHeldKeys();
        return false;
    }
    if (m_heldKeys.empty() && !(isAwaitingList() && actsOnList(key)))
        return false;
    m_heldKeys.push_back({static_cast<QWidget *>(watched),
                          std::unique_ptr<QKeyEvent>(static_cast<QKeyEvent *>(key->clone()))});
    return true;
}

void PanelController::attachField(CommandField *field)
{
    connect(field, &QLineEdit::textEdited, this, [this] { updateResults(); });
    field->onCommand = [self = QPointer(this)](CommandField *edited, TextCommand command) {
        return self && self->doCommand(edited, command);
    };
    field->installEventFilter(this);
}

bool PanelController::doCommand(CommandField *, TextCommand)
{
    return false;
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
        row->setFixedHeight(int(rowHeight));
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
        target =
            double(rowCount) * rowHeight + ((m_headerHeight + separatorHeight) + 2 * listInset);
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

bool PanelController::handleListCommand(QWidget *field, TextCommand command, bool allowNoSelection)
{
    switch (command) {
    case TextCommand::deleteForward:
        if (!isDeleteChord() || selectedIndex < 0)
            return false;
        confirmDeleteSelection(field);
        return true;
    case TextCommand::moveDown:
        move(1, allowNoSelection);
        return true;
    case TextCommand::moveUp:
        move(-1, allowNoSelection);
        return true;
    default:
        return false;
    }
}

void PanelController::rowClicked(qsizetype) {}

void PanelController::updateResults() {}

bool PanelController::handleKeyEquivalent(QKeyEvent *)
{
    return false;
}

bool PanelController::isDeleteChord() const
{
    const QKeyEvent *event = CommandField::currentEvent();
    return event != nullptr && event->modifiers().testFlag(Qt::ControlModifier);
}

void PanelController::confirmDeleteSelection(QWidget *focusAfter)
{
    const qsizetype index = selectedIndex;
    if (index < 0 || index >= results.size())
        return;
    const IndexedFile file = results[index].file;

    Alert alert;
    alert.messageText =
        QStringLiteral("Delete \u201C") + file.displayName + QStringLiteral("\u201D?");
    alert.informativeText = QStringLiteral("The shortcut will be moved to the Trash.");
    alert.style = Alert::Style::warning;
    alert.addButton(QStringLiteral("Delete"));
    alert.addButton(QStringLiteral("Cancel"));

    m_isConfirming = true;
    const QPointer<PanelController> weak(this);
    const QPointer<QWidget> focus(focusAfter);
    alert.beginSheet(m_panel, [weak, file, index, focus](int response) {
        if (!weak)
            return;
        weak->m_isConfirming = false;
        if (response == Alert::firstButtonReturn)
            weak->deleteFile(file, index);
        if (weak && focus) {
            // The window manager may leave the keyboard with whatever it focuses after the
            // sheet; the panel asks for it back while it is still shown.
            if (weak->isVisible())
                weak->m_panel->activateWindow();
            focus->setFocus(Qt::OtherFocusReason);
        }
    });
}

void PanelController::deleteFile(const IndexedFile &file, qsizetype wasAt)
{
    platform::Workspace &workspace = *platform::services().workspace;
    if (!workspace.moveToTrash(file.url)) {
        workspace.beep();
        return;
    }
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
    if (!m_isConfirming && !m_isOrderingOut && isVisible())
        hide(false);
}

} // namespace pindle::ui
