#include "ui/ResultRowView.h"

#include "core/ShortcutURL.h"
#include "platform/fake/FakePlatform.h"
#include "support/TestSupport.h"

#include <QFont>
#include <QTest>

#include <gtest/gtest.h>

using namespace pindle;
using Range = ui::ResultRowView::TitleRange;

namespace {

QList<Range> ranges(const QString &title, const QList<qsizetype> &positions)
{
    return ui::ResultRowView::matchedRanges(title, positions);
}

// ---- The matched characters of the title

TEST(RowTitle, EachMatchedCharacterIsItsOwnRange)
{
    EXPECT_EQ(ranges(QStringLiteral("NewsFeed"), {0, 4}), (QList<Range>{{0, 1}, {4, 1}}));
    EXPECT_EQ(ranges(QStringLiteral("NewsFeed"), {4, 0}), (QList<Range>{{0, 1}, {4, 1}}));
    EXPECT_EQ(ranges(QStringLiteral("abc"), {0, 1}), (QList<Range>{{0, 1}, {1, 1}}));
    EXPECT_EQ(ranges(QStringLiteral("abcde"), {1, 1}), (QList<Range>{{1, 1}}));
}

TEST(RowTitle, RangesCoverWholeClustersInUtf16Units)
{
    // Thumbs up with a skin tone: one character, four UTF-16 units.
    const QString thumbs =
        QStringLiteral("a") + QString::fromUcs4(U"\U0001F44D\U0001F3FD") + QStringLiteral("b");
    EXPECT_EQ(ranges(thumbs, {1, 2}), (QList<Range>{{1, 4}, {5, 1}}));
    // "Café X" with a combining acute: six characters, seven units.
    const QString cafe = QStringLiteral("Cafe\u0301 X");
    EXPECT_EQ(ranges(cafe, {3, 5}), (QList<Range>{{3, 2}, {6, 1}}));
    // A flag is two regional indicators, one character.
    const QString flag = QString::fromUcs4(U"\U0001F1E9\U0001F1EA!");
    EXPECT_EQ(ranges(flag, {1}), (QList<Range>{{4, 1}}));
}

TEST(RowTitle, PositionsOutsideTheTitleHighlightNothing)
{
    EXPECT_TRUE(ranges(QStringLiteral("abcde"), {10}).isEmpty());
    EXPECT_TRUE(ranges(QStringLiteral("abcde"), {-1, 5}).isEmpty());
    EXPECT_TRUE(ranges(QStringLiteral("abcde"), {}).isEmpty());
    EXPECT_TRUE(ranges(QString(), {0}).isEmpty());
}

TEST(RowTitle, MatchedRangesAreBoldInTheAccentColour)
{
    QPalette palette;
    palette.setColor(QPalette::WindowText, QColor(10, 20, 30));
    palette.setColor(QPalette::Highlight, QColor(200, 40, 90));
    const QList<QTextLayout::FormatRange> formats = ui::ResultRowView::attributedTitle(
        QStringLiteral("NewsFeed"), QList<qsizetype>{0, 4}, palette);
    ASSERT_EQ(formats.size(), 3);
    EXPECT_EQ(formats[0].start, 0);
    EXPECT_EQ(formats[0].length, 8);
    EXPECT_EQ(formats[0].format.foreground().color(), QColor(10, 20, 30));
    EXPECT_LT(formats[0].format.font().weight(), QFont::Bold);
    EXPECT_EQ(formats[0].format.font().pixelSize(), 16);
    for (int i : {1, 2}) {
        EXPECT_EQ(formats[i].format.foreground().color(), QColor(200, 40, 90));
        EXPECT_EQ(formats[i].format.font().weight(), QFont::Bold);
        EXPECT_EQ(formats[i].format.font().pixelSize(), 16);
        EXPECT_EQ(formats[i].length, 1);
    }
    EXPECT_EQ(formats[1].start, 0);
    EXPECT_EQ(formats[2].start, 4);
}

// ---- The row

class RowTest : public testing::Test
{
protected:
    ui::ResultRowView *makeRow(const ScoredFile &result)
    {
        auto *row = new ui::ResultRowView(&window);
        row->setGeometry(0, 6, 660, 50);
        row->configure(result);
        window.resize(660, 62);
        window.show(); // a hidden row lays out its contents only once shown
        return row;
    }

    platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    QWidget window;
};

TEST_F(RowTest, ShowsTitleRangesAndSubtitle)
{
    const QString path = test::shortcutFolder() + QStringLiteral("/News.url");
    test::writeFile(path, "[InternetShortcut]\r\nURL=https://news.example.org/\r\n");
    auto *row = makeRow({{QUrl::fromLocalFile(path), QStringLiteral("News")}, 3, {1, 2}});
    EXPECT_EQ(row->title(), QStringLiteral("News"));
    EXPECT_EQ(row->titleRanges(), (QList<Range>{{1, 1}, {2, 1}}));
    EXPECT_EQ(row->subtitle(), QStringLiteral("https://news.example.org/"));
    EXPECT_FALSE(row->findChild<QWidget *>(QStringLiteral("subtitleLabel"))->isHidden());
}

TEST_F(RowTest, EmptySubtitleHidesTheLineAndKeepsTheTitleAbove)
{
    auto *row = makeRow(
        {{QUrl::fromLocalFile(QStringLiteral("/nowhere/Gone.webloc")), QStringLiteral("Gone")},
         0,
         {}});
    auto *subtitle = row->findChild<QWidget *>(QStringLiteral("subtitleLabel"));
    auto *title = row->findChild<QWidget *>(QStringLiteral("titleLabel"));
    ASSERT_NE(subtitle, nullptr);
    ASSERT_NE(title, nullptr);
    EXPECT_TRUE(subtitle->isHidden());
    EXPECT_EQ(title->geometry().bottom() + 1, 25); // the title ends on the centre line
    EXPECT_GT(title->geometry().top(), 0);
    EXPECT_EQ(title->geometry().left(), 60);
    EXPECT_EQ(title->geometry().right() + 1, 660 - 16);
}

TEST_F(RowTest, SelectionShowsTheHighlight)
{
    auto *row = makeRow(
        {{QUrl::fromLocalFile(QStringLiteral("/nowhere/A.webloc")), QStringLiteral("A")}, 0, {}});
    auto *highlight = row->findChild<QWidget *>(QStringLiteral("highlight"));
    ASSERT_NE(highlight, nullptr);
    EXPECT_FALSE(row->isSelected());
    EXPECT_TRUE(highlight->isHidden());
    row->setSelected(true);
    EXPECT_FALSE(highlight->isHidden());
    EXPECT_EQ(highlight->geometry(), QRect(8, 1, 660 - 16, 48));
    row->setSelected(false);
    EXPECT_TRUE(highlight->isHidden());
}

TEST_F(RowTest, ClickAnywhereRunsOnClick)
{
    auto *row = makeRow(
        {{QUrl::fromLocalFile(QStringLiteral("/nowhere/A.webloc")), QStringLiteral("A")}, 0, {}});
    QTest::mouseClick(row, Qt::LeftButton); // no onClick yet: nothing happens
    int clicks = 0;
    row->onClick = [&clicks] { ++clicks; };
    QTest::mouseClick(row, Qt::LeftButton, {}, QPoint(30, 25));  // on the icon
    QTest::mouseClick(row, Qt::LeftButton, {}, QPoint(100, 15)); // on the title
    QTest::mouseClick(row, Qt::RightButton, {}, QPoint(100, 15));
    EXPECT_EQ(clicks, 2);
}

} // namespace
