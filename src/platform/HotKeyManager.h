#pragma once

// System-wide hot keys: maps each registered key combination to the action its press runs.
// Knows nothing of panels.

#include "platform/Platform.h"

#include <QKeySequence>
#include <QObject>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <map>

namespace pindle {

class HotKeyManager : public QObject
{
    Q_OBJECT
public:
    struct Failure
    {
        QString name;
        platform::ShortcutRefusal reason = platform::ShortcutRefusal::notGiven;
    };

    // The shortcuts must outlive the manager; by default the installed backend's.
    HotKeyManager();
    explicit HotKeyManager(platform::GlobalShortcuts &shortcuts);
    ~HotKeyManager() override;

    // Asks the desktop for the combination under a name the desktop may show and remember
    // (ids for the desktop: "launcher", "creator"). False when it was refused at once; true when
    // it is bound or the desktop has not answered yet. Each registration takes the next id,
    // counted from 1 and never reused, whether it succeeds or not.
    bool registerHotKey(const QString &name, const QString &description, const QKeySequence &keys,
                        std::function<void()> onFire);
    void unregisterAll();

    // Runs `done` once no registration waits for the desktop's answer, or after `limit` at the
    // latest, with the registrations that are not bound by then (in registration order; one
    // still unanswered counts as not given). Desktops that bind at once answer within a turn of
    // the event loop; one that shows the user a dialog may take as long as the user does, and
    // one that never answers must not hold the start-up warning back for ever. Answers that
    // arrive later still bind or refuse the key, but nobody is told.
    void whenSettled(int limitMilliseconds, std::function<void(QList<Failure>)> done);

private:
    enum class State
    {
        pending,
        bound,
        refused
    };
    struct Registered
    {
        QString name;
        std::function<void()> onFire;
        State state = State::pending;
        platform::ShortcutRefusal reason = platform::ShortcutRefusal::notGiven;
    };

    Registered *find(const QString &name);
    void answered(const QString &name, State state, platform::ShortcutRefusal reason);
    void settleIfAnswered();
    void settle();

    platform::GlobalShortcuts &m_shortcuts;
    // By id, so registration order is id order.
    std::map<std::uint32_t, Registered> m_registered;
    // Never reset, so an id is never reused within a process.
    std::uint32_t m_nextID = 1;
    std::function<void(QList<Failure>)> m_onSettled;
    QTimer m_settleTimer;
};

} // namespace pindle
