#pragma once

// What the user asked for on the command line. Parsed before any window system is reached, so
// that --help and --version answer without a display.

#include <QString>
#include <QStringList>

#include <expected>

namespace pindle::app {

enum class Panel
{
    launcher,
    creator
};

struct CommandLine
{
    enum class Action
    {
        run,     // start Pindle, or hand over to the one already running
        toggle,  // toggle `panel` in the running Pindle, starting one when none runs
        help,    // print the usage and exit
        version, // print the version and exit
    };
    Action action = Action::run;
    Panel panel = Panel::launcher;

    bool operator==(const CommandLine &) const = default;
};

// arguments are those after the program name. On failure, one line saying what is wrong,
// without the program name; the caller exits with status 2.
std::expected<CommandLine, QString> parseCommandLine(const QStringList &arguments);

// "launcher" or "creator", as the toggle command and the D-Bus method name them.
QString panelName(Panel panel);
std::expected<Panel, QString> panelNamed(const QString &name);

QString usageText();
QString versionText();

} // namespace pindle::app
