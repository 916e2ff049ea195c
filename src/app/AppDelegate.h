#pragma once

// The application shell: builds the two panels once, registers Alt+U and Alt+I to toggle them,
// warns once at start-up about keys it did not get, and lets the keys go at the end.

#include "app/CommandLine.h"
#include "platform/HotKeyManager.h"
#include "ui/CreatorController.h"
#include "ui/LauncherController.h"

#include <QObject>
#include <QStringList>

#include <memory>

namespace pindle::app {

class AppDelegate : public QObject
{
    Q_OBJECT
public:
    AppDelegate();
    ~AppDelegate() override;

    // The start-up work, run once the event loop is going. The warning about keys not given
    // follows once the desktop has answered for them, from the event loop.
    void applicationDidFinishLaunching();
    void applicationWillTerminate();

    // What the hot keys do, also asked for from the command line; nothing before launching.
    void toggle(Panel panel);
    // Shows the launcher unless it is already up.
    void showLauncher();

    // Null until applicationDidFinishLaunching().
    ui::LauncherController *launcher() const { return m_launcher.get(); }
    ui::CreatorController *creator() const { return m_creator.get(); }

private:
    void toggleLauncher();
    void toggleCreator();
    void openCreatorThenReadClipboard();
    void warnHotKeysUnavailable(const QList<HotKeyManager::Failure> &failures);

    std::unique_ptr<ui::LauncherController> m_launcher;
    std::unique_ptr<ui::CreatorController> m_creator;
    bool m_isReadingClipboard = false;
    // Declared last so the keys are let go before the panels they toggle are destroyed.
    HotKeyManager m_hotKey;
};

} // namespace pindle::app
