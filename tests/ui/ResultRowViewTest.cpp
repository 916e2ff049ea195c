#include "ui/ResultRowView.h"

#include <gtest/gtest.h>

using namespace pindle;
using Range = ui::ResultRowView::TitleRange;

namespace {

TEST(RowTitle, EachMatchedCharacterIsItsOwnRangeInUtf16Units)
{
    const auto ranges = ui::ResultRowView::matchedRanges;
    EXPECT_EQ(ranges(QStringLiteral("NewsFeed"), {4, 0}), (QList<Range>{{0, 1}, {4, 1}}));
    EXPECT_EQ(ranges(QStringLiteral("abc"), {0, 1, 1}), (QList<Range>{{0, 1}, {1, 1}}));
    // Thumbs up with a skin tone: one character of four units.
    const QString thumbs = u'a' + QString::fromUcs4(U"\U0001F44D\U0001F3FD") + u'b';
    EXPECT_EQ(ranges(thumbs, {1, 2}), (QList<Range>{{1, 4}, {5, 1}}));
    // "Café X" with a combining acute: six characters, seven units.
    EXPECT_EQ(ranges(QStringLiteral("Cafe\u0301 X"), {3, 5}), (QList<Range>{{3, 2}, {6, 1}}));
    // A Korean syllable spelt as three jamo is one character.
    EXPECT_EQ(ranges(QStringLiteral("\u1112\u1161\u11AB!"), {1}), (QList<Range>{{3, 1}}));
    EXPECT_TRUE(ranges(QStringLiteral("abcde"), {-1, 5, 10}).isEmpty());
    EXPECT_TRUE(ranges(QString(), {0}).isEmpty());
}

} // namespace
