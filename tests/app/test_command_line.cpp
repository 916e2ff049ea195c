// The forms the end-to-end scripts don't use: the toggle's = spelling, help or version winning over
// anything else, and everything refused with a one-line message naming what is wrong.

#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace pindle::app;

namespace {

TEST(CommandLineParsing, AcceptsTheToggleAsOneWordAndRefusesWhatItDoesNotKnowInOneLine)
{
    EXPECT_EQ(parseCommandLine({u"--toggle=launcher"_s}),
              (CommandLine{.action = CommandLine::Action::toggle, .panel = Panel::launcher}));
    EXPECT_EQ(parseCommandLine({u"--toggle"_s, u"nonsense"_s, u"--version"_s})->action,
              CommandLine::Action::version);
    const QList<std::pair<QStringList, QString>> refusals = {
        {{u"--toggle"_s, u"Launcher"_s}, u"Launcher"_s},
        {{u"--toggle"_s}, u"--toggle"_s},
        {{u"--toggle="_s}, u"launcher or creator"_s},
        {{u"--toggle"_s, u"launcher"_s, u"--toggle"_s, u"creator"_s}, u"--toggle"_s},
        {{u"launcher"_s}, u"launcher"_s}};
    for (const auto &[arguments, named] : refusals) {
        const auto refused = parseCommandLine(arguments);
        ASSERT_FALSE(refused) << named.toStdString();
        EXPECT_TRUE(refused.error().contains(named)) << refused.error().toStdString();
        EXPECT_FALSE(refused.error().contains(u'\n')) << named.toStdString();
    }
}

} // namespace
