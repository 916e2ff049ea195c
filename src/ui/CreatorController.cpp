#include "ui/CreatorController.h"

#include "core/FileIndex.h"
#include "core/ShortcutWriter.h"
#include "core/Text.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QFont>
#include <QPalette>
#include <QScopedValueRollback>
#include <QTimer>
#include <QVBoxLayout>

#include <iterator>

namespace pindle::ui {
namespace {

constexpr qsizetype resultLimit = 6;
constexpr int nameFontPixels = 22;
constexpr int urlFontPixels = 13;
constexpr int fieldMargin = 18;
constexpr int fieldInset = 12;

} // namespace

CreatorController::CreatorController(QWidget *header, double headerHeight)
    : PanelController(header, headerHeight), m_targets(this, [this] { targetsRead(); })
{
    // The targets are read once the event loop runs, so that a large folder's list is at hand
    // by the first showing; later showings reread only what changed.
    QTimer::singleShot(0, this, [this] {
        if (!isVisible()) {
            rescanFiles();
            m_targets.ensureTargets(files);
        }
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
    field->installEventFilter(this);
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
    dropHeldKeys();
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
    if (!FileIndex::directoryExists()) {
        results.clear();
    } else if (!name.isEmpty()) {
        results = FileIndex::search(name, files, resultLimit);
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
    if (m_isAwaitingTargets)
        return;
    // The keys held back go to their fields in order, as they would have had the list been
    // there, unless one of them brings the wait back.
    const QScopedValueRollback replaying(m_isReplaying, true);
    std::vector<HeldKey> held = std::exchange(m_heldKeys, {});
    for (auto key = held.begin(); key != held.end(); ++key) {
        if (m_isAwaitingTargets) {
            m_heldKeys.assign(std::make_move_iterator(key), std::make_move_iterator(held.end()));
            return;
        }
        if (key->receiver && isVisible())
            QCoreApplication::sendEvent(key->receiver, key->event.get());
    }
}

void CreatorController::dropHeldKeys()
{
    m_heldKeys.clear();
}

// While the list waits for its targets, Up and Down, which act on it, are held back, and so is
// every key after them, so that the keys act in the order typed once the list is there. Keys
// that act on the fields alone (a typed name) go through, and Escape gives up the keys held.
bool CreatorController::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress || m_isReplaying || !watched->isWidgetType())
        return false;
    auto *key = static_cast<QKeyEvent *>(event);
    if (key->key() == Qt::Key_Escape) {
        dropHeldKeys();
        return false;
    }
    const bool movesSelection = key->key() == Qt::Key_Up || key->key() == Qt::Key_Down;
    if (m_heldKeys.empty() && !(m_isAwaitingTargets && movesSelection))
        return false;
    m_heldKeys.push_back({static_cast<QWidget *>(watched),
                          std::unique_ptr<QKeyEvent>(static_cast<QKeyEvent *>(key->clone()))});
    return true;
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

bool CreatorController::doCommand(CommandField *field, TextCommand command)
{
    switch (command) {
    case TextCommand::insertNewline:
        if (selectedIndex < 0)
            attemptCreate();
        else
            adoptName(selectedIndex);
        return true;
    case TextCommand::cancelOperation:
        if (field->text().isEmpty()) {
            hide(true);
        } else {
            field->clear();
            // The list follows the name only; clearing the address leaves it as it was.
            if (field == m_nameField)
                updateResults();
        }
        return true;
    default:
        return handleListCommand(field, command, true);
    }
}

} // namespace pindle::ui
