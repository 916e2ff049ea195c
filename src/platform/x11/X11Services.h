#pragma once

// The X11 backend: hot keys as key grabs, focus through EWMH, and Qt for the rest.

#include "platform/Platform.h"
#include "platform/QtServices.h"

#include <expected>

namespace pindle::platform::x11 {

// Whether the X display DISPLAY names accepts a connection; the reason when it does not.
std::expected<void, QString> displayReachable();

// Needs a QGuiApplication running on Qt's xcb platform; otherwise nothing, with the reason in
// *error. Once the application object is gone the services do nothing, so their destruction
// order against it does not matter. When the X connection is lost, Qt itself ends the process
// with exit status 1.
std::optional<Services> createX11Services(QString *error = nullptr);

class X11Application final : public QtApplication
{
public:
    // Whether it composites is asked each time: a compositing manager may come and go.
    X11Application() : QtApplication(false) {}
    // Activates the window that has or last had the focus, if it is still shown; a window
    // about to be shown is activated by makeKeyAndOrderFront.
    void activateIgnoringOtherApps() override;
    // Shows, raises and activates the window, and asks the window manager for it too, as a
    // pager would: Qt's own request may be refused as focus stealing.
    void makeKeyAndOrderFront(QWindow *window) override;
    // A compositing manager owns the selection _NET_WM_CM_S<screen>.
    bool isCompositing() override;
};

} // namespace pindle::platform::x11
