#pragma once

// The confirmed move of a shortcut to the Trash: a window-modal sheet asks "Delete “name”?",
// and the Delete answer moves the file; a move that fails beeps.

#include "core/FileIndex.h"

#include <QObject>

#include <functional>

class QWidget;

namespace pindle::ui {

class DeletionConfirmation : public QObject
{
    Q_OBJECT
public:
    // True from the asking until the sheet has closed.
    bool isConfirming() const { return m_isConfirming; }

    // Asks on window about file and returns at once. Once the sheet has closed, closed is told
    // whether the file is now in the Trash; it is not called once this object is gone.
    void ask(QWidget *window, const IndexedFile &file, std::function<void(bool moved)> closed);

private:
    bool m_isConfirming = false;
};

} // namespace pindle::ui
