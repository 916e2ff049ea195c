#include "platform/x11/X11FocusService.h"

#include "platform/x11/X11Connection.h"

#include <QGuiApplication>
#include <QWindow>

#include <cerrno>
#include <cstdlib>
#include <signal.h>
#include <unistd.h>

namespace pindle::platform::x11 {
namespace {

// A window manager that keeps _NET_ACTIVE_WINDOW up to date: the root names a check window that
// names itself. A property left behind by a window manager that has since exited fails this.
bool hasEwmhWindowManager(xcb_connection_t *c, xcb_window_t root)
{
    const xcb_atom_t check = atom(c, "_NET_SUPPORTING_WM_CHECK");
    const std::optional<std::uint32_t> window = cardinalProperty(c, root, check, XCB_ATOM_WINDOW);
    return window && *window != XCB_WINDOW_NONE &&
           cardinalProperty(c, *window, check, XCB_ATOM_WINDOW) == window;
}

bool isOwnWindow(xcb_window_t window)
{
    for (const QWindow *own : QGuiApplication::topLevelWindows()) {
        if (own->handle() != nullptr && own->winId() == window)
            return true;
    }
    return false;
}

} // namespace

std::optional<RunningApplication> X11FocusService::frontmostApplication()
{
    xcb_connection_t *c = connection();
    if (c == nullptr)
        return std::nullopt;
    const xcb_window_t root = rootWindow(c);
    if (!hasEwmhWindowManager(c, root))
        return std::nullopt;
    const std::optional<std::uint32_t> active =
        cardinalProperty(c, root, atom(c, "_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW);
    if (!active || *active == XCB_WINDOW_NONE)
        return std::nullopt;

    std::optional<std::uint32_t> pid =
        cardinalProperty(c, *active, atom(c, "_NET_WM_PID"), XCB_ATOM_CARDINAL);
    // Qt sets _NET_WM_PID on its windows, but a window not yet fully set up may lack it.
    if (!pid && isOwnWindow(*active))
        pid = static_cast<std::uint32_t>(getpid());
    return RunningApplication{.processIdentifier = pid.value_or(0), .window = *active};
}

bool X11FocusService::isTerminated(const RunningApplication &application)
{
    xcb_connection_t *c = connection();
    if (c == nullptr)
        return true;
    if (application.processIdentifier > 0 &&
        kill(static_cast<pid_t>(application.processIdentifier), 0) != 0 && errno == ESRCH)
        return true;
    const auto window = static_cast<xcb_window_t>(application.window);
    // Errors taken here, or they would reach Qt's event queue as a warning.
    xcb_generic_error_t *error = nullptr;
    xcb_get_window_attributes_reply_t *attributes =
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), &error);
    const bool isGone = attributes == nullptr;
    std::free(attributes);
    std::free(error);
    return isGone;
}

bool X11FocusService::activate(const RunningApplication &application)
{
    xcb_connection_t *c = connection();
    return c != nullptr && requestActivation(c, static_cast<xcb_window_t>(application.window));
}

std::int64_t X11FocusService::currentProcessIdentifier()
{
    return getpid();
}

} // namespace pindle::platform::x11
