#include "platform/HotKeyManager.h"

#include <limits>
#include <utility>

namespace pindle {

HotKeyManager::HotKeyManager() : HotKeyManager(*platform::services().hotKeys) {}

HotKeyManager::HotKeyManager(platform::HotKeyService &service) : m_service(service) {}

HotKeyManager::~HotKeyManager()
{
    unregisterAll();
}

bool HotKeyManager::registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers,
                                   std::function<void()> onFire)
{
    if (!eventHandler && !installEventHandler())
        return false;
    // Two keys per run never get here; refusing keeps ids unique if something ever does.
    if (nextID == std::numeric_limits<std::uint32_t>::max())
        return false;

    const std::uint32_t id = nextID;
    nextID = id + 1;

    const platform::EventHotKeyID hotKeyID{fourCharCode("qvtr"), id};
    platform::EventHotKeyRef ref = nullptr;
    const platform::OSStatus status =
        m_service.registerEventHotKey(keyCode, modifiers, hotKeyID, &ref);
    if (status != platform::noErr || ref == nullptr)
        return false;

    registered[id] = {ref, std::move(onFire)};
    return true;
}

void HotKeyManager::unregisterAll()
{
    for (const auto &[id, hotKey] : registered)
        m_service.unregisterEventHotKey(hotKey.ref);
    registered.clear();
    if (eventHandler) {
        m_service.removeEventHandler(*eventHandler);
        eventHandler.reset();
    }
}

bool HotKeyManager::installEventHandler()
{
    platform::EventHandlerRef ref = nullptr;
    if (m_service.installEventHandler(&HotKeyManager::handleHotKeyEvent, this, &ref) !=
        platform::noErr)
        return false;
    eventHandler = ref;
    return true;
}

std::uint32_t HotKeyManager::fourCharCode(std::string_view text)
{
    std::uint32_t result = 0;
    for (const char byte : text.substr(0, 4))
        result = (result << 8) | static_cast<unsigned char>(byte);
    return result;
}

platform::OSStatus HotKeyManager::handleHotKeyEvent(void *, const platform::HotKeyEvent *event,
                                                    void *userData)
{
    if (event == nullptr || userData == nullptr)
        return platform::noErr;
    platform::EventHotKeyID hotKeyID;
    if (platform::getEventHotKeyID(event, &hotKeyID) != platform::noErr)
        return platform::noErr;

    auto *manager = static_cast<HotKeyManager *>(userData);
    const auto found = manager->registered.find(hotKeyID.id);
    if (found == manager->registered.end())
        return platform::noErr;
    // A copy: the action may unregister its own key, which would destroy the stored one
    // while it runs.
    const std::function<void()> action = found->second.onFire;
    if (action)
        action();
    return platform::noErr;
}

} // namespace pindle
