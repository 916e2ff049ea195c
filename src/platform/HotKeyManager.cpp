#include "platform/HotKeyManager.h"

#include <limits>
#include <utility>

namespace pindle {

HotKeyManager::HotKeyManager() : HotKeyManager(*platform::services().shortcuts) {}

HotKeyManager::HotKeyManager(platform::GlobalShortcuts &shortcuts) : m_shortcuts(shortcuts)
{
    m_settleTimer.setSingleShot(true);
    connect(&m_settleTimer, &QTimer::timeout, this, &HotKeyManager::settle);
    connect(&m_shortcuts, &platform::GlobalShortcuts::bound, this,
            [this](const QString &name) { answered(name, State::bound, {}); });
    connect(&m_shortcuts, &platform::GlobalShortcuts::refused, this,
            [this](const QString &name, platform::ShortcutRefusal reason) {
                answered(name, State::refused, reason);
            });
    connect(&m_shortcuts, &platform::GlobalShortcuts::activated, this, [this](const QString &name) {
        const Registered *hotKey = find(name);
        if (hotKey == nullptr || hotKey->state == State::refused || !hotKey->onFire)
            return;
        // A copy: the action may unregister its own key, which would destroy the stored one
        // while it runs.
        const std::function<void()> action = hotKey->onFire;
        action();
    });
}

HotKeyManager::~HotKeyManager()
{
    unregisterAll();
}

bool HotKeyManager::registerHotKey(const QString &name, const QString &description,
                                   const QKeySequence &keys, std::function<void()> onFire)
{
    // Two keys per run never get here; refusing keeps ids unique if something ever does.
    if (m_nextID == std::numeric_limits<std::uint32_t>::max() || find(name) != nullptr)
        return false;
    const std::uint32_t id = m_nextID++;
    m_registered[id] = {.name = name, .onFire = std::move(onFire)};
    m_shortcuts.bind(name, description, keys);
    // The answer may have come during bind().
    const auto found = m_registered.find(id);
    if (found == m_registered.end())
        return false;
    return found->second.state != State::refused;
}

void HotKeyManager::unregisterAll()
{
    const std::map<std::uint32_t, Registered> registered = std::exchange(m_registered, {});
    for (const auto &[id, hotKey] : registered) {
        if (hotKey.state != State::refused)
            m_shortcuts.release(hotKey.name);
    }
}

void HotKeyManager::whenSettled(int limitMilliseconds, std::function<void(QList<Failure>)> done)
{
    m_onSettled = std::move(done);
    m_settleTimer.start(limitMilliseconds);
    // Queued even when everything is answered, so the caller is never re-entered.
    QMetaObject::invokeMethod(this, &HotKeyManager::settleIfAnswered, Qt::QueuedConnection);
}

HotKeyManager::Registered *HotKeyManager::find(const QString &name)
{
    for (auto &[id, hotKey] : m_registered) {
        if (hotKey.name == name)
            return &hotKey;
    }
    return nullptr;
}

void HotKeyManager::answered(const QString &name, State state, platform::ShortcutRefusal reason)
{
    Registered *hotKey = find(name);
    if (hotKey == nullptr)
        return;
    hotKey->state = state;
    hotKey->reason = reason;
    if (state == State::refused)
        hotKey->onFire = nullptr;
    settleIfAnswered();
}

void HotKeyManager::settleIfAnswered()
{
    for (const auto &[id, hotKey] : m_registered) {
        if (hotKey.state == State::pending)
            return;
    }
    settle();
}

void HotKeyManager::settle()
{
    if (!m_onSettled)
        return;
    m_settleTimer.stop();
    QList<Failure> failures;
    for (const auto &[id, hotKey] : m_registered) {
        if (hotKey.state != State::bound)
            failures.append({hotKey.name, hotKey.reason});
    }
    // Cleared first: the callback may run a modal alert, during which more answers arrive.
    const std::function<void(QList<Failure>)> done = std::exchange(m_onSettled, nullptr);
    done(failures);
}

} // namespace pindle
