#include "platform/fake/FakePlatform.h"

namespace pindle::platform::fake {

OSStatus FakeHotKeyService::installEventHandler(EventHandlerProc handler, void *userData,
                                                EventHandlerRef *outRef)
{
    ++installCount;
    if (failInstall || handler == nullptr)
        return eventInternalErr;
    m_handler = handler;
    m_userData = userData;
    if (outRef != nullptr)
        *outRef = reinterpret_cast<EventHandlerRef>(this);
    return noErr;
}

OSStatus FakeHotKeyService::removeEventHandler(EventHandlerRef)
{
    ++removeCount;
    m_handler = nullptr;
    m_userData = nullptr;
    return noErr;
}

OSStatus FakeHotKeyService::registerEventHotKey(std::uint32_t keyCode, std::uint32_t modifiers,
                                                EventHotKeyID id, EventHotKeyRef *outRef)
{
    if (heldElsewhere.contains({keyCode, modifiers}))
        return eventHotKeyExistsErr;
    for (const Registration &r : std::as_const(m_registrations)) {
        if (r.keyCode == keyCode && r.modifiers == modifiers)
            return eventHotKeyExistsErr;
    }
    if (outRef == nullptr)
        return eventHotKeyInvalidErr;
    if (returnNullRef) {
        *outRef = nullptr;
        return noErr;
    }
    const std::uintptr_t ref = m_nextRef++;
    m_registrations.insert(ref, {keyCode, modifiers, id});
    *outRef = reinterpret_cast<EventHotKeyRef>(ref);
    return noErr;
}

OSStatus FakeHotKeyService::unregisterEventHotKey(EventHotKeyRef ref)
{
    ++unregisterCount;
    return m_registrations.remove(reinterpret_cast<std::uintptr_t>(ref)) ? noErr
                                                                         : eventHotKeyInvalidErr;
}

bool FakeHotKeyService::press(std::uint32_t keyCode, std::uint32_t modifiers)
{
    if (m_handler == nullptr)
        return false;
    for (const Registration &r : std::as_const(m_registrations)) {
        if (r.keyCode == keyCode && r.modifiers == modifiers) {
            const HotKeyEvent event{r.id};
            m_handler(nullptr, &event, m_userData);
            return true;
        }
    }
    return false;
}

std::optional<OSStatus> FakeHotKeyService::deliver(const HotKeyEvent &event)
{
    if (m_handler == nullptr)
        return std::nullopt;
    return m_handler(nullptr, &event, m_userData);
}

FakeScreens::FakeScreens()
{
    const Screen screen{QRectF(0, 0, 1440, 900), QRectF(0, 0, 1440, 875)};
    all = {screen};
    main = screen;
    mouse = QPointF(700, 450);
}

QRectF FakeScreens::toWindowSystem(const QRectF &frame)
{
    const qreal height = all.isEmpty() ? 0 : all.first().frame.height();
    return QRectF(frame.x(), height - frame.y() - frame.height(), frame.width(), frame.height());
}

QRectF FakeScreens::fromWindowSystem(const QRectF &geometry)
{
    // The flip is its own inverse.
    return toWindowSystem(geometry);
}

FakePlatform installFakePlatform()
{
    FakePlatform fakes;
    Services backend;
    backend.hotKeys = std::make_unique<FakeHotKeyService>();
    fakes.hotKeys = static_cast<FakeHotKeyService *>(backend.hotKeys.get());
    backend.focus = std::make_unique<FakeFocusService>();
    fakes.focus = static_cast<FakeFocusService *>(backend.focus.get());
    backend.workspace = std::make_unique<FakeWorkspace>();
    fakes.workspace = static_cast<FakeWorkspace *>(backend.workspace.get());
    backend.pasteboard = std::make_unique<FakePasteboard>();
    fakes.pasteboard = static_cast<FakePasteboard *>(backend.pasteboard.get());
    backend.screens = std::make_unique<FakeScreens>();
    fakes.screens = static_cast<FakeScreens *>(backend.screens.get());
    backend.application = std::make_unique<FakeApplication>();
    fakes.application = static_cast<FakeApplication *>(backend.application.get());
    setServices(std::move(backend));
    return fakes;
}

} // namespace pindle::platform::fake
