#pragma once

// System-wide hot keys: maps the id of each registered key combination to the action its press
// runs. Knows nothing of panels.

#include "platform/Platform.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace pindle {

class HotKeyManager
{
public:
    // The service must outlive the manager; by default the installed backend's.
    HotKeyManager();
    explicit HotKeyManager(platform::HotKeyService &service);
    ~HotKeyManager();
    HotKeyManager(const HotKeyManager &) = delete;
    HotKeyManager &operator=(const HotKeyManager &) = delete;

    // keyCode is a macOS virtual key code (32 = U, 34 = I), modifiers the Carbon mask
    // (2048 = Option, Alt here). False when the handler could not be installed or the
    // combination could not be registered (usually because another client holds it).
    bool registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers,
                        std::function<void()> onFire);
    void unregisterAll();

private:
    bool installEventHandler();
    static std::uint32_t fourCharCode(std::string_view text);
    static platform::OSStatus handleHotKeyEvent(void *handlerCallRef,
                                                const platform::HotKeyEvent *event, void *userData);

    struct Registered
    {
        platform::EventHotKeyRef ref = nullptr;
        std::function<void()> onFire;
    };

    platform::HotKeyService &m_service;
    // By id.
    std::unordered_map<std::uint32_t, Registered> registered;
    std::optional<platform::EventHandlerRef> eventHandler;
    // Never reset, so an id is never reused within a process.
    std::uint32_t nextID = 1;
};

} // namespace pindle
