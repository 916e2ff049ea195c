#include "ui/HeldKeys.h"

#include <QCoreApplication>
#include <QScopedValueRollback>

#include <iterator>
#include <utility>

namespace pindle::ui {

void HeldKeys::hold(QWidget *receiver, const QKeyEvent &event)
{
    m_keys.push_back(
        {receiver, std::unique_ptr<QKeyEvent>(static_cast<QKeyEvent *>(event.clone()))});
}

void HeldKeys::replay(const std::function<bool()> &mustWait, const std::function<bool()> &isShown)
{
    const QScopedValueRollback replaying(m_isReplaying, true);
    std::vector<Key> held = std::exchange(m_keys, {});
    for (auto key = held.begin(); key != held.end(); ++key) {
        if (mustWait()) {
            m_keys.assign(std::make_move_iterator(key), std::make_move_iterator(held.end()));
            return;
        }
        if (key->receiver && isShown())
            QCoreApplication::sendEvent(key->receiver, key->event.get());
    }
}

} // namespace pindle::ui
