#pragma once

// One Pindle per session: the first to start owns the well-known name on the session bus and
// answers there; any later `pindle` hands its request over to it and exits.

#include "app/CommandLine.h"

#include <QDBusContext>
#include <QObject>

#include <expected>
#include <functional>
#include <optional>

namespace pindle::app {

// The application id: the well-known bus name, and the name of the installed desktop file.
inline constexpr char applicationId[] = "org.pindle.Pindle";

class SessionService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.pindle.Pindle")
public:
    enum class Claim
    {
        owned,         // this process is the session's Pindle
        heldElsewhere, // another Pindle owns the name
        noSessionBus,  // there is no bus to ask: run as the only Pindle
    };

    struct Actions
    {
        std::function<void(Panel)> toggle;
        std::function<void()> showLauncher;
    };

    explicit SessionService(Actions actions, QObject *parent = nullptr);
    ~SessionService() override;

    // Exports this object and asks the bus for the name. The bus hands it to exactly one of
    // any number of processes asking at once.
    Claim claim();

public Q_SLOTS:
    // Toggles "launcher" or "creator" as its hot key would. The reply goes out before the panel
    // is shown, so the caller returns at once.
    Q_SCRIPTABLE void Toggle(const QString &panel);
    // Shows the launcher; nothing when it is already shown.
    Q_SCRIPTABLE void ShowLauncher();

private:
    Actions m_actions;
    bool m_exported = false;
};

// Makes this process the session's Pindle, or hands the command over to the one that is. The exit
// status when this process is done (it handed over, saying so in one line when it was started
// plainly; or it could not); nothing when it is now the session's Pindle, or the only one
// because there is no bus.
std::optional<int> claimOrHandOver(SessionService &session, const CommandLine &command);

} // namespace pindle::app
