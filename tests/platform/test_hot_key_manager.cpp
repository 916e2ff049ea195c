#include "platform/HotKeyManager.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <gtest/gtest.h>

#include <optional>

using namespace pindle;
using platform::ShortcutRefusal;

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
        manager->whenSettled(limitMilliseconds, [&](const QList<HotKeyManager::Failure> &failures) {
            result = failures;
        });
        const QDeadlineTimer deadline(limitMilliseconds + 5000);
        while (!result && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
        return result;
    }

    platform::fake::FakeGlobalShortcuts desktop;
    std::optional<HotKeyManager> manager{std::in_place, desktop};
    int launcher = 0;
    int creator = 0;
};

TEST_F(HotKeys, pressRunsTheActionOfThatKeyOnlyAndARefusedKeyNeverFires)
{
    desktop.refuse.insert(u"launcher"_qs, ShortcutRefusal::heldElsewhere);
    EXPECT_FALSE(manager->registerHotKey(u"launcher"_qs, {}, altU, [&] { ++launcher; }));
    ASSERT_TRUE(manager->registerHotKey(u"creator"_qs, {}, altI, [&] { ++creator; }));
    EXPECT_FALSE(manager->registerHotKey(u"creator"_qs, {}, altU, [&] { ++launcher; }));

    ASSERT_TRUE(desktop.press(u"creator"_qs));
    ASSERT_TRUE(desktop.press(u"creator"_qs));
    // A desktop that reports a press of a key it refused anyway.
    Q_EMIT desktop.activated(u"launcher"_qs);
    EXPECT_EQ(creator, 2);
    EXPECT_EQ(launcher, 0);
}

TEST_F(HotKeys, settlesOnceTheDesktopHasAnsweredEveryKey)
{
    desktop.held = true;
    desktop.refuse.insert(u"creator"_qs, ShortcutRefusal::notGiven);
    // Not refused yet: the desktop has not answered.
    ASSERT_TRUE(manager->registerHotKey(u"launcher"_qs, {}, altU, [&] { ++launcher; }));
    ASSERT_TRUE(manager->registerHotKey(u"creator"_qs, {}, altI, [] {}));
    QMetaObject::invokeMethod(
        &desktop, [&] { desktop.answer(); }, Qt::QueuedConnection);

    const auto failures = settle(60'000);
    ASSERT_TRUE(failures);
    ASSERT_EQ(failures->size(), 1);
    EXPECT_EQ(failures->at(0).name, u"creator"_qs);
    EXPECT_EQ(failures->at(0).reason, ShortcutRefusal::notGiven);
    ASSERT_TRUE(desktop.press(u"launcher"_qs));
    EXPECT_EQ(launcher, 1);
}

TEST_F(HotKeys, desktopThatNeverAnswersSettlesAtTheLimitWithKeysInOrder)
{
    desktop.held = true;
    ASSERT_TRUE(manager->registerHotKey(u"launcher"_qs, {}, altU, [&] { ++launcher; }));
    ASSERT_TRUE(manager->registerHotKey(u"creator"_qs, {}, altI, [] {}));
    const auto failures = settle(50);
    ASSERT_TRUE(failures);
    ASSERT_EQ(failures->size(), 2);
    EXPECT_EQ(failures->at(0).name, u"launcher"_qs);
    EXPECT_EQ(failures->at(1).name, u"creator"_qs);

    // A late grant still makes the key work.
    desktop.answer();
    ASSERT_TRUE(desktop.press(u"launcher"_qs));
    EXPECT_EQ(launcher, 1);
}

} // namespace
