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

    void setFrontmost(std::int64_t pid) { fakes.focus->frontmost = RunningApplication{pid, 0}; }
    void setThisProcessFrontmost() { setFrontmost(fakes.focus->ownProcessIdentifier); }

    platform::fake::FakePlatform fakes;
};

} // namespace

TEST_F(FocusRestoreTest, restoreReactivatesTheCapturedApplicationOnce)
{
    fakes.focus->frontmost = RunningApplication{.processIdentifier = 100, .window = 0x600001};
    FocusRestore::capture();
    setThisProcessFrontmost();
    FocusRestore::restore();
    ASSERT_EQ(fakes.focus->activated.size(), 1);
    EXPECT_EQ(fakes.focus->activated.first().processIdentifier, 100);
    EXPECT_EQ(fakes.focus->activated.first().window, 0x600001u);

    FocusRestore::restore();
    EXPECT_EQ(activatedPids(), QList<std::int64_t>{100});
}

TEST_F(FocusRestoreTest, restoreWithoutCaptureDoesNothing)
{
    setFrontmost(100);
    FocusRestore::restore();
    EXPECT_TRUE(fakes.focus->activated.isEmpty());
}

TEST_F(FocusRestoreTest, thisProcessFrontmostKeepsTheApplicationRememberedFirst)
{
    setFrontmost(100);
    FocusRestore::capture();
    // The second panel opens over the first.
    setThisProcessFrontmost();
    FocusRestore::capture();
    FocusRestore::restore();
    EXPECT_EQ(activatedPids(), QList<std::int64_t>{100});
}

TEST_F(FocusRestoreTest, noFrontmostApplicationKeepsTheRememberedOne)
{
    setFrontmost(100);
    FocusRestore::capture();
    fakes.focus->frontmost.reset();
    FocusRestore::capture();
    FocusRestore::restore();
    EXPECT_EQ(activatedPids(), QList<std::int64_t>{100});
}

TEST_F(FocusRestoreTest, laterCaptureReplacesTheEarlierOne)
{
    setFrontmost(100);
    FocusRestore::capture();
    setFrontmost(200);
    FocusRestore::capture();
    FocusRestore::restore();
    EXPECT_EQ(activatedPids(), QList<std::int64_t>{200});
}

TEST_F(FocusRestoreTest, terminatedApplicationIsNotActivatedUntilReplaced)
{
    setFrontmost(100);
    FocusRestore::capture();
    fakes.focus->terminated.insert(100);
    FocusRestore::restore();
    FocusRestore::restore();
    EXPECT_TRUE(fakes.focus->activated.isEmpty());

    setFrontmost(200);
    FocusRestore::capture();
    FocusRestore::restore();
    EXPECT_EQ(activatedPids(), QList<std::int64_t>{200});
}
