#pragma once

// The application shell: builds the two panels once, registers Alt+U and Alt+I to toggle them,
// warns once at start-up about keys it did not get, and lets the keys go at the end.

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

    // Null until applicationDidFinishLaunching().
    ui::LauncherController *launcher() const { return m_launcher.get(); }
    ui::CreatorController *creator() const { return m_creator.get(); }

private:
    void toggleLauncher();
    void toggleCreator();
    void warnHotKeysUnavailable(const QList<HotKeyManager::Failure> &failures);

    std::unique_ptr<ui::LauncherController> m_launcher;
    std::unique_ptr<ui::CreatorController> m_creator;
    // Declared last so the keys are let go before the panels they toggle are destroyed.
    HotKeyManager m_hotKey;
};

} // namespace pindle::app
