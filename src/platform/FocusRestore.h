#pragma once

// Remembers the application that was frontmost when a panel opened and gives it the focus back
// when the panel closes in the ordinary ways. Works through platform::services().focus.

namespace pindle::FocusRestore {

// Remembers the frontmost application unless it is this process.
void capture();
// Reactivates the remembered application if it is still running, and forgets it.
void restore();

} // namespace pindle::FocusRestore
