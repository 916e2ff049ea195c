#include "platform/x11/X11Connection.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QHash>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace pindle::platform::x11 {
namespace {

constexpr std::uint32_t sourceIndicationPager = 2;

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};
template <typename T>
using Reply = std::unique_ptr<T, FreeDeleter>;

} // namespace

xcb_connection_t *connection()
{
    if (qGuiApp == nullptr)
        return nullptr;
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 != nullptr ? x11->connection() : nullptr;
}

int screenNumber(xcb_connection_t *c)
{
    int number = 0;
    char *host = nullptr;
    int display = 0;
    if (xcb_parse_display(nullptr, &host, &display, &number) != 0)
        std::free(host);
    const int count = xcb_setup_roots_length(xcb_get_setup(c));
    return std::clamp(number, 0, std::max(count - 1, 0));
}

xcb_window_t rootWindow(xcb_connection_t *c)
{
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = screenNumber(c); i > 0; --i)
        xcb_screen_next(&it);
    return it.data != nullptr ? it.data->root : xcb_window_t{XCB_WINDOW_NONE};
}

xcb_atom_t atom(xcb_connection_t *c, const char *name)
{
    // One X server per process, so the cache never needs to be keyed by connection.
    static QHash<QByteArray, xcb_atom_t> cache;
    const QByteArray key(name);
    if (const auto found = cache.constFind(key); found != cache.constEnd())
        return *found;
    xcb_generic_error_t *error = nullptr;
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, static_cast<std::uint16_t>(std::strlen(name)), name), &error));
    std::free(error);
    if (reply == nullptr)
        return XCB_ATOM_NONE;
    cache.insert(key, reply->atom);
    return reply->atom;
}

std::optional<std::uint32_t> cardinalProperty(xcb_connection_t *c, xcb_window_t window,
                                              xcb_atom_t property, xcb_atom_t type)
{
    if (window == XCB_WINDOW_NONE || property == XCB_ATOM_NONE)
        return std::nullopt;
    // A window that has just gone away answers with an error, taken here so that it never
    // reaches Qt's event queue as a warning.
    xcb_generic_error_t *error = nullptr;
    Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, property, type, 0, 1), &error));
    std::free(error);
    if (reply == nullptr || reply->type != type || reply->format != 32 ||
        xcb_get_property_value_length(reply.get()) < 4)
        return std::nullopt;
    std::uint32_t value = 0;
    std::memcpy(&value, xcb_get_property_value(reply.get()), sizeof value);
    return value;
}

bool requestActivation(xcb_connection_t *c, xcb_window_t window)
{
    const xcb_window_t root = rootWindow(c);
    const xcb_atom_t activeWindow = atom(c, "_NET_ACTIVE_WINDOW");
    if (window == XCB_WINDOW_NONE || root == XCB_WINDOW_NONE || activeWindow == XCB_ATOM_NONE)
        return false;
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = activeWindow;
    message.data.data32[0] = sourceIndicationPager;
    message.data.data32[1] = XCB_CURRENT_TIME;
    message.data.data32[2] = XCB_WINDOW_NONE;
    xcb_send_event(c, 0, root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char *>(&message));
    xcb_flush(c);
    return true;
}

} // namespace pindle::platform::x11
