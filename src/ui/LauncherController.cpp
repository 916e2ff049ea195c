#include "ui/LauncherController.h"

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "core/Text.h"
#include "platform/Platform.h"

#include <QDir>
#include <QFont>
#include <QHBoxLayout>
#include <QKeyEvent>

namespace pindle::ui {
namespace {

constexpr qsizetype resultLimit = 8;
constexpr int fieldFontPixels = 24;
constexpr int fieldMargin = 18;

// X's Lock bit in a key event's state: Qt folds Caps Lock into no modifier of its own.
constexpr quint32 capsLockMask = 0x2;

// Ctrl-C or Super-C with nothing else held. Caps Lock counts as held, so a chord typed with it
// on is left alone, like one that also carries Shift or Alt.
bool isCopyChord(const QKeyEvent *event)
{
    if (event->key() != Qt::Key_C)
        return false;
    if ((event->nativeModifiers() & capsLockMask) != 0)
        return false;
    const Qt::KeyboardModifiers relevant = Qt::ShiftModifier | Qt::ControlModifier |
                                           Qt::AltModifier | Qt::MetaModifier | Qt::KeypadModifier |
                                           Qt::GroupSwitchModifier;
    const Qt::KeyboardModifiers held = event->modifiers() & relevant;
    return held == Qt::ControlModifier || held == Qt::MetaModifier;
}

} // namespace

LauncherController::LauncherController(QWidget *header, double headerHeight)
    : PanelController(header, headerHeight)
{}

void LauncherController::buildField(QWidget *header)
{
    m_textField = new CommandField(header);
    m_textField->setObjectName(QStringLiteral("searchField"));
    QFont font = m_textField->font();
    font.setPixelSize(fieldFontPixels);
    m_textField->setFont(font);
    m_textField->setPlaceholderText(QStringLiteral("Pindle to:"));

    auto *layout = new QHBoxLayout(header);
    layout->setContentsMargins(fieldMargin, 0, fieldMargin, 0);
    layout->addWidget(m_textField, 0, Qt::AlignVCenter);

    attachField(m_textField);
}

void LauncherController::show()
{
    rescanFiles();
    m_textField->clear();
    updateResults();
    present();
    m_textField->setFocus(Qt::ActiveWindowFocusReason);
}

void LauncherController::hide(bool restoringFocus)
{
    PanelController::hide(restoringFocus);
    m_textField->clear();
    updateResults();
}

void LauncherController::rowClicked(qsizetype index)
{
    open(index);
}

void LauncherController::updateResults()
{
    const QString query = Text::trimmedWhitespace(m_textField->text());
    if (query.isEmpty()) {
        results.clear();
        selectedIndex = -1;
    } else if (!FileIndex::directoryExists()) {
        results.clear();
        selectedIndex = -1;
        renderRows(QDir::cleanPath(FileIndex::directory().toLocalFile()) +
                   QStringLiteral(" not found"));
        return;
    } else if (isAwaitingFiles()) {
        // No rows until the list is in; the query is applied to it then.
        results.clear();
        selectedIndex = -1;
    } else {
        results = FileIndex::search(query, files, resultLimit, m_search);
        selectedIndex = results.isEmpty() ? -1 : 0;
    }
    renderRows(std::nullopt);
}

bool LauncherController::handleKeyEquivalent(QKeyEvent *event)
{
    if (!isVisible() || selectedIndex < 0)
        return false;
    if (!isCopyChord(event))
        return false;
    copyURL(selectedIndex);
    return true;
}

bool LauncherController::actsOnList(const QKeyEvent *event) const
{
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return true;
    case Qt::Key_Delete:
        return event->modifiers().testFlag(Qt::ControlModifier);
    default:
        return isCopyChord(event) || PanelController::actsOnList(event);
    }
}

void LauncherController::open(qsizetype index)
{
    if (index < 0 || index >= results.size())
        return;
    const QUrl file = results[index].file.url;
    // Opened while the panel still has the focus: on Wayland the opener's activation token is
    // asked for through the focused window, which must still have its surface (Qt 6.8 crashes on
    // a hidden one). No focus restore: the application that opens the file takes the focus.
    platform::services().workspace->openFile(file);
    hide(false);
}

void LauncherController::copyURL(qsizetype index)
{
    if (index < 0 || index >= results.size())
        return;
    const QUrl file = results[index].file.url;
    const QString text = ShortcutURL::target(file).value_or(file.toLocalFile());
    // Before the panel hides: on Wayland only the focused window may set the clipboard.
    auto &pasteboard = *platform::services().pasteboard;
    pasteboard.clearContents();
    pasteboard.setString(text);
    hide(true);
}

bool LauncherController::doCommand(CommandField *field, TextCommand command)
{
    switch (command) {
    case TextCommand::insertNewline:
        open(selectedIndex);
        return true;
    case TextCommand::cancelOperation:
        if (!field->text().isEmpty()) {
            field->clear();
            updateResults();
        } else {
            hide(true);
        }
        return true;
    default:
        return handleListCommand(field, command, false);
    }
}

} // namespace pindle::ui
