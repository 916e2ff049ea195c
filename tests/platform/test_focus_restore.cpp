#include "platform/FocusRestore.h"
#include "platform/fake/FakePlatform.h"

#include <gtest/gtest.h>

using namespace pindle;
using platform::RunningApplication;

namespace {

class FocusRestoreTest : public testing::Test
{
protected:
    void SetUp() override
    {
        fakes = platform::fake::installFakePlatform();
        // Forget whatever an earlier test in this process left remembered.
        FocusRestore::restore();
        fakes.focus->activated.clear();
    }

    // The pids of the applications activated so far.
    QList<std::int64_t> activatedPids() const
    {
        QList<std::int64_t> pids;
        for (const RunningApplication &a : std::as_const(fakes.focus->activated))
            pids << a.processIdentifier;
        return pids;
    }

    void captureFrontmost(std::optional<std::int64_t> pid)
    {
        fakes.focus->frontmost.reset();
        if (pid)
            fakes.focus->frontmost = RunningApplication{*pid, 0};
        FocusRestore::capture();
    }

    platform::fake::FakePlatform fakes;
};

TEST_F(FocusRestoreTest, restoreReactivatesTheCapturedWindowOnceAndNothingWithoutACapture)
{
    FocusRestore::restore();
    EXPECT_TRUE(fakes.focus->activated.isEmpty());

    fakes.focus->frontmost = RunningApplication{.processIdentifier = 100, .window = 0x600001};
    FocusRestore::capture();
    FocusRestore::restore();
    FocusRestore::restore();
    ASSERT_EQ(fakes.focus->activated.size(), 1);
    EXPECT_EQ(fakes.focus->activated.first().processIdentifier, 100);
    EXPECT_EQ(fakes.focus->activated.first().window, 0x600001u);
}

// A second panel opening over the first, or a moment with no frontmost application, must not
// make Pindle forget where the user came from; a real other application does replace it.
TEST_F(FocusRestoreTest, aCaptureOfThisProcessOrOfNothingKeepsTheRememberedApplication)
{
    captureFrontmost(100);
    captureFrontmost(fakes.focus->ownProcessIdentifier);
    captureFrontmost(std::nullopt);
    FocusRestore::restore();
    EXPECT_EQ(activatedPids(), QList<std::int64_t>{100});

    captureFrontmost(100);
    captureFrontmost(200);
    FocusRestore::restore();
    EXPECT_EQ(activatedPids(), (QList<std::int64_t>{100, 200}));
}

TEST_F(FocusRestoreTest, terminatedApplicationIsNotActivatedUntilReplaced)
{
    captureFrontmost(100);
    fakes.focus->terminated.insert(100);
    FocusRestore::restore();
    FocusRestore::restore();
    EXPECT_TRUE(fakes.focus->activated.isEmpty());

    captureFrontmost(200);
    FocusRestore::restore();
    EXPECT_EQ(activatedPids(), QList<std::int64_t>{200});
}

} // namespace
