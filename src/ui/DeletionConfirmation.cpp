#include "ui/DeletionConfirmation.h"

#include "platform/Platform.h"
#include "ui/Alert.h"

#include <QPointer>

namespace pindle::ui {
namespace {

bool moveToTrash(const IndexedFile &file)
{
    platform::Workspace &workspace = *platform::services().workspace;
    if (workspace.moveToTrash(file.url))
        return true;
    workspace.beep();
    return false;
}

} // namespace

void DeletionConfirmation::ask(QWidget *window, const IndexedFile &file,
                               std::function<void(bool moved)> closed)
{
    Alert alert;
    alert.messageText =
        QStringLiteral("Delete \u201C") + file.displayName + QStringLiteral("\u201D?");
    alert.informativeText = QStringLiteral("The shortcut will be moved to the Trash.");
    alert.style = Alert::Style::warning;
    alert.addButton(QStringLiteral("Delete"));
    alert.addButton(QStringLiteral("Cancel"));

    m_isConfirming = true;
    alert.beginSheet(window,
                     [self = QPointer(this), file, closed = std::move(closed)](int response) {
                         if (!self)
                             return;
                         self->m_isConfirming = false;
                         closed(response == Alert::firstButtonReturn && moveToTrash(file));
                     });
}

} // namespace pindle::ui
