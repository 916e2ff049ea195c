#include "ui/LauncherController.h"

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "core/Text.h"
#include "platform/Platform.h"

#include <QDir>
#include <QFont>
#include <QHBoxLayout>

namespace pindle::ui {
namespace {

constexpr qsizetype resultLimit = 8;
constexpr int fieldFontPixels = 24;
constexpr int fieldMargin = 18;

using Match = KeyBinding::Match;

// Return, Escape, forward delete and the arrows whatever else is held; Ctrl-C or Super-C with
// nothing else held (Caps Lock counts), so a chord with Shift or Alt is left to the field.
constexpr KeyBinding launcherKeys[] = {
    {Qt::Key_Return, Qt::NoModifier, Match::atLeast, KeyAction::submit, true},
    {Qt::Key_Enter, Qt::NoModifier, Match::atLeast, KeyAction::submit, true},
    {Qt::Key_Escape, Qt::NoModifier, Match::atLeast, KeyAction::cancel, false},
    {Qt::Key_C, Qt::ControlModifier, Match::exactly, KeyAction::copy, true},
    {Qt::Key_C, Qt::MetaModifier, Match::exactly, KeyAction::copy, true},
    {Qt::Key_Delete, Qt::ControlModifier, Match::atLeast, KeyAction::deleteRow, true},
    {Qt::Key_Delete, Qt::NoModifier, Match::atLeast, KeyAction::deleteForward, false},
    {Qt::Key_Up, Qt::NoModifier, Match::atLeast, KeyAction::moveUp, true},
    {Qt::Key_Down, Qt::NoModifier, Match::atLeast, KeyAction::moveDown, true},
};

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

std::span<const KeyBinding> LauncherController::keyBindings() const
{
    return launcherKeys;
}

bool LauncherController::perform(KeyAction action, CommandField *field)
{
    switch (action) {
    case KeyAction::submit:
        open(selectedIndex);
        return true;
    case KeyAction::cancel:
        if (!field->text().isEmpty()) {
            field->clear();
            updateResults();
        } else {
            hide(true);
        }
        return true;
    case KeyAction::copy:
        // With no row there is nothing of ours to copy: the field copies its selected text, if
        // any, and types nothing.
        if (selectedIndex < 0)
            return false;
        copyURL(selectedIndex);
        return true;
    case KeyAction::moveUp:
        move(-1, false);
        return true;
    case KeyAction::moveDown:
        move(1, false);
        return true;
    default:
        return PanelController::perform(action, field);
    }
}

} // namespace pindle::ui
