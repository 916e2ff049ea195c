// Pindle's entry point: reads the command line (help and version need no display), checks for
// a display, starts Qt with no main window, becomes the session's one Pindle or hands over to the
// one already running, installs the desktop services for the window system Qt runs on, and hands
// everything else to the AppDelegate once the event loop runs.

#include "app/AppDelegate.h"
#include "app/CommandLine.h"
#include "app/SessionService.h"
#include "app/TerminationSignals.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace {

using pindle::app::CommandLine;

void printLine(std::FILE *stream, const QString &text)
{
    std::fprintf(stream, "pindle: %s\n", qPrintable(text));
}

} // namespace

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const std::expected<CommandLine, QString> command = pindle::app::parseCommandLine(arguments);
    if (!command) {
        printLine(stderr, command.error());
        return 2;
    }
    if (command->action == CommandLine::Action::help) {
        std::fputs(qPrintable(pindle::app::usageText()), stdout);
        return 0;
    }
    if (command->action == CommandLine::Action::version) {
        std::fputs(qPrintable(pindle::app::versionText()), stdout);
        return 0;
    }

    if (auto ready = pindle::platform::checkDisplay(); !ready) {
        printLine(stderr, ready.error());
        return 1;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("pindle"));
    QApplication::setApplicationDisplayName(QStringLiteral("Pindle"));
    // Desktops remember the keys they gave Pindle under this id.
    QApplication::setDesktopFileName(QString::fromLatin1(pindle::app::applicationId));
    // Panels come and go; the program lives on in the background with none shown.
    QApplication::setQuitOnLastWindowClosed(false);

    // Made once the desktop services are installed, which only the session's Pindle does.
    std::unique_ptr<pindle::app::AppDelegate> delegate;
    pindle::app::SessionService session({
        .toggle =
            [&delegate](pindle::app::Panel panel) {
                if (delegate)
                    delegate->toggle(panel);
            },
        .showLauncher =
            [&delegate] {
                if (delegate)
                    delegate->showLauncher();
            },
    });
    // The start-up work goes first in the event queue, before any request that arrives once
    // the name is ours.
    QTimer::singleShot(0, &app, [&delegate, command = *command] {
        delegate->applicationDidFinishLaunching();
        if (command.action == CommandLine::Action::toggle)
            delegate->toggle(command.panel);
    });
    if (const std::optional<int> status = pindle::app::claimOrHandOver(session, *command))
        return *status;

    pindle::platform::setServices(pindle::platform::createServices());
    delegate = std::make_unique<pindle::app::AppDelegate>();

    pindle::app::TerminationSignals signals;
    QObject::connect(&signals, &pindle::app::TerminationSignals::received, &app,
                     [] { QCoreApplication::quit(); });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, delegate.get(),
                     [&delegate] { delegate->applicationWillTerminate(); });

    return QApplication::exec();
}
