// The one place that knows which window systems Pindle has a backend for.

#include "platform/Platform.h"
#include "platform/QtServices.h"
#include "platform/wayland/WaylandServices.h"
#include "platform/x11/X11Services.h"

#include <QGuiApplication>

namespace pindle::platform {

std::expected<void, QString> checkDisplay()
{
    const QByteArray named = qgetenv("QT_QPA_PLATFORM");
    if (named.startsWith("wayland"))
        return wayland::displayReachable();
    if (named.startsWith("xcb"))
        return x11::displayReachable();
    // A platform that is neither (offscreen, say) needs no display.
    if (!named.isEmpty())
        return {};
    const std::expected<void, QString> wayland = wayland::displayReachable();
    const std::expected<void, QString> x11 = x11::displayReachable();
    if (!wayland && !x11)
        return std::unexpected(
            QStringLiteral("no display to open: %1; %2").arg(wayland.error(), x11.error()));
    // Left to itself, Qt picks X11 in a Wayland session that does not say it is one, and
    // Xwayland cannot give Pindle its keys. Xwayland stays the fallback for a Qt without its
    // Wayland plugin.
    qputenv("QT_QPA_PLATFORM", !wayland ? "xcb" : x11 ? "wayland;xcb" : "wayland");
    return {};
}

Services createServices()
{
    const QString platform = QGuiApplication::platformName();
    if (platform == QLatin1String("xcb")) {
        if (std::optional<Services> backend = x11::createX11Services())
            return std::move(*backend);
    }
    if (platform.startsWith(QLatin1String("wayland")))
        return wayland::createWaylandServices();

    Services backend;
    backend.shortcuts = std::make_unique<RefusingShortcuts>();
    backend.focus = std::make_unique<PassiveFocusService>();
    backend.workspace = std::make_unique<QtWorkspace>(nullptr);
    backend.pasteboard = std::make_unique<QtPasteboard>();
    backend.screens = std::make_unique<QtScreens>(true);
    backend.application = std::make_unique<QtApplication>(false);
    return backend;
}

} // namespace pindle::platform
