#include "platform/wayland/WaylandServices.h"

#include "platform/QtServices.h"
#include "platform/wayland/PortalGlobalShortcuts.h"
#include "platform/wayland/WaylandPasteboard.h"

#include <QDBusConnection>
#include <QDir>
#include <QGuiApplication>

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace pindle::platform::wayland {

std::expected<void, QString> displayReachable()
{
    const QString display = qEnvironmentVariable("WAYLAND_DISPLAY");
    if (display.isEmpty())
        return std::unexpected(QStringLiteral("WAYLAND_DISPLAY is not set"));
    // A relative name lives in the runtime directory, as libwayland resolves it.
    const QString path = QDir::isAbsolutePath(display)
                             ? display
                             : qEnvironmentVariable("XDG_RUNTIME_DIR") + u'/' + display;
    const QByteArray encoded = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (encoded.size() >= static_cast<qsizetype>(sizeof address.sun_path))
        return std::unexpected(
            QStringLiteral("WAYLAND_DISPLAY names a path too long: %1").arg(path));
    std::memcpy(address.sun_path, encoded.constData(), encoded.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected =
        fd >= 0 && ::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    if (fd >= 0)
        close(fd);
    if (!connected)
        return std::unexpected(
            QStringLiteral("cannot reach the Wayland compositor WAYLAND_DISPLAY=%1").arg(display));
    return {};
}

Services createWaylandServices()
{
    Services backend;
    backend.shortcuts = std::make_unique<PortalGlobalShortcuts>(QDBusConnection::sessionBus(),
                                                                QGuiApplication::desktopFileName());
    backend.focus = std::make_unique<PassiveFocusService>();
    // The protocol has no bell; a failed action shows itself in the panel instead.
    backend.workspace = std::make_unique<QtWorkspace>(nullptr);
    backend.pasteboard = std::make_unique<WaylandPasteboard>();
    backend.screens = std::make_unique<QtScreens>(false);
    // Wayland compositors always blend windows.
    backend.application = std::make_unique<QtApplication>(true);
    return backend;
}

} // namespace pindle::platform::wayland
