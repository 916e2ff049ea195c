#include "platform/x11/X11Services.h"

#include "platform/QtServices.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11FocusService.h"
#include "platform/x11/X11GlobalShortcuts.h"
#include "platform/x11/X11Pasteboard.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPointer>
#include <QWindow>

#include <cstdlib>

namespace pindle::platform::x11 {
namespace {

// Asks the window manager to activate a window once it is on screen: a request for a window it
// does not manage yet is dropped.
// Q_OBJECT so that findChild can tell it from the window's other children.
class ActivateWhenExposed final : public QObject
{
    Q_OBJECT

public:
    explicit ActivateWhenExposed(QWindow *window) : QObject(window)
    {
        window->installEventFilter(this);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *window = qobject_cast<QWindow *>(watched);
        if (event->type() == QEvent::Expose && window != nullptr && window->isExposed()) {
            if (xcb_connection_t *c = connection())
                requestActivation(c, static_cast<xcb_window_t>(window->winId()));
            deleteLater();
        }
        return false;
    }
};

void requestActivationOf(QWindow *window)
{
    xcb_connection_t *c = connection();
    if (c == nullptr || window == nullptr)
        return;
    if (window->isExposed())
        requestActivation(c, static_cast<xcb_window_t>(window->winId()));
    else if (window->findChild<ActivateWhenExposed *>(QString(), Qt::FindDirectChildrenOnly) ==
             nullptr)
        new ActivateWhenExposed(window);
}

} // namespace

std::expected<void, QString> displayReachable()
{
    const char *display = std::getenv("DISPLAY");
    if (display == nullptr || *display == '\0')
        return std::unexpected(QStringLiteral("DISPLAY is not set"));
    xcb_connection_t *c = xcb_connect(nullptr, nullptr);
    const int failure = xcb_connection_has_error(c);
    xcb_disconnect(c);
    if (failure != 0)
        return std::unexpected(QStringLiteral("cannot open the X display DISPLAY=%1")
                                   .arg(QString::fromLocal8Bit(display)));
    return {};
}

std::optional<Services> createX11Services(QString *error)
{
    xcb_connection_t *c = connection();
    if (c == nullptr) {
        if (error != nullptr)
            *error = QStringLiteral("Qt is not running on X11 (platform \"%1\")")
                         .arg(QGuiApplication::platformName());
        return std::nullopt;
    }
    Services backend;
    backend.shortcuts = std::make_unique<X11GlobalShortcuts>();
    backend.focus = std::make_unique<X11FocusService>();
    backend.workspace = std::make_unique<QtWorkspace>([] {
        if (xcb_connection_t *connection = x11::connection()) {
            xcb_bell(connection, 0);
            xcb_flush(connection);
        }
    });
    backend.pasteboard = std::make_unique<X11Pasteboard>();
    backend.screens = std::make_unique<QtScreens>(true);
    backend.application = std::make_unique<X11Application>();
    return backend;
}

void X11Application::activateIgnoringOtherApps()
{
    QWindow *window = QGuiApplication::focusWindow();
    if (window == nullptr) {
        for (QWindow *candidate : QGuiApplication::topLevelWindows()) {
            if (candidate->isVisible()) {
                window = candidate;
                break;
            }
        }
    }
    if (window != nullptr && window->isVisible())
        requestActivationOf(window);
}

void X11Application::makeKeyAndOrderFront(QWindow *window)
{
    QtApplication::makeKeyAndOrderFront(window);
    requestActivationOf(window);
}

bool X11Application::isCompositing()
{
    xcb_connection_t *c = connection();
    if (c == nullptr)
        return false;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(screenNumber(c));
    const xcb_atom_t selection = atom(c, name.constData());
    if (selection == XCB_ATOM_NONE)
        return false;
    xcb_get_selection_owner_reply_t *reply =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr);
    const bool owned = reply != nullptr && reply->owner != XCB_WINDOW_NONE;
    std::free(reply);
    return owned;
}

} // namespace pindle::platform::x11

#include "X11Services.moc"
