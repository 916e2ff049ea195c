#include "platform/FocusRestore.h"
#include "platform/fake/FakePlatform.h"

#include <gtest/gtest.h>

using namespace pindle;

TEST(FocusRestore, givesTheFocusBackOnceToTheLastOtherApplicationThatIsStillRunning)
{
    const platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    // Pid 0 for nothing frontmost.
    const auto capture = [&](std::int64_t pid) {
        fakes.focus->frontmost =
            pid != 0 ? std::optional(platform::RunningApplication{pid, 0}) : std::nullopt;
        FocusRestore::capture();
    };
    // The application restore activates, 0 for none.
    const auto restored = [&] {
        fakes.focus->activated.clear();
        FocusRestore::restore();
        return fakes.focus->activated.value(0).processIdentifier;
    };

    // A second panel opening over the first, or a moment with nothing frontmost, must not make
    // Pindle forget where the user came from.
    capture(100);
    capture(fakes.focus->ownProcessIdentifier);
    capture(0);
    EXPECT_EQ(restored(), 100);
    EXPECT_EQ(restored(), 0);

    // An application that has gone away is not woken.
    capture(200);
    fakes.focus->terminated.insert(200);
    EXPECT_EQ(restored(), 0);
    capture(300);
    EXPECT_EQ(restored(), 300);
}
