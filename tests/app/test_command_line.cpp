// The command line: what each accepted form asks for, and that anything else is refused with a
// message rather than ignored.

#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace pindle::app;
using Action = CommandLine::Action;

namespace {

std::expected<CommandLine, QString> parse(std::initializer_list<const char *> arguments)
{
    QStringList list;
    for (const char *argument : arguments)
        list.append(QString::fromUtf8(argument));
    return parseCommandLine(list);
}

TEST(CommandLineParsing, AcceptsTheToggleInBothSpellingsAndNothingAtAll)
{
    EXPECT_EQ(parse({}), CommandLine{});
    EXPECT_EQ(parse({"--toggle", "creator"}),
              (CommandLine{.action = Action::toggle, .panel = Panel::creator}));
    EXPECT_EQ(parse({"--toggle=launcher"}),
              (CommandLine{.action = Action::toggle, .panel = Panel::launcher}));
}

TEST(CommandLineParsing, HelpAndVersionWinOverAnythingElseGiven)
{
    EXPECT_EQ(parse({"--toggle", "launcher", "--help"})->action, Action::help);
    EXPECT_EQ(parse({"-h", "--bogus"})->action, Action::help);
    EXPECT_EQ(parse({"--toggle", "nonsense", "--version"})->action, Action::version);
    EXPECT_TRUE(versionText().startsWith(QStringLiteral("pindle ")));
    EXPECT_TRUE(usageText().contains(QStringLiteral("--toggle launcher|creator")));
}

TEST(CommandLineParsing, RefusesWhatItDoesNotKnowNamingIt)
{
    const auto unknown = parse({"--verbose"});
    ASSERT_FALSE(unknown);
    EXPECT_TRUE(unknown.error().contains(QStringLiteral("--verbose")));

    const auto badPanel = parse({"--toggle", "Launcher"});
    ASSERT_FALSE(badPanel);
    EXPECT_TRUE(badPanel.error().contains(QStringLiteral("Launcher")));

    EXPECT_FALSE(parse({"--toggle"}));
    EXPECT_FALSE(parse({"--toggle="}));
    EXPECT_FALSE(parse({"--toggle", "launcher", "--toggle", "creator"}));
    EXPECT_FALSE(parse({"launcher"}));
    for (const auto &refused : {parse({"--toggle"}), parse({"--verbose"})})
        EXPECT_FALSE(refused.error().contains(QLatin1Char('\n')));
}

} // namespace
