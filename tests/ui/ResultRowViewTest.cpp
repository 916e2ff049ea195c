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
    // A Korean syllable spelt as three jamo is one character.
    EXPECT_EQ(ranges(QStringLiteral("\u1112\u1161\u11AB!"), {1}), (QList<Range>{{3, 1}}));
    EXPECT_TRUE(ranges(QStringLiteral("abcde"), {-1, 5, 10}).isEmpty());
    EXPECT_TRUE(ranges(QString(), {0}).isEmpty());
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
        window.show();
        return row;
    }

    platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    QWidget window;
};

TEST_F(RowTest, ShowsTheMatchedTitleAndTheTargetUnderIt)
{
    const QString path = test::shortcutFolder() + QStringLiteral("/News.url");
    test::writeFile(path, "[InternetShortcut]\r\nURL=https://news.example.org/\r\n");
    ui::ResultRowView *row = makeRow(path, {1, 2});
    EXPECT_EQ(row->title(), QStringLiteral("News"));
    EXPECT_EQ(row->titleRanges(), (QList<Range>{{1, 1}, {2, 1}}));
    EXPECT_EQ(row->subtitle(), QStringLiteral("https://news.example.org/"));
    auto *subtitle = row->findChild<QWidget *>(QStringLiteral("subtitleLabel"));
    EXPECT_FALSE(subtitle->isHidden());
    EXPECT_TRUE(makeRow(QStringLiteral("/nowhere/News.webloc"))
                    ->findChild<QWidget *>(QStringLiteral("subtitleLabel"))
                    ->isHidden());
}

} // namespace
