// Pindle's entry point: checks for an X display, starts Qt with no main window, installs the X11
// desktop services, and hands everything else to the AppDelegate once the event loop runs.

#include "app/AppDelegate.h"
#include "app/TerminationSignals.h"
#include "platform/x11/X11Services.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    if (auto ready = pindle::platform::x11::prepareDisplay(); !ready) {
        std::fprintf(stderr, "pindle: %s\n", qPrintable(ready.error()));
        return 1;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("pindle"));
    QApplication::setApplicationDisplayName(QStringLiteral("Pindle"));
    QApplication::setDesktopFileName(QStringLiteral("pindle"));
    // Panels come and go; the program lives on in the background with none shown.
    QApplication::setQuitOnLastWindowClosed(false);

    QString error;
    std::optional<pindle::platform::Services> backend =
        pindle::platform::x11::createX11Services(&error);
    if (!backend) {
        std::fprintf(stderr, "pindle: %s\n", qPrintable(error));
        return 1;
    }
    pindle::platform::setServices(std::move(*backend));

    pindle::app::AppDelegate delegate;
    pindle::app::TerminationSignals signals;
    QObject::connect(&signals, &pindle::app::TerminationSignals::received, &app,
                     [] { QCoreApplication::quit(); });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     [&delegate] { delegate.applicationWillTerminate(); });
    QTimer::singleShot(0, &delegate, [&delegate] { delegate.applicationDidFinishLaunching(); });

    return QApplication::exec();
}
