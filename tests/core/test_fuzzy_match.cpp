// Worked examples of the match score, each written as the sum the scoring rule makes of it.

#include "core/FuzzyMatch.h"
#include "core/MatchScores.h"

#include <gtest/gtest.h>

#include <optional>

using pindle::FuzzyMatch::match;
using namespace pindle::MatchScores;

namespace {

// What a query character earns where it lands, by the word bonus of that position.
constexpr double start = startBonus + positionBonus;
constexpr double afterSeparator = afterSeparatorBonus + positionBonus;
constexpr double hump = camelHumpBonus + positionBonus;
constexpr double plain = positionBonus;

// k more query characters, each right after the previous one on a position without a bonus.
constexpr double run(int k)
{
    return k * (plain + consecutiveBonus);
}

constexpr double gap(int skipped)
{
    return -gapPenalty * skipped;
}

constexpr double length(int n)
{
    return -lengthPenalty * n;
}

struct Example
{
    const char *why;
    QString query;
    QString candidate;
    std::optional<double> score; // nothing: no match
    QList<qsizetype> positions = {};
};

QString u(const char16_t *text)
{
    return QString::fromUtf16(text);
}

std::ostream &operator<<(std::ostream &out, const Example &example)
{
    return out << example.why;
}

class MatcherExamples : public testing::TestWithParam<Example>
{};

TEST_P(MatcherExamples, scoresAndPositions)
{
    const Example &example = GetParam();
    const std::optional<pindle::FuzzyMatch::Result> result =
        match(example.query, example.candidate);
    if (!example.score) {
        EXPECT_FALSE(result.has_value()) << "score " << result->score;
        return;
    }
    ASSERT_TRUE(result.has_value());
    EXPECT_NEAR(result->score, *example.score, 1e-9);
    EXPECT_EQ(result->positions, example.positions);
}

const QString newsFeed = QStringLiteral("NewsFeed");

INSTANTIATE_TEST_SUITE_P(
    Documented, MatcherExamples,
    testing::Values(
        Example{"empty query", {}, newsFeed, {}},
        Example{
            "start and camel hump", u(u"nf"), newsFeed, start + hump + gap(3) + length(8), {0, 4}},
        Example{"run from a hump",
                u(u"feed"),
                newsFeed,
                hump + gap(4) + run(3) + length(8),
                {4, 5, 6, 7}},
        Example{"run across a hump",
                u(u"newsf"),
                newsFeed,
                start + run(3) + hump + consecutiveBonus + length(8),
                {0, 1, 2, 3, 4}},
        Example{"after a space",
                u(u"gm"),
                u(u"game mode"),
                start + afterSeparator + gap(4) + length(9),
                {0, 5}},
        Example{"jump into a word over a letter", u(u"ac"), u(u"abc"), {}},
        Example{"second letter mid-word", u(u"fa"), u(u"foo bar"), {}},
        Example{"no hump from capital to small",
                u(u"d"),
                u(u"ABCdef"),
                gap(3) + plain + length(6),
                {3}},
        Example{
            "skipping a digit", u(u"ab"), u(u"a1b"), start + gap(1) + plain + length(3), {0, 2}},
        Example{"a jump may not skip a letter",
                u(u"ab"),
                u(u"a1a1b"),
                gap(2) + plain + gap(1) + plain + length(5),
                {2, 4}},
        Example{"boundary jump takes the earliest source",
                u(u"ab"),
                u(u"-a-a-b"),
                gap(1) + afterSeparator + gap(3) + afterSeparator + length(6),
                {1, 5}},
        Example{"inner jump takes the latest source",
                u(u"1b"),
                u(u"*1*1*b"),
                gap(3) + plain + gap(1) + plain + length(6),
                {3, 5}},
        Example{"best end wins",
                u(u"aa"),
                u(u"a a a"),
                start + gap(1) + afterSeparator + length(5),
                {0, 2}},
        Example{"leftmost of equal ends",
                u(u"a"),
                QStringLiteral("xa") + QString(18, u'b') + QStringLiteral("-a"),
                gap(1) + plain + length(22),
                {1}},
        Example{"emoji with modifier is one character",
                u(u"l"),
                u(u"\U0001F44D\U0001F3FD Likes"),
                gap(2) + afterSeparator + length(7),
                {2}},
        Example{"canonical equivalence",
                u(u"cafe\u0301"),
                u(u"Caf\u00E9 Noir"),
                start + run(3) + length(9),
                {0, 1, 2, 3}}));

INSTANTIATE_TEST_SUITE_P(
    Unicode, MatcherExamples,
    testing::Values(
        // İ lowercases to i + U+0307: one character that equals no plain i.
        Example{"dotted capital I is not i", u(u"i"), u(u"\u0130stanbul"), {}},
        Example{"dotted capital I matches its lowercase",
                u(u"\u0130s"),
                u(u"\u0130stanbul"),
                start + run(1) + length(8),
                {0, 1}},
        // ß is lowercase, and its uppercase SS never enters the match.
        Example{"sharp s", u(u"\u00DF"), u(u"Stra\u00DFe"), gap(4) + plain + length(6), {4}},
        // ǅ is neither lowercase nor uppercase: no hump before it.
        Example{"titlecase digraph makes no hump",
                u(u"\u01C6"),
                u(u"a\u01C5"),
                gap(1) + plain + length(2),
                {1}},
        Example{"decomposed capital after decomposed small is a hump",
                u(u"\u00E9"),
                u(u"ae\u0301E\u0301"),
                gap(2) + hump + length(3),
                {2}},
        Example{"tab is not a separator", u(u"b"), u(u"a\tb"), gap(2) + plain + length(3), {2}},
        Example{"CR LF is one character", u(u"b"), u(u"\r\nb"), gap(1) + plain + length(2), {1}},
        Example{"final sigma stays distinct", u(u"\u03C3"), u(u"\u039F\u03A3"), {}}));

} // namespace
