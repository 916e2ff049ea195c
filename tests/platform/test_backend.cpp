// Which backend Pindle picks, and what it says when there is no display at all.

#include "platform/Platform.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <QFile>

#include <cstring>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace pindle::platform;

namespace {

// Sets an environment variable for one test and puts the old value back after it.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char *name, const char *value)
        : m_name(name),
          m_old(qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt)
    {
        value != nullptr ? qputenv(name, value) : qunsetenv(name);
    }
    ~ScopedEnvironment() { m_old ? qputenv(m_name, *m_old) : qunsetenv(m_name); }

private:
    const char *m_name;
    std::optional<QByteArray> m_old;
};

} // namespace

TEST(Backend, aDesktopWithoutABackendRefusesEveryShortcutAndLeavesFocusToIt)
{
    // The tests run on Qt's offscreen platform.
    Services services = createServices();
    QSignalSpy refused(services.shortcuts.get(), &GlobalShortcuts::refused);
    services.shortcuts->bind(QStringLiteral("launcher"), QString(),
                             QKeySequence(Qt::ALT | Qt::Key_U));
    ASSERT_EQ(refused.size(), 1);
    EXPECT_EQ(refused.at(0).at(1).value<ShortcutRefusal>(), ShortcutRefusal::notGiven);
    EXPECT_TRUE(services.focus->restoresFocusItself());
    EXPECT_FALSE(services.focus->frontmostApplication().has_value());
    EXPECT_TRUE(services.screens->canPlaceWindows());
}

TEST(Backend, withoutAnyDisplayTheCheckNamesBothAndAPlatformOfItsOwnNeedsNone)
{
    const ScopedEnvironment wayland("WAYLAND_DISPLAY", nullptr);
    const ScopedEnvironment x11("DISPLAY", nullptr);
    {
        const ScopedEnvironment platform("QT_QPA_PLATFORM", nullptr);
        const auto ready = checkDisplay();
        ASSERT_FALSE(ready);
        EXPECT_TRUE(ready.error().contains(QStringLiteral("WAYLAND_DISPLAY")));
        EXPECT_TRUE(ready.error().contains(QStringLiteral(" DISPLAY")));
        EXPECT_FALSE(ready.error().contains(u'\n'));
    }
    {
        const ScopedEnvironment platform("QT_QPA_PLATFORM", "wayland");
        EXPECT_FALSE(checkDisplay());
    }
    const ScopedEnvironment platform("QT_QPA_PLATFORM", "offscreen");
    EXPECT_TRUE(checkDisplay());
}

TEST(Backend, aReachableCompositorSelectsQtsWaylandPlatform)
{
    // A listening socket stands in for the compositor; only the connection is checked.
    const QString runtime = qEnvironmentVariable("TMPDIR", QStringLiteral("/tmp"));
    const QString name = QStringLiteral("pindle-test-%1").arg(QCoreApplication::applicationPid());
    const QByteArray path = QFile::encodeName(runtime + u'/' + name);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.constData(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(fd, 1), 0);

    const ScopedEnvironment directory("XDG_RUNTIME_DIR", QFile::encodeName(runtime).constData());
    const ScopedEnvironment wayland("WAYLAND_DISPLAY", name.toLocal8Bit().constData());
    const ScopedEnvironment x11("DISPLAY", ":97");
    const ScopedEnvironment platform("QT_QPA_PLATFORM", nullptr);
    EXPECT_TRUE(checkDisplay());
    EXPECT_EQ(qgetenv("QT_QPA_PLATFORM"), QByteArray("wayland"));
    close(fd);
    unlink(path.constData());
}
