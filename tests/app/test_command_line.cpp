// The command line: what each accepted form asks for, and that anything else is refused with a
// message rather than ignored.

#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

using namespace pindle::app;
using Action = CommandLine::Action;

namespace {

TEST(CommandLineParsing, AcceptsTheToggleInBothSpellingsAndHelpOrVersionOverAnythingElse)
{
    EXPECT_EQ(parseCommandLine({}), CommandLine{});
    EXPECT_EQ(parseCommandLine({u"--toggle"_s, u"creator"_s}),
              (CommandLine{.action = Action::toggle, .panel = Panel::creator}));
    EXPECT_EQ(parseCommandLine({u"--toggle=launcher"_s}),
              (CommandLine{.action = Action::toggle, .panel = Panel::launcher}));
    EXPECT_EQ(parseCommandLine({u"--toggle"_s, u"launcher"_s, u"--help"_s})->action, Action::help);
    EXPECT_EQ(parseCommandLine({u"-h"_s, u"--bogus"_s})->action, Action::help);
    EXPECT_EQ(parseCommandLine({u"--toggle"_s, u"nonsense"_s, u"--version"_s})->action,
              Action::version);
}

TEST(CommandLineParsing, RefusesWhatItDoesNotKnowNamingItInOneLine)
{
    const QList<std::pair<QStringList, QString>> cases = {
        {{u"--verbose"_s}, u"--verbose"_s},
        {{u"--toggle"_s, u"Launcher"_s}, u"Launcher"_s},
        {{u"--toggle"_s}, u"--toggle"_s},
        {{u"--toggle="_s}, u"launcher or creator"_s},
        {{u"--toggle"_s, u"launcher"_s, u"--toggle"_s, u"creator"_s}, u"--toggle"_s},
        {{u"launcher"_s}, u"launcher"_s}};
    for (const auto &[arguments, named] : cases) {
        const auto refused = parseCommandLine(arguments);
        ASSERT_FALSE(refused) << named.toStdString();
        EXPECT_TRUE(refused.error().contains(named)) << refused.error().toStdString();
        EXPECT_FALSE(refused.error().contains(u'\n')) << named.toStdString();
    }
}

} // namespace
