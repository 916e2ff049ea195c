#include "platform/HotKeyManager.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <gtest/gtest.h>

#include <optional>

using namespace pindle;
using platform::ShortcutRefusal;
using platform::fake::FakeGlobalShortcuts;

namespace {

const QKeySequence altU(Qt::ALT | Qt::Key_U);
const QKeySequence altI(Qt::ALT | Qt::Key_I);

class HotKeys : public testing::Test
{
protected:
    // What whenSettled reported, once it has, within a generous bound.
    std::optional<QList<HotKeyManager::Failure>> settle(int limitMilliseconds)
    {
        std::optional<QList<HotKeyManager::Failure>> result;
        manager.whenSettled(limitMilliseconds, [&](const QList<HotKeyManager::Failure> &failures) {
            result = failures;
        });
        const QDeadlineTimer deadline(limitMilliseconds + 5000);
        while (!result && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
        return result;
    }

    FakeGlobalShortcuts desktop;
    HotKeyManager manager{desktop};
    int fired = 0;
};

} // namespace

TEST_F(HotKeys, pressRunsTheActionOfThatKeyOnly)
{
    int launcher = 0, creator = 0;
    ASSERT_TRUE(
        manager.registerHotKey(u"launcher"_qs, u"Show the launcher"_qs, altU, [&] { ++launcher; }));
    ASSERT_TRUE(
        manager.registerHotKey(u"creator"_qs, u"Show the creator"_qs, altI, [&] { ++creator; }));
    ASSERT_EQ(desktop.requests.size(), 2);
    EXPECT_EQ(desktop.requests[0].keys, altU);
    EXPECT_EQ(desktop.requests[1].description, u"Show the creator"_qs);

    ASSERT_TRUE(desktop.press(u"creator"_qs));
    ASSERT_TRUE(desktop.press(u"creator"_qs));
    EXPECT_EQ(creator, 2);
    EXPECT_EQ(launcher, 0);
}

TEST_F(HotKeys, keyRefusedAtOnceAnswersFalseAndNeverFires)
{
    desktop.refuse.insert(u"launcher"_qs, ShortcutRefusal::heldElsewhere);
    EXPECT_FALSE(manager.registerHotKey(u"launcher"_qs, {}, altU, [&] { ++fired; }));
    EXPECT_TRUE(manager.registerHotKey(u"creator"_qs, {}, altI, [] {}));
    // A desktop that reports a press of a key it refused anyway.
    Q_EMIT desktop.activated(u"launcher"_qs);
    EXPECT_EQ(fired, 0);
    // The same name twice is refused without asking the desktop again.
    EXPECT_FALSE(manager.registerHotKey(u"creator"_qs, {}, altU, [] {}));
    EXPECT_EQ(desktop.requests.size(), 2);
}

TEST_F(HotKeys, unregisterAllReleasesEverythingAndKeysCanBeTakenAgain)
{
    ASSERT_TRUE(manager.registerHotKey(u"launcher"_qs, {}, altU, [&] { ++fired; }));
    ASSERT_TRUE(manager.registerHotKey(u"creator"_qs, {}, altI, [&] { ++fired; }));
    manager.unregisterAll();
    EXPECT_TRUE(desktop.boundIds().isEmpty());
    manager.unregisterAll();

    ASSERT_TRUE(manager.registerHotKey(u"launcher"_qs, {}, altU, [&] { ++fired; }));
    ASSERT_TRUE(desktop.press(u"launcher"_qs));
    EXPECT_EQ(fired, 1);
}

TEST_F(HotKeys, actionMayUnregisterItsOwnKey)
{
    ASSERT_TRUE(manager.registerHotKey(u"launcher"_qs, {}, altU, [&] {
        manager.unregisterAll();
        ++fired;
    }));
    ASSERT_TRUE(desktop.press(u"launcher"_qs));
    EXPECT_EQ(fired, 1);
    EXPECT_TRUE(desktop.boundIds().isEmpty());
}

TEST_F(HotKeys, settlesOnceTheDesktopHasAnsweredEveryKey)
{
    desktop.held = true;
    desktop.refuse.insert(u"creator"_qs, ShortcutRefusal::notGiven);
    // Not refused yet: the desktop has not answered.
    ASSERT_TRUE(manager.registerHotKey(u"launcher"_qs, {}, altU, [&] { ++fired; }));
    ASSERT_TRUE(manager.registerHotKey(u"creator"_qs, {}, altI, [] {}));
    bool answered = false;
    QMetaObject::invokeMethod(
        &desktop,
        [&] {
            answered = true;
            desktop.answer();
        },
        Qt::QueuedConnection);

    const auto failures = settle(60'000);
    ASSERT_TRUE(failures);
    EXPECT_TRUE(answered);
    ASSERT_EQ(failures->size(), 1);
    EXPECT_EQ(failures->at(0).name, u"creator"_qs);
    EXPECT_EQ(failures->at(0).reason, ShortcutRefusal::notGiven);
    ASSERT_TRUE(desktop.press(u"launcher"_qs));
    EXPECT_EQ(fired, 1);
}

TEST_F(HotKeys, desktopThatNeverAnswersSettlesAtTheLimitWithKeysInOrder)
{
    desktop.held = true;
    ASSERT_TRUE(manager.registerHotKey(u"launcher"_qs, {}, altU, [&] { ++fired; }));
    ASSERT_TRUE(manager.registerHotKey(u"creator"_qs, {}, altI, [] {}));
    const auto failures = settle(50);
    ASSERT_TRUE(failures);
    ASSERT_EQ(failures->size(), 2);
    EXPECT_EQ(failures->at(0).name, u"launcher"_qs);
    EXPECT_EQ(failures->at(1).name, u"creator"_qs);

    // A late grant still makes the key work.
    desktop.answer();
    ASSERT_TRUE(desktop.press(u"launcher"_qs));
    EXPECT_EQ(fired, 1);
}

TEST(HotKeyManager, destructionReleasesEverything)
{
    FakeGlobalShortcuts desktop;
    {
        HotKeyManager manager(desktop);
        ASSERT_TRUE(manager.registerHotKey(u"launcher"_qs, {}, altU, [] {}));
    }
    EXPECT_TRUE(desktop.boundIds().isEmpty());
}
