// The command line: what each accepted form asks for, and that anything else is refused with a
// message rather than ignored.

#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace pindle::app;
using Action = CommandLine::Action;

namespace {

TEST(CommandLineParsing, AcceptsTheToggleInBothSpellingsAndHelpOrVersionOverAnythingElse)
{
    EXPECT_EQ(parseCommandLine({}), CommandLine{});
    EXPECT_EQ(parseCommandLine({u"--toggle"_qs, u"creator"_qs}),
              (CommandLine{.action = Action::toggle, .panel = Panel::creator}));
    EXPECT_EQ(parseCommandLine({u"--toggle=launcher"_qs}),
              (CommandLine{.action = Action::toggle, .panel = Panel::launcher}));
    EXPECT_EQ(parseCommandLine({u"--toggle"_qs, u"launcher"_qs, u"--help"_qs})->action,
              Action::help);
    EXPECT_EQ(parseCommandLine({u"-h"_qs, u"--bogus"_qs})->action, Action::help);
    EXPECT_EQ(parseCommandLine({u"--toggle"_qs, u"nonsense"_qs, u"--version"_qs})->action,
              Action::version);
}

TEST(CommandLineParsing, RefusesWhatItDoesNotKnowNamingItInOneLine)
{
    const QList<std::pair<QStringList, QString>> cases = {
        {{u"--verbose"_qs}, u"--verbose"_qs},
        {{u"--toggle"_qs, u"Launcher"_qs}, u"Launcher"_qs},
        {{u"--toggle"_qs}, u"--toggle"_qs},
        {{u"--toggle="_qs}, u"launcher or creator"_qs},
        {{u"--toggle"_qs, u"launcher"_qs, u"--toggle"_qs, u"creator"_qs}, u"--toggle"_qs},
        {{u"launcher"_qs}, u"launcher"_qs}};
    for (const auto &[arguments, named] : cases) {
        const auto refused = parseCommandLine(arguments);
        ASSERT_FALSE(refused) << named.toStdString();
        EXPECT_TRUE(refused.error().contains(named)) << refused.error().toStdString();
        EXPECT_FALSE(refused.error().contains(u'\n')) << named.toStdString();
    }
}

} // namespace
