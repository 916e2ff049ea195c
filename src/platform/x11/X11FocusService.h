#pragma once

// The frontmost application as EWMH describes it: the process owning the window in the root's
// _NET_ACTIVE_WINDOW. Without an EWMH window manager there is no frontmost application.

#include "platform/Platform.h"

namespace pindle::platform::x11 {

class X11FocusService final : public FocusService
{
public:
    bool restoresFocusItself() override { return false; }
    std::optional<RunningApplication> frontmostApplication() override;
    // Its window is gone, or its process is.
    bool isTerminated(const RunningApplication &application) override;
    bool activate(const RunningApplication &application) override;
    std::int64_t currentProcessIdentifier() override;
};

} // namespace pindle::platform::x11
