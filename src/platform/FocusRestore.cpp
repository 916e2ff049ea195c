#include "platform/FocusRestore.h"

#include "platform/Platform.h"

#include <optional>

namespace pindle::FocusRestore {
namespace {

// The application that was frontmost when a panel opened. Main thread only.
std::optional<platform::RunningApplication> target;

} // namespace

void capture()
{
    platform::FocusService &focus = *platform::services().focus;
    if (focus.restoresFocusItself())
        return;
    const std::optional<platform::RunningApplication> frontmost = focus.frontmostApplication();
    if (!frontmost)
        return;
    // Opening one panel over the other must keep the application remembered first.
    if (frontmost->processIdentifier == focus.currentProcessIdentifier())
        return;
    target = frontmost;
}

void restore()
{
    if (!target)
        return;
    platform::FocusService &focus = *platform::services().focus;
    // A terminated target stays remembered until the next capture replaces it.
    if (focus.isTerminated(*target))
        return;
    const platform::RunningApplication application = *target;
    target.reset();
    focus.activate(application);
}

} // namespace pindle::FocusRestore
