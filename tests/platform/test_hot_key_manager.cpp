#include "platform/HotKeyManager.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <gtest/gtest.h>

#include <optional>

using namespace Qt::StringLiterals;

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
    desktop.refuse.insert(u"launcher"_s, ShortcutRefusal::heldElsewhere);
    EXPECT_FALSE(manager->registerHotKey(u"launcher"_s, {}, altU, [&] { ++launcher; }));
    ASSERT_TRUE(manager->registerHotKey(u"creator"_s, {}, altI, [&] { ++creator; }));
    EXPECT_FALSE(manager->registerHotKey(u"creator"_s, {}, altU, [&] { ++launcher; }));

    ASSERT_TRUE(desktop.press(u"creator"_s));
    ASSERT_TRUE(desktop.press(u"creator"_s));
    // A desktop that reports a press of a key it refused anyway.
    Q_EMIT desktop.activated(u"launcher"_s);
    EXPECT_EQ(creator, 2);
    EXPECT_EQ(launcher, 0);
}

TEST_F(HotKeys, settlesOnceTheDesktopHasAnsweredEveryKey)
{
    desktop.held = true;
    desktop.refuse.insert(u"creator"_s, ShortcutRefusal::notGiven);
    // Not refused yet: the desktop has not answered.
    ASSERT_TRUE(manager->registerHotKey(u"launcher"_s, {}, altU, [&] { ++launcher; }));
    ASSERT_TRUE(manager->registerHotKey(u"creator"_s, {}, altI, [] {}));
    QMetaObject::invokeMethod(
        &desktop, [&] { desktop.answer(); }, Qt::QueuedConnection);

    const auto failures = settle(60'000);
    ASSERT_TRUE(failures);
    ASSERT_EQ(failures->size(), 1);
    EXPECT_EQ(failures->at(0).name, u"creator"_s);
    EXPECT_EQ(failures->at(0).reason, ShortcutRefusal::notGiven);
    ASSERT_TRUE(desktop.press(u"launcher"_s));
    EXPECT_EQ(launcher, 1);
}

TEST_F(HotKeys, desktopThatNeverAnswersSettlesAtTheLimitWithKeysInOrder)
{
    desktop.held = true;
    ASSERT_TRUE(manager->registerHotKey(u"launcher"_s, {}, altU, [&] { ++launcher; }));
    ASSERT_TRUE(manager->registerHotKey(u"creator"_s, {}, altI, [] {}));
    const auto failures = settle(50);
    ASSERT_TRUE(failures);
    ASSERT_EQ(failures->size(), 2);
    EXPECT_EQ(failures->at(0).name, u"launcher"_s);
    EXPECT_EQ(failures->at(1).name, u"creator"_s);

    // A late grant still makes the key work.
    desktop.answer();
    ASSERT_TRUE(desktop.press(u"launcher"_s));
    EXPECT_EQ(launcher, 1);
}

} // namespace
