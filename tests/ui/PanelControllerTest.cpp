#include "PanelTestSupport.h"

#include "ui/Alert.h"
#include "ui/ResultRowView.h"

#include <QApplication>
#include <QLabel>
#include <QTest>

#include <gtest/gtest.h>

using namespace pindle;
using namespace pindle::test;
using platform::Screen;

namespace {

class PanelTest : public testing::Test
{
protected:
    template <typename T = QWidget>
    T *child(const char *name)
    {
        return mode->panel()->findChild<T *>(QString::fromLatin1(name));
    }
    QRectF render(int rows, qsizetype selected = -1)
    {
        mode->results = scoredFiles(rows);
        mode->selectedIndex = selected;
        mode->renderRows(std::nullopt);
        return mode->panel()->frame();
    }
    QRectF render(const QString &message)
    {
        mode->renderRows(message);
        return mode->panel()->frame();
    }

    platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    std::shared_ptr<ModeLog> log = std::make_shared<ModeLog>();
    std::unique_ptr<TestMode> mode = std::make_unique<TestMode>(58, log);
};

TEST_F(PanelTest, HeightFollowsHeaderMessageAndRowsKeepingTheTopEdge)
{
    EXPECT_EQ(mode->panel()->frame(), QRectF(0, 0, 660, 58));
    EXPECT_EQ(render(QString()).height(), 121); // an empty message is still a row
    mode->panel()->setFrame(QRectF(100, 500, 660, 121), false);
    EXPECT_EQ(render(8), QRectF(100, 150, 660, 471));
    EXPECT_EQ(mode->panel()->geometry(), QRect(100, 279, 660, 471)); // y down on a 900 screen
    mode = std::make_unique<TestMode>(86, log);
    EXPECT_EQ(render(QStringLiteral("x")).height(), 149);
    EXPECT_EQ(render(6).height(), 399);
    EXPECT_EQ(render(0).height(), 86);
}

TEST_F(PanelTest, ResizingIgnoresHalfAPointOrLess)
{
    mode = std::make_unique<TestMode>(58.5, log); // a message asks for 121.5
    mode->panel()->setFrame(QRectF(100, 500, 660, 121), false);
    EXPECT_EQ(render(QStringLiteral("x")), QRectF(100, 500, 660, 121));
    mode = std::make_unique<TestMode>(58.6, log); // and here for 121.6
    mode->panel()->setFrame(QRectF(100, 500, 660, 121), false);
    const QRectF frame = render(QStringLiteral("x"));
    EXPECT_DOUBLE_EQ(frame.height(), 121.6);
    EXPECT_DOUBLE_EQ(frame.y() + frame.height(), 621);
}

TEST_F(PanelTest, PlacementCentresBelowTheTopAndRoundsHalvesAwayFromZero)
{
    render(8);
    mode->positionWindow();
    EXPECT_EQ(mode->panel()->frame(), QRectF(390, 212, 660, 471)); // y = 211.5
    EXPECT_EQ(mode->panel()->geometry(), QRect(390, 217, 660, 471));

    fakes.screens->all.append({QRectF(-1921, 0, 1921, 1080), QRectF(-1921, 0, 1921, 1080)});
    fakes.screens->mouse = QPointF(-1000, 500);
    render(0);
    mode->positionWindow();
    // x = -1921 + 1261 * 0.5 = -1290.5; y = 1080 - 237.6 - 58 = 784.4.
    EXPECT_EQ(mode->panel()->frame(), QRectF(-1291, 784, 660, 58));
}

TEST_F(PanelTest, ScreenUnderMouseUsesTheUnflippedEdgeRule)
{
    // A left of B; the main screen is a third one so that a miss shows.
    const Screen a{QRectF(0, 0, 1440, 900), QRectF(0, 0, 1440, 900)};
    const Screen b{QRectF(1440, 0, 1000, 1000), QRectF(1440, 0, 1000, 1000)};
    const Screen main{QRectF(0, 900, 2000, 1000), QRectF(0, 900, 2000, 1000)};
    fakes.screens->all = {a, b, main};
    fakes.screens->main = main;
    auto placedX = [&](QPointF mouse) {
        fakes.screens->mouse = mouse;
        mode->positionWindow();
        return mode->panel()->frame().x();
    };
    EXPECT_EQ(placedX(QPointF(0, 450)), 390);     // left edge of A: inside A
    EXPECT_EQ(placedX(QPointF(1440, 450)), 1610); // right edge of A is outside: B
    EXPECT_EQ(placedX(QPointF(100, 900)), 390);   // top edge of A: inside A
    EXPECT_EQ(placedX(QPointF(100, 0)), 670);     // bottom edge: outside, so the main screen
    fakes.screens->main.reset();
    EXPECT_EQ(placedX(QPointF(5000, 5000)), 390); // no main screen: the first one
    fakes.screens->all.clear();
    EXPECT_EQ(placedX(QPointF(0, 450)), 390); // no screen at all: left where it was
}

TEST_F(PanelTest, TheMessageLabelOutlivesTheRowsThatReplaceIt)
{
    render(QStringLiteral("x"));
    auto *label = child<QLabel>("messageLabel");
    ASSERT_NE(label, nullptr);
    render(3, 1);
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // drops the message row
    EXPECT_EQ(mode->rowViews.value(1)->title(), QStringLiteral("Shortcut 1"));
    EXPECT_TRUE(mode->rowViews.value(1)->isSelected());
    render(QStringLiteral("again"));
    EXPECT_EQ(child<QLabel>("messageLabel"), label);
    EXPECT_EQ(label->text(), QStringLiteral("again"));
    EXPECT_TRUE(mode->rowViews.isEmpty());
    EXPECT_FALSE(child("separator")->isHidden());
    render(0);
    EXPECT_TRUE(child("separator")->isHidden());
    EXPECT_TRUE(child("resultsStack")->isHidden());
}

TEST_F(PanelTest, ClicksReachTheModeOnlyWhileTheControllerLives)
{
    render(5);
    mode->present();
    QTest::mouseClick(mode->rowViews[3], Qt::LeftButton, {}, QPoint(500, 40));
    QTest::mouseClick(mode->rowViews[2], Qt::RightButton);
    // A press that leaves the row before its release is no click.
    QTest::mousePress(mode->rowViews[1], Qt::LeftButton);
    QTest::mouseRelease(mode->rowViews[1], Qt::LeftButton, {}, QPoint(-5, -5));
    EXPECT_EQ(log->clicks, QList<qsizetype>{3});
    const std::function<void()> click = mode->rowViews[3]->onClick;
    const std::function<void()> resignKey = mode->panel()->onResignKey;

    mode.reset();
    click();
    resignKey();
    EXPECT_EQ(log->clicks, QList<qsizetype>{3});
    EXPECT_TRUE(log->hides.isEmpty());
}

TEST_F(PanelTest, LosingKeyStatusHidesWithoutRestoringFocusUnlessConfirming)
{
    fakes.focus->frontmost = platform::RunningApplication{77, 5};
    render(2, 0);
    mode->present();
    QEvent deactivate(QEvent::WindowDeactivate);
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn + 1); // Cancel, once the loop runs
    mode->confirmDeleteSelection(nullptr);
    QApplication::sendEvent(mode->panel(), &deactivate);
    EXPECT_TRUE(mode->isVisible());
    EXPECT_TRUE(log->hides.isEmpty());

    QTRY_VERIFY(!mode->isConfirming());
    QApplication::sendEvent(mode->panel(), &deactivate);
    EXPECT_FALSE(mode->isVisible());
    EXPECT_TRUE(fakes.focus->activated.isEmpty());
    // Qt also reports the deactivation of a panel already ordered out: nothing hides twice.
    QApplication::sendEvent(mode->panel(), &deactivate);
    EXPECT_EQ(log->hides, QList<bool>{false});
}

} // namespace
