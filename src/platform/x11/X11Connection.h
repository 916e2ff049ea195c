#pragma once

// Small helpers over Qt's own connection to the X server, shared by the X11 services.

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>

namespace pindle::platform::x11 {

// Qt's connection; nullptr when Qt runs on another platform or the application object is gone
// (so services outliving it never touch a closed connection).
xcb_connection_t *connection();
// The number of the screen Qt opened: the one DISPLAY names, or the last one when the server
// has fewer.
int screenNumber(xcb_connection_t *c);
// The root window of that screen.
xcb_window_t rootWindow(xcb_connection_t *c);
// Interned once per name; XCB_ATOM_NONE when the server does not answer.
xcb_atom_t atom(xcb_connection_t *c, const char *name);
// The first 32-bit value of a property; nothing when the window or the property is missing.
std::optional<std::uint32_t> cardinalProperty(xcb_connection_t *c, xcb_window_t window,
                                              xcb_atom_t property, xcb_atom_t type);
// Asks the window manager to activate a window as a pager would (source indication 2), which
// window managers honour without focus-stealing prevention. False when nothing could be sent.
bool requestActivation(xcb_connection_t *c, xcb_window_t window);

} // namespace pindle::platform::x11
