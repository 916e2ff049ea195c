#include "app/SessionService.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QTimer>

#include <cstdio>
#include <utility>

namespace pindle::app {
namespace {

const QString objectPath = QStringLiteral("/org/pindle/Pindle");
const QString interfaceName = QString::fromLatin1(applicationId);

// The running Pindle answers before it acts, so a reply takes milliseconds; the bound only
// matters for one that hangs.
constexpr int requestTimeoutMs = 5000;

// A Pindle that held the name may end before it answers; the name is then free to take.
constexpr int claimAttempts = 3;

void printLine(std::FILE *stream, const QString &text)
{
    std::fprintf(stream, "pindle: %s\n", qPrintable(text));
}

std::expected<void, QString> call(const QString &method, const QVariantList &arguments)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return std::unexpected(QStringLiteral("no session D-Bus to reach a running Pindle"));
    QDBusMessage message =
        QDBusMessage::createMethodCall(interfaceName, objectPath, interfaceName, method);
    message.setArguments(arguments);
    const QDBusMessage reply = bus.call(message, QDBus::Block, requestTimeoutMs);
    if (reply.type() == QDBusMessage::ErrorMessage)
        return std::unexpected(
            QStringLiteral("the running Pindle did not answer: %1").arg(reply.errorMessage()));
    return {};
}

} // namespace

SessionService::SessionService(Actions actions, QObject *parent)
    : QObject(parent), m_actions(std::move(actions))
{}

SessionService::~SessionService()
{
    if (m_exported)
        QDBusConnection::sessionBus().unregisterObject(objectPath);
}

SessionService::Claim SessionService::claim()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return Claim::noSessionBus;
    // The object is there before the name, so a request sent the moment the name is ours
    // finds it.
    if (!m_exported)
        m_exported = bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots);
    if (!m_exported)
        return Claim::noSessionBus;
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        bus.interface()->registerService(interfaceName, QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return Claim::owned;
    bus.unregisterObject(objectPath);
    m_exported = false;
    // A bus that refuses to answer at all is as good as none.
    return reply.isValid() ? Claim::heldElsewhere : Claim::noSessionBus;
}

void SessionService::Toggle(const QString &panel)
{
    const std::expected<Panel, QString> named = panelNamed(panel);
    if (!named) {
        sendErrorReply(QDBusError::InvalidArgs, named.error());
        return;
    }
    QTimer::singleShot(0, this, [this, which = *named] {
        if (m_actions.toggle)
            m_actions.toggle(which);
    });
}

void SessionService::ShowLauncher()
{
    QTimer::singleShot(0, this, [this] {
        if (m_actions.showLauncher)
            m_actions.showLauncher();
    });
}

std::optional<int> claimOrHandOver(SessionService &session, const CommandLine &command)
{
    for (int attempt = 1;; ++attempt) {
        switch (session.claim()) {
        case SessionService::Claim::owned:
            return std::nullopt;
        case SessionService::Claim::noSessionBus:
            printLine(stderr, QStringLiteral(
                                  "no session D-Bus; running without checking for another Pindle"));
            return std::nullopt;
        case SessionService::Claim::heldElsewhere:
            break;
        }
        const std::expected<void, QString> handed =
            command.action == CommandLine::Action::toggle
                ? call(QStringLiteral("Toggle"), {panelName(command.panel)})
                : call(QStringLiteral("ShowLauncher"), {});
        if (handed) {
            if (command.action == CommandLine::Action::run)
                printLine(stdout,
                          QStringLiteral("Pindle is already running; showing its launcher"));
            return 0;
        }
        // The Pindle that held the name may have ended since: try for it again.
        if (attempt == claimAttempts) {
            printLine(stderr, handed.error());
            return 1;
        }
    }
}

} // namespace pindle::app
