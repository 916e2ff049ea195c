#include "ui/ResultRowView.h"

#include "PanelTestSupport.h"
#include "support/TestSupport.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace pindle;
using Range = ui::ResultRowView::TitleRange;

namespace {

QList<Range> ranges(const QString &title, const QList<qsizetype> &positions)
{
    return ui::ResultRowView::matchedRanges(title, positions);
}

TEST(RowTitle, EachMatchedCharacterIsItsOwnRangeInUtf16Units)
{
    EXPECT_EQ(ranges(QStringLiteral("NewsFeed"), {4, 0}), (QList<Range>{{0, 1}, {4, 1}}));
    EXPECT_EQ(ranges(QStringLiteral("abc"), {0, 1, 1}), (QList<Range>{{0, 1}, {1, 1}}));
    // Thumbs up with a skin tone: one character of four units.
    const QString thumbs = u'a' + QString::fromUcs4(U"\U0001F44D\U0001F3FD") + u'b';
    EXPECT_EQ(ranges(thumbs, {1, 2}), (QList<Range>{{1, 4}, {5, 1}}));
    // "Café X" with a combining acute: six characters, seven units.
    EXPECT_EQ(ranges(QStringLiteral("Cafe\u0301 X"), {3, 5}), (QList<Range>{{3, 2}, {6, 1}}));
    EXPECT_TRUE(ranges(QStringLiteral("abcde"), {-1, 5, 10}).isEmpty());
    EXPECT_TRUE(ranges(QStringLiteral("abcde"), {}).isEmpty());
}

TEST(RowTitle, MatchedRangesAreBoldInTheAccentColour)
{
    QPalette palette;
    palette.setColor(QPalette::WindowText, QColor(10, 20, 30));
    palette.setColor(QPalette::Highlight, QColor(200, 40, 90));
    const QList<QTextLayout::FormatRange> formats = ui::ResultRowView::attributedTitle(
        QStringLiteral("NewsFeed"), QList<qsizetype>{0, 4}, palette);
    ASSERT_EQ(formats.size(), 3);
    EXPECT_EQ(std::pair(formats[0].start, formats[0].length), std::pair(0, 8));
    EXPECT_EQ(formats[0].format.foreground().color(), QColor(10, 20, 30));
    EXPECT_LT(formats[0].format.font().weight(), QFont::Bold);
    for (int i : {1, 2}) {
        EXPECT_EQ(formats[i].format.foreground().color(), QColor(200, 40, 90));
        EXPECT_EQ(formats[i].format.font().weight(), QFont::Bold);
        EXPECT_EQ(formats[i].format.font().pixelSize(), 16);
    }
    EXPECT_EQ(std::pair(formats[2].start, formats[2].length), std::pair(4, 1));
}

class RowTest : public testing::Test
{
protected:
    ui::ResultRowView *makeRow(const QString &path, const QList<qsizetype> &positions = {})
    {
        auto *row = new ui::ResultRowView(&window);
        row->setGeometry(0, 6, 660, 50);
        row->configure({{QUrl::fromLocalFile(path), QStringLiteral("News")}, 0, positions});
        window.resize(660, 62);
        window.show(); // a hidden row lays out its contents once shown
        return row;
    }
    QWidget *part(ui::ResultRowView *row, const char *name)
    {
        return row->findChild<QWidget *>(QString::fromLatin1(name));
    }

    test::FreshHome home;
    platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    QWidget window;
};

TEST_F(RowTest, ShowsTitleRangesAndSubtitle)
{
    const QString path = test::shortcutFolder() + QStringLiteral("/News.url");
    test::writeFile(path, "[InternetShortcut]\r\nURL=https://news.example.org/\r\n");
    ui::ResultRowView *row = makeRow(path, {1, 2});
    EXPECT_EQ(row->title(), QStringLiteral("News"));
    EXPECT_EQ(row->titleRanges(), (QList<Range>{{1, 1}, {2, 1}}));
    EXPECT_EQ(row->subtitle(), QStringLiteral("https://news.example.org/"));
    EXPECT_FALSE(part(row, "subtitleLabel")->isHidden());
    // Painting cuts the title to fit, down to nothing but the ellipsis.
    for (int width : {660, 110, 90}) {
        row->resize(width, 50);
        EXPECT_EQ(row->grab().width(), width);
    }
}

TEST_F(RowTest, EmptySubtitleHidesTheLineAndKeepsTheTitleAbove)
{
    ui::ResultRowView *row = makeRow(QStringLiteral("/nowhere/News.webloc"));
    EXPECT_TRUE(part(row, "subtitleLabel")->isHidden());
    const QRect title = part(row, "titleLabel")->geometry();
    EXPECT_EQ(title.bottom() + 1, 25); // ends on the centre line
    EXPECT_EQ(title.left(), 60);
    EXPECT_EQ(title.right() + 1, 660 - 16);
}

TEST_F(RowTest, SelectionShowsTheHighlightAndClicksRunOnClick)
{
    ui::ResultRowView *row = makeRow(QStringLiteral("/nowhere/News.webloc"));
    QWidget *highlight = part(row, "highlight");
    EXPECT_TRUE(highlight->isHidden());
    row->setSelected(true);
    EXPECT_FALSE(highlight->isHidden());
    EXPECT_EQ(highlight->geometry(), QRect(8, 1, 660 - 16, 48));
    row->setSelected(false);
    EXPECT_TRUE(highlight->isHidden());

    QTest::mouseClick(row, Qt::LeftButton); // without onClick nothing happens
    int clicks = 0;
    row->onClick = [&clicks] { ++clicks; };
    QTest::mouseClick(row, Qt::LeftButton, {}, QPoint(30, 25));  // on the icon
    QTest::mouseClick(row, Qt::LeftButton, {}, QPoint(100, 15)); // on the title
    QTest::mouseClick(row, Qt::RightButton, {}, QPoint(100, 15));
    EXPECT_EQ(clicks, 2);
}

} // namespace
