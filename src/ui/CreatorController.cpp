#include "ui/CreatorController.h"

#include "core/FileIndex.h"
#include "core/ShortcutWriter.h"
#include "core/Text.h"
#include "platform/Platform.h"

#include <QFont>
#include <QPalette>
#include <QTimer>
#include <QVBoxLayout>

namespace pindle::ui {
namespace {

constexpr qsizetype resultLimit = 6;
constexpr int nameFontPixels = 22;
constexpr int urlFontPixels = 13;
constexpr int fieldMargin = 18;
constexpr int fieldInset = 12;

using Match = KeyBinding::Match;

// Return, Escape, forward delete and the arrows whatever else is held. Only the arrows wait for
// the list: Return with no row selected saves, and every refresh leaves no row selected.
constexpr KeyBinding creatorKeys[] = {
    {Qt::Key_Return, Qt::NoModifier, Match::atLeast, KeyAction::submit, false},
    {Qt::Key_Enter, Qt::NoModifier, Match::atLeast, KeyAction::submit, false},
    {Qt::Key_Escape, Qt::NoModifier, Match::atLeast, KeyAction::cancel, false},
    {Qt::Key_Delete, Qt::ControlModifier, Match::atLeast, KeyAction::deleteRow, false},
    {Qt::Key_Delete, Qt::NoModifier, Match::atLeast, KeyAction::deleteForward, false},
    {Qt::Key_Up, Qt::NoModifier, Match::atLeast, KeyAction::moveUp, true},
    {Qt::Key_Down, Qt::NoModifier, Match::atLeast, KeyAction::moveDown, true},
};

} // namespace

CreatorController::CreatorController(QWidget *header, double headerHeight)
    : PanelController(header, headerHeight), m_targets(this, [this] { targetsRead(); })
{
    // The targets are read once the event loop runs, so that a large folder's list is at hand
    // by the first showing; later showings reread only what changed.
    QTimer::singleShot(0, this, [this] {
        if (!isVisible() && rescanFiles())
            m_targets.ensureTargets(files);
    });
}

CommandField *CreatorController::makeField(const QString &placeholder, int fontPixels,
                                           const QColor &color)
{
    auto *field = new CommandField;
    QFont font = field->font();
    font.setPixelSize(fontPixels);
    field->setFont(font);
    QPalette palette = field->palette();
    palette.setColor(QPalette::Text, color);
    field->setPalette(palette);
    field->setPlaceholderText(placeholder);
    attachField(field);
    return field;
}

void CreatorController::buildFields(QWidget *header)
{
    const QPalette palette = header->palette();
    m_nameField =
        makeField(QStringLiteral("Save as:"), nameFontPixels, palette.color(QPalette::WindowText));
    m_nameField->setObjectName(QStringLiteral("nameField"));
    m_urlField =
        makeField(QStringLiteral("URL"), urlFontPixels, palette.color(QPalette::PlaceholderText));
    m_urlField->setObjectName(QStringLiteral("urlField"));

    auto *layout = new QVBoxLayout(header);
    layout->setContentsMargins(fieldMargin, fieldInset, fieldMargin, fieldInset);
    layout->setSpacing(0);
    layout->addWidget(m_nameField, 0, Qt::AlignTop);
    layout->addStretch(1);
    layout->addWidget(m_urlField, 0, Qt::AlignBottom);

    // Tab and Shift-Tab go round the two fields and nowhere else.
    QWidget::setTabOrder(m_nameField, m_urlField);
    QWidget::setTabOrder(m_urlField, m_nameField);
}

void CreatorController::show(const QString &url)
{
    rescanFiles();
    m_nameField->clear();
    m_urlField->setText(Text::trimmedWhitespaceAndNewlines(url));
    updateResults();
    present();
    m_nameField->setFocus(Qt::ActiveWindowFocusReason);
}

void CreatorController::setURL(const QString &url)
{
    m_urlField->setText(Text::trimmedWhitespaceAndNewlines(url));
    updateResults();
}

void CreatorController::hide(bool restoringFocus)
{
    PanelController::hide(restoringFocus);
    m_isAwaitingTargets = false;
    m_nameField->clear();
    m_urlField->clear();
    results.clear();
    selectedIndex = -1;
    renderRows(std::nullopt);
}

void CreatorController::rowClicked(qsizetype index)
{
    adoptName(index);
}

void CreatorController::updateResults()
{
    const QString name = Text::trimmedWhitespace(m_nameField->text());
    m_isAwaitingTargets = false;
    if (!FileIndex::directoryExists() || isAwaitingFiles()) {
        results.clear();
    } else if (!name.isEmpty()) {
        results = FileIndex::search(name, files, resultLimit, m_search);
    } else if (!Text::trimmedWhitespaceAndNewlines(m_urlField->text()).isEmpty() &&
               !m_targets.ensureTargets(files)) {
        // No list rather than one made of some targets: targetsRead() shows it.
        results.clear();
        m_isAwaitingTargets = true;
    } else {
        results = FileIndex::matching(m_urlField->text(), files, resultLimit);
    }
    selectedIndex = -1;
    renderRows(std::nullopt);
}

void CreatorController::targetsRead()
{
    if (!m_isAwaitingTargets || !isVisible())
        return;
    // Asks again: the list may have been rescanned while the reading ran.
    updateResults();
    replayHeldKeys();
}

void CreatorController::filesScanned()
{
    // A list scanned while the panel is hidden has its targets read before the next showing.
    if (!isVisible())
        m_targets.ensureTargets(files);
    else
        PanelController::filesScanned();
}

bool CreatorController::isAwaitingList() const
{
    return PanelController::isAwaitingList() || m_isAwaitingTargets;
}

void CreatorController::adoptName(qsizetype index)
{
    if (index < 0 || index >= results.size())
        return;
    const QString name = results[index].file.displayName;
    m_nameField->setText(name);
    if (m_nameField->hasFocus())
        m_nameField->setCursorPosition(int(name.size()));
    updateResults();
    m_nameField->setFocus(Qt::OtherFocusReason);
}

void CreatorController::attemptCreate()
{
    const auto created =
        ShortcutWriter::create(m_nameField->text(), m_urlField->text(), FileIndex::directory());
    if (!created) {
        // A refused name or a failed write: the user fixes the text and tries again.
        platform::services().workspace->beep();
        return;
    }
    hide(true);
}

std::span<const KeyBinding> CreatorController::keyBindings() const
{
    return creatorKeys;
}

bool CreatorController::perform(KeyAction action, CommandField *field)
{
    switch (action) {
    case KeyAction::submit:
        if (selectedIndex < 0)
            attemptCreate();
        else
            adoptName(selectedIndex);
        return true;
    case KeyAction::cancel:
        if (field->text().isEmpty()) {
            hide(true);
        } else {
            field->clear();
            // The list follows the name only; clearing the address leaves it as it was.
            if (field == m_nameField)
                updateResults();
        }
        return true;
    case KeyAction::moveUp:
        move(-1, true);
        return true;
    case KeyAction::moveDown:
        move(1, true);
        return true;
    default:
        return PanelController::perform(action, field);
    }
}

} // namespace pindle::ui
