#include "platform/HotKeyManager.h"
#include "platform/fake/FakePlatform.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace pindle;
using platform::fake::FakeHotKeyService;

namespace {

constexpr std::uint32_t keyU = 32;
constexpr std::uint32_t keyI = 34;
constexpr std::uint32_t keyO = 31;
constexpr std::uint32_t option = 2048;
constexpr std::uint32_t qvtr = 0x71767472;

// The ids the service was asked to register, in registration order.
QList<std::uint32_t> registeredIDs(const FakeHotKeyService &service)
{
    QList<std::uint32_t> ids;
    for (const FakeHotKeyService::Registration &r : service.registered())
        ids << r.id.id;
    std::sort(ids.begin(), ids.end());
    return ids;
}

class HotKeys : public testing::Test
{
protected:
    FakeHotKeyService service;
    HotKeyManager manager{service};
    int fired = 0;
};

} // namespace

TEST_F(HotKeys, firstRegistrationInstallsTheHandlerAndNumbersFromOne)
{
    EXPECT_TRUE(manager.registerHotKey(keyU, option, [] {}));
    EXPECT_TRUE(service.hasHandler());
    EXPECT_TRUE(manager.registerHotKey(keyI, option, [] {}));
    EXPECT_EQ(service.installCount, 1);

    const QList<FakeHotKeyService::Registration> registered = service.registered();
    ASSERT_EQ(registered.size(), 2);
    for (const FakeHotKeyService::Registration &r : registered) {
        EXPECT_EQ(r.id.signature, qvtr);
        EXPECT_EQ(r.modifiers, option);
        EXPECT_EQ(r.id.id, r.keyCode == keyU ? 1u : 2u);
    }
}

TEST_F(HotKeys, pressRunsTheActionOfThatKeyOnly)
{
    int launcher = 0, creator = 0;
    ASSERT_TRUE(manager.registerHotKey(keyU, option, [&] { ++launcher; }));
    ASSERT_TRUE(manager.registerHotKey(keyI, option, [&] { ++creator; }));
    ASSERT_TRUE(service.press(keyI, option));
    ASSERT_TRUE(service.press(keyI, option));
    EXPECT_EQ(creator, 2);
    EXPECT_EQ(launcher, 0);
}

TEST_F(HotKeys, failedRegistrationStillUsesItsID)
{
    service.heldElsewhere.insert({keyU, option});
    EXPECT_FALSE(manager.registerHotKey(keyU, option, [&] { ++fired; }));
    EXPECT_TRUE(service.registered().isEmpty());
    EXPECT_TRUE(manager.registerHotKey(keyI, option, [] {}));
    EXPECT_EQ(registeredIDs(service), QList<std::uint32_t>{2});

    // A "success" without a reference is a failure too, and uses its id as well.
    service.returnNullRef = true;
    EXPECT_FALSE(manager.registerHotKey(keyO, option, [&] { ++fired; }));
    service.returnNullRef = false;
    EXPECT_TRUE(manager.registerHotKey(keyO, option, [] {}));
    EXPECT_EQ(registeredIDs(service), (QList<std::uint32_t>{2, 4}));

    // The failed key's action was never stored.
    EXPECT_EQ(service.deliver({platform::EventHotKeyID{qvtr, 1}}), platform::noErr);
    EXPECT_EQ(service.deliver({platform::EventHotKeyID{qvtr, 3}}), platform::noErr);
    EXPECT_EQ(fired, 0);
}

TEST_F(HotKeys, handlerThatCannotBeInstalledUsesNoIDAndIsRetried)
{
    service.failInstall = true;
    EXPECT_FALSE(manager.registerHotKey(keyU, option, [] {}));
    EXPECT_TRUE(service.registered().isEmpty());

    service.failInstall = false;
    EXPECT_TRUE(manager.registerHotKey(keyU, option, [] {}));
    EXPECT_EQ(service.installCount, 2);
    EXPECT_EQ(registeredIDs(service), QList<std::uint32_t>{1});
}

TEST_F(HotKeys, unregisterAllReleasesEverythingAndIDsKeepCounting)
{
    ASSERT_TRUE(manager.registerHotKey(keyU, option, [&] { ++fired; }));
    ASSERT_TRUE(manager.registerHotKey(keyI, option, [&] { ++fired; }));

    manager.unregisterAll();
    EXPECT_TRUE(service.registered().isEmpty());
    EXPECT_EQ(service.unregisterCount, 2);
    EXPECT_FALSE(service.hasHandler());
    EXPECT_FALSE(service.press(keyU, option));

    // Again, with nothing registered: nothing to release, no handler to remove.
    manager.unregisterAll();
    EXPECT_EQ(service.unregisterCount, 2);
    EXPECT_EQ(service.removeCount, 1);

    ASSERT_TRUE(manager.registerHotKey(keyU, option, [&] { ++fired; }));
    EXPECT_EQ(service.installCount, 2);
    EXPECT_EQ(registeredIDs(service), QList<std::uint32_t>{3});
    ASSERT_TRUE(service.press(keyU, option));
    EXPECT_EQ(fired, 1);
}

TEST_F(HotKeys, eventsWithoutAKnownIDAreHandledAndIgnored)
{
    ASSERT_TRUE(manager.registerHotKey(keyU, option, [&] { ++fired; }));
    EXPECT_EQ(service.deliver({platform::EventHotKeyID{qvtr, 99}}), platform::noErr);
    EXPECT_EQ(service.deliver(platform::HotKeyEvent{}), platform::noErr);
    // The signature is not compared: the id alone names the key.
    EXPECT_EQ(service.deliver({platform::EventHotKeyID{0, 1}}), platform::noErr);
    EXPECT_EQ(fired, 1);
}

TEST_F(HotKeys, actionMayUnregisterItsOwnKey)
{
    ASSERT_TRUE(manager.registerHotKey(keyU, option, [&] {
        manager.unregisterAll();
        ++fired;
    }));
    ASSERT_TRUE(service.press(keyU, option));
    EXPECT_EQ(fired, 1);
    EXPECT_TRUE(service.registered().isEmpty());
}

TEST(HotKeyManager, destructionUnregistersEverything)
{
    FakeHotKeyService service;
    {
        HotKeyManager manager(service);
        ASSERT_TRUE(manager.registerHotKey(keyU, option, [] {}));
    }
    EXPECT_TRUE(service.registered().isEmpty());
    EXPECT_FALSE(service.hasHandler());
}

TEST(HotKeyManager, defaultsToTheInstalledBackend)
{
    const platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    HotKeyManager manager;
    ASSERT_TRUE(manager.registerHotKey(keyU, option, [] {}));
    EXPECT_EQ(fakes.hotKeys->registered().size(), 1);
}
