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

using pindle::platform::ShortcutRefusal;
using pindle::platform::wayland::PortalGlobalShortcuts;

// The portal's (sa{sv}) records, as the client marshals them.
using Shortcut = PortalShortcut;

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString appId = QStringLiteral("org.pindle.Pindle");
const QKeySequence altU(Qt::ALT | Qt::Key_U);
const QKeySequence altI(Qt::ALT | Qt::Key_I);

// A session bus of its own, without service activation, so no real portal can start on it.
class PrivateBus
{
public:
    PrivateBus()
    {
        QFile config(m_dir.filePath(QStringLiteral("bus.conf")));
        if (!config.open(QIODevice::WriteOnly))
            return;
        config.write(
            "<busconfig><type>session</type><listen>unix:dir=" + QFile::encodeName(m_dir.path()) +
            "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
            "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
            "<allow own=\"*\"/></policy></busconfig>");
        config.close();
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--nofork"), QStringLiteral("--print-address"),
                        QStringLiteral("--config-file=") + config.fileName()});
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
    QString registeredAppId;
    QList<Shortcut> asked;
    // Offered with the session, which is how Plasma 5.27 binds them.
    QList<Shortcut> offeredWithSession;
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
            registeredAppId = arguments.value(0).toString();
            connection.send(message.createReply());
            return true;
        }
        if (message.interface() != shortcutsInterface)
            return false;
        calls.append(method);
        const QString sender = message.service().mid(1).replace(u'.', u'_');
        const QVariantMap options = qdbus_cast<QVariantMap>(arguments.last());
        const QString token = options.value(QStringLiteral("handle_token")).toString();
        const QString request = portalPath + QStringLiteral("/request/%1/%2").arg(sender, token);
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));

        QVariantMap results;
        uint code = 0;
        if (method == u"CreateSession") {
            session =
                portalPath +
                QStringLiteral("/session/%1/%2")
                    .arg(sender, options.value(QStringLiteral("session_handle_token")).toString());
            results.insert(QStringLiteral("session_handle"), session);
            offeredWithSession =
                qdbus_cast<QList<Shortcut>>(options.value(QStringLiteral("shortcuts")));
        } else if (method == u"ListShortcuts") {
            results.insert(QStringLiteral("shortcuts"), QVariant::fromValue(remembered));
        } else if (method == u"BindShortcuts") {
            asked = qdbus_cast<QList<Shortcut>>(arguments.at(1));
            QList<Shortcut> given;
            for (const Shortcut &shortcut : std::as_const(asked)) {
                if (grants.contains(shortcut.id))
                    given.append(
                        {shortcut.id,
                         {{QStringLiteral("description"),
                           shortcut.properties.value(QStringLiteral("description"))},
                          {QStringLiteral("trigger_description"), grants.value(shortcut.id)}}});
            }
            code = bindResponse;
            results.insert(QStringLiteral("shortcuts"), QVariant::fromValue(given));
        }
        QDBusMessage response = QDBusMessage::createSignal(
            request, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
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
        QDBusConnection::disconnectFromBus(QStringLiteral("client"));
        QDBusConnection::disconnectFromBus(QStringLiteral("portal"));
    }

    // Puts the stand-in portal on the bus.
    void startPortal()
    {
        QDBusConnection connection = portalConnection();
        ASSERT_TRUE(connection.registerVirtualObject(portalPath, &portal));
        ASSERT_TRUE(connection.registerService(portalService));
    }

    QDBusConnection portalConnection() const { return bus.connect(QStringLiteral("portal")); }

    void activate(const QString &session, const QString &id)
    {
        QDBusMessage signal =
            QDBusMessage::createSignal(portalPath, shortcutsInterface, QStringLiteral("Activated"));
        signal << QVariant::fromValue(QDBusObjectPath(session)) << id << qulonglong(0)
               << QVariantMap();
        portalConnection().send(signal);
    }

    // Binds Alt+U and Alt+I as Pindle does, and waits until both are answered.
    void bindBoth()
    {
        shortcuts->bind(QStringLiteral("launcher"), QStringLiteral("Show the launcher"), altU);
        shortcuts->bind(QStringLiteral("creator"), QStringLiteral("Show the creator"), altI);
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
        std::make_unique<PortalGlobalShortcuts>(bus.connect(QStringLiteral("client")), appId);
    QSignalSpy bound{shortcuts.get(), &PortalGlobalShortcuts::bound};
    QSignalSpy refused{shortcuts.get(), &PortalGlobalShortcuts::refused};
    QSignalSpy activated{shortcuts.get(), &PortalGlobalShortcuts::activated};
};

TEST_F(PortalShortcuts, asksForBothKeysInOneBindAfterRegisteringAndDeliversPresses)
{
    portal.grants = {{QStringLiteral("launcher"), QStringLiteral("Alt+U")},
                     {QStringLiteral("creator"), QStringLiteral("Alt+I")}};
    startPortal();
    bindBoth();
    EXPECT_EQ(ids(bound), (QStringList{QStringLiteral("creator"), QStringLiteral("launcher")}));
    EXPECT_EQ(portal.calls,
              (QStringList{QStringLiteral("Register"), QStringLiteral("CreateSession"),
                           QStringLiteral("ListShortcuts"), QStringLiteral("BindShortcuts")}));
    EXPECT_EQ(portal.registeredAppId, appId);
    EXPECT_EQ(portal.offeredWithSession.size(), 2);
    ASSERT_EQ(portal.asked.size(), 2);
    for (const Shortcut &shortcut : std::as_const(portal.asked)) {
        const bool isLauncher = shortcut.id == u"launcher";
        EXPECT_EQ(shortcut.properties.value(QStringLiteral("preferred_trigger")).toString(),
                  isLauncher ? QStringLiteral("ALT+u") : QStringLiteral("ALT+i"));
        EXPECT_EQ(shortcut.properties.value(QStringLiteral("description")).toString(),
                  isLauncher ? QStringLiteral("Show the launcher")
                             : QStringLiteral("Show the creator"));
    }

    // A press in another program's session is not ours; signals arrive in order, so once ours
    // is in, the other would have been too.
    activate(portalPath + QStringLiteral("/session/other/1"), QStringLiteral("launcher"));
    activate(portal.session, QStringLiteral("creator"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return activated.size() >= 1; }, 10'000));
    EXPECT_EQ(ids(activated), QStringList{QStringLiteral("creator")});
}

TEST_F(PortalShortcuts, keepsBindingsTheDesktopRemembersWithoutAskingAgain)
{
    portal.hasRegistry = false;
    portal.remembered = {{QStringLiteral("launcher"),
                          {{QStringLiteral("trigger_description"), QStringLiteral("Meta+L")}}},
                         {QStringLiteral("creator"),
                          {{QStringLiteral("trigger_description"), QStringLiteral("Alt+I")}}}};
    startPortal();
    bindBoth();
    EXPECT_EQ(bound.size(), 2);
    EXPECT_FALSE(portal.calls.contains(QStringLiteral("BindShortcuts")))
        << portal.calls.join(u' ').toStdString();
}

TEST_F(PortalShortcuts, keysTheDesktopDoesNotGiveAreRefused)
{
    // Asked, it gives Alt+U and leaves Alt+I without a key.
    portal.grants = {{QStringLiteral("launcher"), QStringLiteral("Alt+U")},
                     {QStringLiteral("creator"), QString()}};
    startPortal();
    bindBoth();
    EXPECT_EQ(ids(bound), QStringList{QStringLiteral("launcher")});
    ASSERT_EQ(refused.size(), 1);
    EXPECT_EQ(refused.at(0).at(0).toString(), QStringLiteral("creator"));
    EXPECT_EQ(refused.at(0).at(1).value<ShortcutRefusal>(), ShortcutRefusal::notGiven);
}

TEST_F(PortalShortcuts, cancelledBindRefusesEveryKey)
{
    portal.grants = {{QStringLiteral("launcher"), QStringLiteral("Alt+U")}};
    portal.bindResponse = 1;
    startPortal();
    bindBoth();
    EXPECT_TRUE(bound.isEmpty());
    EXPECT_EQ(ids(refused), (QStringList{QStringLiteral("creator"), QStringLiteral("launcher")}));
}

TEST_F(PortalShortcuts, withoutAPortalEveryKeyIsRefused)
{
    bindBoth();
    EXPECT_TRUE(bound.isEmpty());
    EXPECT_EQ(ids(refused), (QStringList{QStringLiteral("creator"), QStringLiteral("launcher")}));
    // Later keys are refused too, without waiting on the bus again.
    shortcuts->bind(QStringLiteral("other"), QString(), altU);
    EXPECT_TRUE(QTest::qWaitFor([&] { return refused.size() == 3; }, 10'000));
}

} // namespace
