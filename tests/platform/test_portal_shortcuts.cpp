// The portal client against a stand-in portal on a private session bus: what it asks for, in
// which order, and how it reads the answers.

#include "platform/wayland/PortalGlobalShortcuts.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;

using pindle::platform::ShortcutRefusal;
using pindle::platform::wayland::PortalGlobalShortcuts;

// The portal's (sa{sv}) records, as the client marshals them.
using Shortcut = PortalShortcut;

namespace {

const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString shortcutsInterface = u"org.freedesktop.portal.GlobalShortcuts"_s;
const QString appId = u"org.pindle.Pindle"_s;
const QKeySequence altU(Qt::ALT | Qt::Key_U);
const QKeySequence altI(Qt::ALT | Qt::Key_I);

// A session bus of its own, without service activation, so no real portal can start on it.
class PrivateBus
{
public:
    PrivateBus()
    {
        QFile config(m_dir.filePath(u"bus.conf"_s));
        if (!config.open(QIODevice::WriteOnly))
            return;
        config.write(
            "<busconfig><type>session</type><listen>unix:dir=" + QFile::encodeName(m_dir.path()) +
            "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
            "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
            "<allow own=\"*\"/></policy></busconfig>");
        config.close();
        m_daemon.start(u"dbus-daemon"_s, {u"--nofork"_s, u"--print-address"_s,
                                          u"--config-file="_s + config.fileName()});
        if (m_daemon.waitForReadyRead(10'000))
            address = QString::fromLocal8Bit(m_daemon.readLine()).trimmed();
    }
    ~PrivateBus()
    {
        m_daemon.terminate();
        m_daemon.waitForFinished(5000);
    }

    QDBusConnection connect(const QString &name) const
    {
        return QDBusConnection::connectToBus(address, name);
    }

    QString address;

private:
    QTemporaryDir m_dir;
    QProcess m_daemon;
};

// Answers as a desktop portal would, from what the test set: the shortcuts it remembers, those
// it grants when asked, and the Response code of a bind.
class FakePortal : public QDBusVirtualObject
{
public:
    bool hasRegistry = true;
    QList<Shortcut> remembered;
    // By id: the trigger the desktop gives each one it is asked for ("" for none).
    QHash<QString, QString> grants;
    uint bindResponse = 0;

    QStringList calls;
    QString session;

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        const QString method = message.member();
        const QVariantList arguments = message.arguments();
        if (message.interface() == u"org.freedesktop.host.portal.Registry") {
            if (!hasRegistry)
                return false;
            calls.append(method);
            connection.send(message.createReply());
            return true;
        }
        if (message.interface() != shortcutsInterface)
            return false;
        calls.append(method);
        const QString sender = message.service().mid(1).replace(u'.', u'_');
        const QVariantMap options = qdbus_cast<QVariantMap>(arguments.last());
        const QString token = options.value(u"handle_token"_s).toString();
        const QString request = portalPath + u"/request/%1/%2"_s.arg(sender, token);
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));

        QVariantMap results;
        uint code = 0;
        if (method == u"CreateSession") {
            session = portalPath + u"/session/%1/%2"_s.arg(
                                       sender, options.value(u"session_handle_token"_s).toString());
            results.insert(u"session_handle"_s, session);
        } else if (method == u"ListShortcuts") {
            results.insert(u"shortcuts"_s, QVariant::fromValue(remembered));
        } else if (method == u"BindShortcuts") {
            QList<Shortcut> given;
            for (const Shortcut &shortcut : qdbus_cast<QList<Shortcut>>(arguments.at(1))) {
                if (grants.contains(shortcut.id))
                    given.append({shortcut.id,
                                  {{u"description"_s, shortcut.properties.value(u"description"_s)},
                                   {u"trigger_description"_s, grants.value(shortcut.id)}}});
            }
            code = bindResponse;
            results.insert(u"shortcuts"_s, QVariant::fromValue(given));
        }
        QDBusMessage response =
            QDBusMessage::createSignal(request, u"org.freedesktop.portal.Request"_s, u"Response"_s);
        response << code << results;
        connection.send(response);
        return true;
    }
};

class PortalShortcuts : public testing::Test
{
protected:
    void SetUp() override
    {
        qDBusRegisterMetaType<Shortcut>();
        qDBusRegisterMetaType<QList<Shortcut>>();
        ASSERT_FALSE(bus.address.isEmpty()) << "dbus-daemon did not start";
    }

    void TearDown() override
    {
        shortcuts.reset();
        QDBusConnection::disconnectFromBus(u"client"_s);
        QDBusConnection::disconnectFromBus(u"portal"_s);
    }

    // Puts the stand-in portal on the bus.
    void startPortal()
    {
        QDBusConnection connection = portalConnection();
        ASSERT_TRUE(connection.registerVirtualObject(portalPath, &portal));
        ASSERT_TRUE(connection.registerService(portalService));
    }

    QDBusConnection portalConnection() const { return bus.connect(u"portal"_s); }

    void activate(const QString &session, const QString &id)
    {
        QDBusMessage signal =
            QDBusMessage::createSignal(portalPath, shortcutsInterface, u"Activated"_s);
        signal << QVariant::fromValue(QDBusObjectPath(session)) << id << qulonglong(0)
               << QVariantMap();
        portalConnection().send(signal);
    }

    // Binds Alt+U and Alt+I as Pindle does, and waits until both are answered.
    void bindBoth()
    {
        shortcuts->bind(u"launcher"_s, u"Show the launcher"_s, altU);
        shortcuts->bind(u"creator"_s, u"Show the creator"_s, altI);
        EXPECT_TRUE(QTest::qWaitFor([&] { return bound.size() + refused.size() == 2; }, 10'000));
    }

    QStringList ids(const QSignalSpy &spy) const
    {
        QStringList result;
        for (const QVariantList &arguments : spy)
            result.append(arguments.at(0).toString());
        result.sort();
        return result;
    }

    PrivateBus bus;
    FakePortal portal;
    std::unique_ptr<PortalGlobalShortcuts> shortcuts =
        std::make_unique<PortalGlobalShortcuts>(bus.connect(u"client"_s), appId);
    QSignalSpy bound{shortcuts.get(), &PortalGlobalShortcuts::bound};
    QSignalSpy refused{shortcuts.get(), &PortalGlobalShortcuts::refused};
    QSignalSpy activated{shortcuts.get(), &PortalGlobalShortcuts::activated};
};

TEST_F(PortalShortcuts, deliversOnlyThePressesOfItsOwnSession)
{
    portal.grants = {{u"launcher"_s, u"Alt+U"_s}, {u"creator"_s, u"Alt+I"_s}};
    startPortal();
    bindBoth();
    EXPECT_EQ(ids(bound), (QStringList{u"creator"_s, u"launcher"_s}));

    // A press in another program's session is not ours; signals arrive in order, so once ours
    // is in, the other would have been too.
    activate(portalPath + u"/session/other/1"_s, u"launcher"_s);
    activate(portal.session, u"creator"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return activated.size() >= 1; }, 10'000));
    EXPECT_EQ(ids(activated), QStringList{u"creator"_s});
}

TEST_F(PortalShortcuts, keepsBindingsTheDesktopRemembersWithoutAskingAgain)
{
    portal.hasRegistry = false;
    portal.remembered = {{u"launcher"_s, {{u"trigger_description"_s, u"Meta+L"_s}}},
                         {u"creator"_s, {{u"trigger_description"_s, u"Alt+I"_s}}}};
    startPortal();
    bindBoth();
    EXPECT_EQ(bound.size(), 2);
    EXPECT_FALSE(portal.calls.contains(u"BindShortcuts"_s))
        << portal.calls.join(u' ').toStdString();
}

TEST_F(PortalShortcuts, keysTheDesktopDoesNotGiveAreRefused)
{
    // Asked, it gives Alt+U and leaves Alt+I without a key.
    portal.grants = {{u"launcher"_s, u"Alt+U"_s}, {u"creator"_s, QString()}};
    startPortal();
    bindBoth();
    EXPECT_EQ(ids(bound), QStringList{u"launcher"_s});
    ASSERT_EQ(refused.size(), 1);
    EXPECT_EQ(refused.at(0).at(0).toString(), u"creator"_s);
    EXPECT_EQ(refused.at(0).at(1).value<ShortcutRefusal>(), ShortcutRefusal::notGiven);
}

TEST_F(PortalShortcuts, cancelledBindRefusesEveryKey)
{
    portal.grants = {{u"launcher"_s, u"Alt+U"_s}};
    portal.bindResponse = 1;
    startPortal();
    bindBoth();
    EXPECT_TRUE(bound.isEmpty());
    EXPECT_EQ(ids(refused), (QStringList{u"creator"_s, u"launcher"_s}));
}

TEST_F(PortalShortcuts, withoutAPortalEveryKeyIsRefused)
{
    bindBoth();
    EXPECT_TRUE(bound.isEmpty());
    EXPECT_EQ(ids(refused), (QStringList{u"creator"_s, u"launcher"_s}));
    // Later keys are refused too, without waiting on the bus again.
    shortcuts->bind(u"other"_s, QString(), altU);
    EXPECT_TRUE(QTest::qWaitFor([&] { return refused.size() == 3; }, 10'000));
}

} // namespace
