#include "app/CommandLine.h"

namespace pindle::app {
namespace {

const QString toggleOption = QStringLiteral("--toggle");

} // namespace

QString panelName(Panel panel)
{
    return panel == Panel::creator ? QStringLiteral("creator") : QStringLiteral("launcher");
}

std::expected<Panel, QString> panelNamed(const QString &name)
{
    if (name == QLatin1String("launcher"))
        return Panel::launcher;
    if (name == QLatin1String("creator"))
        return Panel::creator;
    return std::unexpected(
        QStringLiteral("unknown panel \u201c%1\u201d: use launcher or creator").arg(name));
}

std::expected<CommandLine, QString> parseCommandLine(const QStringList &arguments)
{
    // Help and version win over anything else given, right or wrong, so that they always answer.
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h"))
            return CommandLine{.action = CommandLine::Action::help};
        if (argument == QLatin1String("--version"))
            return CommandLine{.action = CommandLine::Action::version};
    }

    CommandLine result;
    bool toggleSeen = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments[i];
        QString panel;
        if (argument == toggleOption) {
            if (i + 1 == arguments.size())
                return std::unexpected(
                    QStringLiteral("--toggle needs a panel: launcher or creator"));
            panel = arguments[++i];
        } else if (argument.startsWith(toggleOption + QLatin1Char('='))) {
            panel = argument.mid(toggleOption.size() + 1);
        } else {
            return std::unexpected(
                QStringLiteral("unknown option \u201c%1\u201d (see pindle --help)").arg(argument));
        }
        if (toggleSeen)
            return std::unexpected(QStringLiteral("--toggle given twice"));
        toggleSeen = true;
        const std::expected<Panel, QString> named = panelNamed(panel);
        if (!named)
            return std::unexpected(named.error());
        result = {.action = CommandLine::Action::toggle, .panel = *named};
    }
    return result;
}

QString usageText()
{
    return QStringLiteral(
        "Usage: pindle [--toggle launcher|creator]\n"
        "\n"
        "Keyboard launcher for the web-link shortcuts in ~/conflocal/urls.\n"
        "Without options, starts Pindle in the background: Alt+U toggles the launcher, Alt+I\n"
        "the creator (with a web address on the clipboard). When Pindle already runs, shows\n"
        "its launcher instead.\n"
        "\n"
        "Options:\n"
        "  --toggle launcher   toggle the launcher of the running Pindle (starts one if none)\n"
        "  --toggle creator    toggle the creator, as Alt+I does\n"
        "  -h, --help          show this help and exit\n"
        "  --version           show the version and exit\n");
}

QString versionText()
{
    return QStringLiteral("pindle " PINDLE_VERSION "\n");
}

} // namespace pindle::app
