#pragma once

// The Wayland backend: shortcuts from the desktop portal, and the compositor for what a
// Wayland client may not do itself (placing windows, giving the focus back).

#include "platform/Platform.h"

#include <expected>

namespace pindle::platform::wayland {

// Whether the compositor WAYLAND_DISPLAY names accepts a connection; the reason when it does not.
std::expected<void, QString> displayReachable();

// Needs a QGuiApplication on Qt's Wayland platform. The shortcuts are asked for on the session
// bus under QGuiApplication::desktopFileName().
Services createWaylandServices();

} // namespace pindle::platform::wayland
