// The portal client against a stand-in portal, for what no compositor in the end-to-end runs
// does: withhold a key when asked, or relay another program's presses.

#include "platform/wayland/PortalGlobalShortcuts.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;

using pindle::platform::ShortcutRefusal;
using pindle::platform::wayland::PortalGlobalShortcuts;

namespace {

const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString shortcutsInterface = u"org.freedesktop.portal.GlobalShortcuts"_s;

// Answers as a desktop portal would, from the keys the test gives it.
class FakePortal : public QDBusVirtualObject
{
public:
    // By id, the key the desktop gives when asked ("" for none).
    QHash<QString, QString> keys;
    // What the desktop kept from an earlier run, and how often it was asked to bind.
    QList<PortalShortcut> remembered;
    int binds = 0;
    const QString session = portalPath + u"/session/mine"_s;

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.interface() != shortcutsInterface)
            return false;
        const QString token =
            qdbus_cast<QVariantMap>(message.arguments().last()).value(u"handle_token"_s).toString();
        const QString request =
            portalPath +
            u"/request/%1/%2"_s.arg(message.service().mid(1).replace(u'.', u'_'), token);
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));

        QList<PortalShortcut> given;
        if (message.member() == u"ListShortcuts")
            given = remembered;
        if (message.member() == u"BindShortcuts") {
            ++binds;
            for (const PortalShortcut &asked :
                 qdbus_cast<QList<PortalShortcut>>(message.arguments().at(1)))
                given.append({asked.id, {{u"trigger_description"_s, keys.value(asked.id)}}});
        }
        QDBusMessage response =
            QDBusMessage::createSignal(request, u"org.freedesktop.portal.Request"_s, u"Response"_s);
        response << 0u
                 << QVariantMap{{u"session_handle"_s, session},
                                {u"shortcuts"_s, QVariant::fromValue(given)}};
        connection.send(response);
        return true;
    }
};

class PortalShortcuts : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(address.isEmpty()) << "dbus-daemon did not start";
        QDBusConnection connection = QDBusConnection::connectToBus(address, u"portal"_s);
        ASSERT_TRUE(connection.registerVirtualObject(portalPath, &portal));
        ASSERT_TRUE(connection.registerService(u"org.freedesktop.portal.Desktop"_s));
    }

    void TearDown() override
    {
        shortcuts.reset();
        QDBusConnection::disconnectFromBus(u"client"_s);
        QDBusConnection::disconnectFromBus(u"portal"_s);
        daemon.terminate();
        daemon.waitForFinished(5000);
    }

    // A bus of its own: the stand-in owns the portal's name on it before anyone asks for it.
    QString startBus()
    {
        daemon.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s});
        return daemon.waitForReadyRead(10'000) ? QString::fromLocal8Bit(daemon.readLine()).trimmed()
                                               : QString();
    }

    void activate(const QString &session, const QString &id)
    {
        QDBusMessage signal =
            QDBusMessage::createSignal(portalPath, shortcutsInterface, u"Activated"_s);
        signal << QVariant::fromValue(QDBusObjectPath(session)) << id << qulonglong(0)
               << QVariantMap();
        QDBusConnection(u"portal"_s).send(signal);
    }

    QProcess daemon;
    const QString address = startBus();
    FakePortal portal;
    std::unique_ptr<PortalGlobalShortcuts> shortcuts = std::make_unique<PortalGlobalShortcuts>(
        QDBusConnection::connectToBus(address, u"client"_s), u"org.pindle.Pindle"_s);
    QSignalSpy bound{shortcuts.get(), &PortalGlobalShortcuts::bound};
    QSignalSpy refused{shortcuts.get(), &PortalGlobalShortcuts::refused};
    QSignalSpy activated{shortcuts.get(), &PortalGlobalShortcuts::activated};
};

TEST_F(PortalShortcuts, aKeyTheDesktopWithholdsIsRefusedAndOnlyOwnPressesOfBoundKeysArrive)
{
    portal.keys = {{u"launcher"_s, u"Alt+U"_s}, {u"creator"_s, QString()}};
    shortcuts->bind(u"launcher"_s, u"Show the launcher"_s, QKeySequence(Qt::ALT | Qt::Key_U));
    shortcuts->bind(u"creator"_s, u"Show the creator"_s, QKeySequence(Qt::ALT | Qt::Key_I));
    ASSERT_TRUE(QTest::qWaitFor([&] { return bound.size() + refused.size() == 2; }, 10'000));
    EXPECT_EQ(bound, QList<QVariantList>{{u"launcher"_s}});
    EXPECT_EQ(refused.value(0).value(0), u"creator"_s);
    EXPECT_EQ(refused.value(0).value(1).value<ShortcutRefusal>(), ShortcutRefusal::notGiven);

    // Signals arrive in order: once the last is in, the others would have been too.
    activate(portalPath + u"/session/other/1"_s, u"launcher"_s);
    activate(portal.session, u"creator"_s);
    activate(portal.session, u"launcher"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !activated.isEmpty(); }, 10'000));
    EXPECT_EQ(activated, QList<QVariantList>{{u"launcher"_s}});
}

// On desktops that ask the user, asking again at every start would mean a dialog at every start.
TEST_F(PortalShortcuts, keepsBindingsTheDesktopRemembersWithoutAskingAgain)
{
    portal.remembered = {{u"launcher"_s, {{u"trigger_description"_s, u"Meta+L"_s}}},
                         {u"creator"_s, {{u"trigger_description"_s, u"Alt+I"_s}}}};
    shortcuts->bind(u"launcher"_s, u"Show the launcher"_s, QKeySequence(Qt::ALT | Qt::Key_U));
    shortcuts->bind(u"creator"_s, u"Show the creator"_s, QKeySequence(Qt::ALT | Qt::Key_I));
    ASSERT_TRUE(QTest::qWaitFor([&] { return bound.size() + refused.size() == 2; }, 10'000));
    EXPECT_EQ(bound.size(), 2);
    EXPECT_EQ(portal.binds, 0);
}

} // namespace
