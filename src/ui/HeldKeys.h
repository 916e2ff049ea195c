#pragma once

// Key presses held back while a panel has no list for them to act on (the folder or the
// targets are still being read), kept with the field each was for, to be sent again in the
// order typed once the list is there.

#include <QKeyEvent>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>
#include <vector>

namespace pindle::ui {

class HeldKeys
{
public:
    bool isEmpty() const { return m_keys.empty(); }
    // True while the held keys are being sent again: they are not to be held a second time.
    bool isReplaying() const { return m_isReplaying; }

    void hold(QWidget *receiver, const QKeyEvent &event);
    void drop() { m_keys.clear(); }
    // Sends the keys to their fields in order until mustWait says the list is gone again; the
    // rest stay held. Keys whose field is gone, or sent while isShown is false, are dropped.
    void replay(const std::function<bool()> &mustWait, const std::function<bool()> &isShown);

private:
    struct Key
    {
        QPointer<QWidget> receiver;
        std::unique_ptr<QKeyEvent> event;
    };

    std::vector<Key> m_keys;
    bool m_isReplaying = false;
};

} // namespace pindle::ui
