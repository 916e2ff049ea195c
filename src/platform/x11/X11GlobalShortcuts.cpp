#include "platform/x11/X11GlobalShortcuts.h"

#include "platform/x11/X11Connection.h"

#include <QCoreApplication>

#include <xcb/xcb_keysyms.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace pindle::platform::x11 {
namespace {

constexpr Qt::KeyboardModifiers supportedModifiers =
    Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

constexpr std::uint32_t keysymReturn = 0xff0d;
constexpr std::uint32_t keysymTab = 0xff09;
constexpr std::uint32_t keysymNumLock = 0xff7f;
constexpr std::uint32_t keysymAltL = 0xffe9;
constexpr std::uint32_t keysymAltR = 0xffea;
constexpr std::uint32_t keysymSuperL = 0xffeb;
constexpr std::uint32_t keysymSuperR = 0xffec;

// XKB's NewKeyboardNotify and MapNotify, the two that change which key makes which keysym.
constexpr std::uint8_t xkbNewKeyboardNotify = 0;
constexpr std::uint8_t xkbMapNotify = 1;

// The keysym of a letter, digit, punctuation key, Return, Tab or Space; 0 for other keys.
// Qt numbers printable ASCII keys by their character (letters by the capital), as X numbers
// their keysyms (letters by the small one).
std::uint32_t keysymForKey(Qt::Key key)
{
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return 'a' + (key - Qt::Key_A);
    if (key >= Qt::Key_Space && key <= Qt::Key_AsciiTilde)
        return static_cast<std::uint32_t>(key);
    if (key == Qt::Key_Return)
        return keysymReturn;
    if (key == Qt::Key_Tab)
        return keysymTab;
    return 0;
}

} // namespace

X11GlobalShortcuts::X11GlobalShortcuts()
{
    xcb_connection_t *c = connection();
    if (c == nullptr)
        return;
    m_root = rootWindow(c);
    const char xkbName[] = "XKEYBOARD";
    xcb_query_extension_reply_t *xkb =
        xcb_query_extension_reply(c, xcb_query_extension(c, sizeof xkbName - 1, xkbName), nullptr);
    if (xkb != nullptr && xkb->present != 0)
        m_xkbEventBase = xkb->first_event;
    std::free(xkb);
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11GlobalShortcuts::~X11GlobalShortcuts()
{
    if (xcb_connection_t *c = connection()) {
        for (auto &[ref, hotKey] : m_hotKeys)
            ungrab(c, hotKey);
        xcb_flush(c);
    }
    if (QCoreApplication::instance() != nullptr)
        QCoreApplication::instance()->removeNativeEventFilter(this);
    if (m_keySymbols != nullptr)
        xcb_key_symbols_free(m_keySymbols);
}

void X11GlobalShortcuts::bind(const QString &id, const QString &, const QKeySequence &keys)
{
    release(id);
    xcb_connection_t *c = connection();
    const QKeyCombination combination = keys.isEmpty() ? QKeyCombination() : keys[0];
    const std::uint32_t keysym = keysymForKey(combination.key());
    if (c == nullptr || m_root == XCB_WINDOW_NONE || keys.count() != 1 || keysym == 0 ||
        (combination.keyboardModifiers() & ~supportedModifiers) != 0) {
        Q_EMIT refused(id, ShortcutRefusal::notGiven);
        return;
    }
    for (const auto &[otherId, hotKey] : m_hotKeys) {
        if (hotKey.keysym == keysym && hotKey.modifiers == combination.keyboardModifiers()) {
            Q_EMIT refused(id, ShortcutRefusal::heldElsewhere);
            return;
        }
    }

    HotKey hotKey{.keysym = keysym, .modifiers = combination.keyboardModifiers(), .grabs = {}};
    if (!grab(c, hotKey, wantedGrabs(c, hotKey))) {
        Q_EMIT refused(id, ShortcutRefusal::heldElsewhere);
        return;
    }
    m_hotKeys.emplace(id, hotKey);
    Q_EMIT bound(id);
}

void X11GlobalShortcuts::release(const QString &id)
{
    const auto found = m_hotKeys.find(id);
    if (found == m_hotKeys.end())
        return;
    if (xcb_connection_t *c = connection()) {
        ungrab(c, found->second);
        xcb_flush(c);
    }
    m_hotKeys.erase(found);
}

bool X11GlobalShortcuts::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t" || message == nullptr)
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    const std::uint8_t type = event->response_type & ~0x80;

    if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
        const auto *key = static_cast<const xcb_key_press_event_t *>(message);
        if (key->event != m_root)
            return false;
        const std::uint16_t lockBits =
            XCB_MOD_MASK_LOCK | m_modifiers.value_or(Modifiers{}).numLock;
        const std::uint16_t significant = 0xff & ~lockBits;
        bool isOurs = false;
        for (auto &[id, hotKey] : m_hotKeys) {
            for (const GrabbedKey &grabbed : std::as_const(hotKey.grabs)) {
                if (grabbed.keycode != key->detail)
                    continue;
                if (type == XCB_KEY_RELEASE) {
                    hotKey.isHeld = false;
                    hotKey.releaseTime = key->time;
                    isOurs = true;
                    break;
                }
                if ((key->state & significant) != (grabbed.modifiers & significant))
                    continue;
                isOurs = true;
                // Auto-repeat is a run of presses (detectable auto-repeat) or of releases
                // each followed by a press with the same time stamp.
                const bool isRepeat = hotKey.isHeld || key->time == hotKey.releaseTime;
                hotKey.isHeld = true;
                if (!isRepeat)
                    deliver(id);
                break;
            }
        }
        return isOurs;
    }

    const bool isMappingChange =
        (type == XCB_MAPPING_NOTIFY &&
         reinterpret_cast<const xcb_mapping_notify_event_t *>(event)->request !=
             XCB_MAPPING_POINTER) ||
        (m_xkbEventBase != 0 && type == m_xkbEventBase &&
         (reinterpret_cast<const std::uint8_t *>(event)[1] == xkbNewKeyboardNotify ||
          reinterpret_cast<const std::uint8_t *>(event)[1] == xkbMapNotify));
    if (isMappingChange)
        keyboardMappingChanged();
    // Qt needs mapping changes for its own keyboard handling.
    return false;
}

QList<X11GlobalShortcuts::GrabbedKey> X11GlobalShortcuts::wantedGrabs(xcb_connection_t *c,
                                                                      const HotKey &hotKey)
{
    QList<GrabbedKey> wanted;
    const std::uint16_t modifiers = xModifiers(c, hotKey.modifiers);
    const std::uint16_t numLock = modifierBits(c).numLock;
    QList<std::uint16_t> variants = {0, XCB_MOD_MASK_LOCK};
    if (numLock != 0)
        variants << numLock << static_cast<std::uint16_t>(numLock | XCB_MOD_MASK_LOCK);
    for (const xcb_keycode_t keycode : keycodesFor(c, hotKey.keysym)) {
        for (const std::uint16_t variant : std::as_const(variants))
            wanted << GrabbedKey{keycode, static_cast<std::uint16_t>(modifiers | variant)};
    }
    return wanted;
}

bool X11GlobalShortcuts::grab(xcb_connection_t *c, HotKey &hotKey, QList<GrabbedKey> wanted)
{
    hotKey.grabs.clear();
    if (wanted.isEmpty())
        return false;

    // All requests first, then one round trip collects their errors: BadAccess means another
    // client already grabbed that combination.
    QList<xcb_void_cookie_t> cookies;
    for (const GrabbedKey &key : wanted)
        cookies << xcb_grab_key_checked(c, 0, m_root, key.modifiers, key.keycode,
                                        XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    bool isGrabbed = true;
    for (const xcb_void_cookie_t cookie : std::as_const(cookies)) {
        if (xcb_generic_error_t *error = xcb_request_check(c, cookie)) {
            isGrabbed = false;
            std::free(error);
        }
    }
    if (!isGrabbed) {
        // Undo the variants that did succeed; ungrabbing never touches another client's grab.
        for (const GrabbedKey &key : wanted)
            xcb_ungrab_key(c, key.keycode, m_root, key.modifiers);
        xcb_flush(c);
        return false;
    }
    hotKey.grabs = std::move(wanted);
    return true;
}

void X11GlobalShortcuts::ungrab(xcb_connection_t *c, HotKey &hotKey)
{
    for (const GrabbedKey &grabbed : std::as_const(hotKey.grabs))
        xcb_ungrab_key(c, grabbed.keycode, m_root, grabbed.modifiers);
    hotKey.grabs.clear();
    hotKey.isHeld = false;
}

std::uint16_t X11GlobalShortcuts::xModifiers(xcb_connection_t *c, Qt::KeyboardModifiers modifiers)
{
    const Modifiers &bits = modifierBits(c);
    std::uint16_t result = 0;
    if (modifiers.testFlag(Qt::MetaModifier))
        result |= bits.super;
    if (modifiers.testFlag(Qt::ShiftModifier))
        result |= XCB_MOD_MASK_SHIFT;
    if (modifiers.testFlag(Qt::AltModifier))
        result |= bits.alt;
    if (modifiers.testFlag(Qt::ControlModifier))
        result |= XCB_MOD_MASK_CONTROL;
    return result;
}

QList<xcb_keycode_t> X11GlobalShortcuts::keycodesFor(xcb_connection_t *c, std::uint32_t keysym)
{
    if (m_keySymbols == nullptr)
        m_keySymbols = xcb_key_symbols_alloc(c);
    QList<xcb_keycode_t> result;
    if (m_keySymbols == nullptr)
        return result;
    xcb_keycode_t *keycodes = xcb_key_symbols_get_keycode(m_keySymbols, keysym);
    for (const xcb_keycode_t *k = keycodes; k != nullptr && *k != XCB_NO_SYMBOL; ++k) {
        if (!result.contains(*k))
            result << *k;
    }
    std::free(keycodes);
    return result;
}

const X11GlobalShortcuts::Modifiers &X11GlobalShortcuts::modifierBits(xcb_connection_t *c)
{
    if (m_modifiers)
        return *m_modifiers;
    Modifiers bits{.alt = XCB_MOD_MASK_1, .super = XCB_MOD_MASK_4, .numLock = 0};
    xcb_get_modifier_mapping_reply_t *mapping =
        xcb_get_modifier_mapping_reply(c, xcb_get_modifier_mapping(c), nullptr);
    if (mapping != nullptr) {
        const xcb_keycode_t *table = xcb_get_modifier_mapping_keycodes(mapping);
        const int perModifier = mapping->keycodes_per_modifier;
        // The Mod1..Mod5 bit a key with this keysym sets; 0 when none does.
        const auto bitOf = [&](std::uint32_t keysym) -> std::uint16_t {
            const QList<xcb_keycode_t> keycodes = keycodesFor(c, keysym);
            for (int modifier = 3; modifier < 8; ++modifier) {
                for (int i = 0; i < perModifier; ++i) {
                    const xcb_keycode_t keycode = table[modifier * perModifier + i];
                    if (keycode != 0 && keycodes.contains(keycode))
                        return static_cast<std::uint16_t>(1u << modifier);
                }
            }
            return 0;
        };
        bits.numLock = bitOf(keysymNumLock);
        if (const std::uint16_t alt = bitOf(keysymAltL) | bitOf(keysymAltR))
            bits.alt = alt;
        if (const std::uint16_t super = bitOf(keysymSuperL) | bitOf(keysymSuperR))
            bits.super = super;
        std::free(mapping);
    }
    m_modifiers = bits;
    return *m_modifiers;
}

void X11GlobalShortcuts::keyboardMappingChanged()
{
    if (m_keySymbols != nullptr) {
        xcb_key_symbols_free(m_keySymbols);
        m_keySymbols = nullptr;
    }
    // Several notifications arrive for one change; re-grab once they are all in.
    if (m_isRegrabPending)
        return;
    m_isRegrabPending = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_isRegrabPending = false;
            regrabAll();
        },
        Qt::QueuedConnection);
}

void X11GlobalShortcuts::regrabAll()
{
    xcb_connection_t *c = connection();
    if (c == nullptr)
        return;
    // keyboardMappingChanged already dropped the key symbols; the modifier bits follow them.
    m_modifiers.reset();
    // Most notifications leave our keys where they were: touching those grabs would drop a
    // press that arrives in between.
    std::vector<std::pair<HotKey *, QList<GrabbedKey>>> moved;
    for (auto &[ref, hotKey] : m_hotKeys) {
        if (QList<GrabbedKey> wanted = wantedGrabs(c, hotKey); wanted != hotKey.grabs)
            moved.emplace_back(&hotKey, std::move(wanted));
    }
    for (const auto &[hotKey, wanted] : moved)
        ungrab(c, *hotKey);
    // A combination another client took meanwhile stays inactive until the next change.
    for (auto &[hotKey, wanted] : moved)
        grab(c, *hotKey, std::move(wanted));
    xcb_flush(c);
}

void X11GlobalShortcuts::deliver(const QString &id)
{
    // Outside Qt's event processing, so an action may show windows or run a dialog.
    QMetaObject::invokeMethod(
        this, [this, id] { Q_EMIT activated(id); }, Qt::QueuedConnection);
}

} // namespace pindle::platform::x11
