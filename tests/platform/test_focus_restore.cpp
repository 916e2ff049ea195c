#include "platform/FocusRestore.h"
#include "platform/fake/FakePlatform.h"

#include <gtest/gtest.h>

using namespace pindle;

TEST(FocusRestore, givesTheFocusBackOnceToTheLastOtherApplicationThatIsStillRunning)
{
    const platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    const auto capture = [&](std::optional<std::int64_t> pid) {
        fakes.focus->frontmost =
            pid ? std::optional(platform::RunningApplication{*pid, 0}) : std::nullopt;
        FocusRestore::capture();
    };
    const auto restoredPids = [&] {
        FocusRestore::restore();
        QList<std::int64_t> pids;
        for (const platform::RunningApplication &application : fakes.focus->activated)
            pids.append(application.processIdentifier);
        fakes.focus->activated.clear();
        return pids;
    };

    // A second panel opening over the first, or a moment with nothing frontmost, must not make
    // Pindle forget where the user came from.
    capture(100);
    capture(fakes.focus->ownProcessIdentifier);
    capture(std::nullopt);
    EXPECT_EQ(restoredPids(), QList<std::int64_t>{100});
    EXPECT_TRUE(restoredPids().isEmpty());

    // An application that has gone away is not woken.
    capture(200);
    fakes.focus->terminated.insert(200);
    EXPECT_TRUE(restoredPids().isEmpty());
    capture(300);
    EXPECT_EQ(restoredPids(), QList<std::int64_t>{300});
}
