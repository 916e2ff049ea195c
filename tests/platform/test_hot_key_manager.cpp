// The start-up warning waits for the desktop's answers, but not for ever: here the desktop
// answers late or never, which no desktop in the end-to-end runs can be made to do.

#include "platform/HotKeyManager.h"
#include "platform/fake/FakePlatform.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

using namespace pindle;

TEST(HotKeys, settleOnceEveryKeyIsAnsweredOrOnceAtTheLimitAndALateAnswerStillCounts)
{
    QStringList fired;
    QList<QStringList> reports;
    platform::fake::FakeGlobalShortcuts desktop;
    desktop.held = true;
    desktop.refuse.insert(u"creator"_s, platform::ShortcutRefusal::notGiven);
    HotKeyManager manager(desktop);
    const auto registerKey = [&](const QString &name) {
        return manager.registerHotKey(name, {}, {}, [&fired, name] { fired.append(name); });
    };
    const auto settle = [&](int limitMilliseconds) {
        manager.whenSettled(limitMilliseconds, [&](const QList<HotKeyManager::Failure> &failed) {
            QStringList names;
            for (const HotKeyManager::Failure &failure : failed)
                names.append(failure.name);
            reports.append(names);
        });
    };

    // Not refused while unanswered; once all are answered, the report does not wait for the limit.
    ASSERT_TRUE(registerKey(u"launcher"_s));
    ASSERT_TRUE(registerKey(u"creator"_s));
    settle(60'000);
    // Queued behind the manager's own first look, so the answers come after it.
    QMetaObject::invokeMethod(
        &desktop, [&] { desktop.answer(); }, Qt::QueuedConnection);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !reports.isEmpty(); }, 10'000));
    EXPECT_EQ(reports.takeFirst(), QStringList{u"creator"_s});

    // A key never answered is reported at the limit, and only then: its late grant still binds it.
    ASSERT_TRUE(registerKey(u"other"_s));
    settle(50);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !reports.isEmpty(); }, 10'000));
    desktop.answer();
    EXPECT_EQ(reports, (QList<QStringList>{{u"creator"_s, u"other"_s}}));
    ASSERT_TRUE(desktop.press(u"other"_s));
    EXPECT_EQ(fired, QStringList{u"other"_s});
}
