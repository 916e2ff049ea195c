#pragma once

// Global hot keys as passive key grabs on the root window. Each combination is grabbed once per
// variant of the lock modifiers a user may have on (Caps Lock, Num Lock), so the key fires
// whatever their state; a combination another client holds fails to register.

#include "platform/Platform.h"

#include <QAbstractNativeEventFilter>
#include <QList>
#include <QObject>

#include <xcb/xcb.h>

#include <map>

struct _XCBKeySymbols;

namespace pindle::platform::x11 {

class X11GlobalShortcuts final : public GlobalShortcuts, public QAbstractNativeEventFilter
{
public:
    X11GlobalShortcuts();
    ~X11GlobalShortcuts() override;

    // Answers before it returns: the X server reports a grab another client holds at once.
    void bind(const QString &id, const QString &description, const QKeySequence &keys) override;
    void release(const QString &id) override;

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

private:
    struct GrabbedKey
    {
        xcb_keycode_t keycode = 0;
        std::uint16_t modifiers = 0;
        bool operator==(const GrabbedKey &) const = default;
    };
    struct HotKey
    {
        std::uint32_t keysym = 0;
        Qt::KeyboardModifiers modifiers;
        // The grabs currently held; empty when the keyboard mapping has no key for the keysym
        // or another client took the combination before a re-grab.
        QList<GrabbedKey> grabs;
        // Between a press and its release, so auto-repeat does not fire the key again.
        bool isHeld = false;
        xcb_timestamp_t releaseTime = XCB_CURRENT_TIME;
    };
    struct Modifiers
    {
        std::uint16_t alt = 0;
        std::uint16_t super = 0;
        std::uint16_t numLock = 0;
    };

    // Every lock-key variant of the combination on every key that makes its keysym now.
    QList<GrabbedKey> wantedGrabs(xcb_connection_t *c, const HotKey &hotKey);
    // Takes the wanted grabs, all or none; false when none could be taken.
    bool grab(xcb_connection_t *c, HotKey &hotKey, QList<GrabbedKey> wanted);
    void ungrab(xcb_connection_t *c, HotKey &hotKey);
    // The core modifier mask of a combination bind() has accepted.
    std::uint16_t xModifiers(xcb_connection_t *c, Qt::KeyboardModifiers modifiers);
    QList<xcb_keycode_t> keycodesFor(xcb_connection_t *c, std::uint32_t keysym);
    const Modifiers &modifierBits(xcb_connection_t *c);
    void keyboardMappingChanged();
    void regrabAll();
    void deliver(const QString &id);

    // By shortcut id.
    std::map<QString, HotKey> m_hotKeys;
    xcb_window_t m_root = XCB_WINDOW_NONE;
    _XCBKeySymbols *m_keySymbols = nullptr;
    std::optional<Modifiers> m_modifiers;
    std::uint8_t m_xkbEventBase = 0;
    bool m_isRegrabPending = false;
};

} // namespace pindle::platform::x11
