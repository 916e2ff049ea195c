// Pindle's entry point: checks for a display, starts Qt with no main window, installs the desktop
// services for the window system Qt runs on, and hands everything else to the AppDelegate once
// the event loop runs.

#include "app/AppDelegate.h"
#include "app/TerminationSignals.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    if (auto ready = pindle::platform::checkDisplay(); !ready) {
        std::fprintf(stderr, "pindle: %s\n", qPrintable(ready.error()));
        return 1;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("pindle"));
    QApplication::setApplicationDisplayName(QStringLiteral("Pindle"));
    // Desktops remember the keys they gave Pindle under this id.
    QApplication::setDesktopFileName(QStringLiteral("org.pindle.Pindle"));
    // Panels come and go; the program lives on in the background with none shown.
    QApplication::setQuitOnLastWindowClosed(false);

    pindle::platform::setServices(pindle::platform::createServices());

    pindle::app::AppDelegate delegate;
    pindle::app::TerminationSignals signals;
    QObject::connect(&signals, &pindle::app::TerminationSignals::received, &app,
                     [] { QCoreApplication::quit(); });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     [&delegate] { delegate.applicationWillTerminate(); });
    QTimer::singleShot(0, &delegate, [&delegate] { delegate.applicationDidFinishLaunching(); });

    return QApplication::exec();
}
