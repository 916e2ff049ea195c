#include "PanelTestSupport.h"

#include "ui/CommandField.h"
#include "ui/ResultRowView.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QTest>
#include <QVBoxLayout>

#include <gtest/gtest.h>

using namespace pindle;
using namespace pindle::test;
using platform::Screen;

namespace {

class PanelTest : public testing::Test
{
protected:
    std::unique_ptr<TestMode> makeMode(double headerHeight)
    {
        return std::make_unique<TestMode>(headerHeight, log);
    }

    platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    std::shared_ptr<ModeLog> log = std::make_shared<ModeLog>();
};

QRectF rowsFrame(TestMode &mode, int rows)
{
    mode.results = scoredFiles(rows);
    mode.renderRows(std::nullopt);
    return mode.panel()->frame();
}

// ---- Sizing

TEST_F(PanelTest, SizingFollowsHeaderMessageAndRows)
{
    auto launcher = makeMode(58);
    EXPECT_EQ(launcher->panel()->frame(), QRectF(0, 0, 660, 58));
    launcher->renderRows(std::nullopt);
    EXPECT_EQ(launcher->panel()->frame().height(), 58);
    launcher->renderRows(QStringLiteral("gone"));
    EXPECT_EQ(launcher->panel()->frame().height(), 121);
    EXPECT_EQ(rowsFrame(*launcher, 8).height(), 471);
    EXPECT_EQ(launcher->panel()->geometry().size(), QSize(660, 471));

    auto creator = makeMode(86);
    creator->renderRows(std::nullopt);
    EXPECT_EQ(creator->panel()->frame().height(), 86);
    creator->renderRows(QStringLiteral("gone"));
    EXPECT_EQ(creator->panel()->frame().height(), 149);
    EXPECT_EQ(rowsFrame(*creator, 6).height(), 399);
    // Shrinking back to the header once the list is empty.
    EXPECT_EQ(rowsFrame(*creator, 0).height(), 86);
}

TEST_F(PanelTest, ResizingKeepsTheTopEdge)
{
    auto mode = makeMode(58);
    mode->panel()->setFrame(QRectF(100, 500, 660, 121), false);
    EXPECT_EQ(rowsFrame(*mode, 8), QRectF(100, 150, 660, 471));
    // The single fake screen is 900 high: y-down top = 900 - (150 + 471).
    EXPECT_EQ(mode->panel()->geometry(), QRect(100, 279, 660, 471));
}

TEST_F(PanelTest, ResizingIgnoresChangesOfHalfAPointOrLess)
{
    auto within = makeMode(58.5); // a message asks for 121.5
    within->panel()->setFrame(QRectF(100, 500, 660, 121), false);
    within->renderRows(QStringLiteral("x"));
    EXPECT_EQ(within->panel()->frame(), QRectF(100, 500, 660, 121));

    auto beyond = makeMode(58.6); // a message asks for 121.6
    beyond->panel()->setFrame(QRectF(100, 500, 660, 121), false);
    beyond->renderRows(QStringLiteral("x"));
    const QRectF frame = beyond->panel()->frame();
    EXPECT_DOUBLE_EQ(frame.height(), 121.6);
    EXPECT_DOUBLE_EQ(frame.y() + frame.height(), 621);
}

// ---- Placement

TEST_F(PanelTest, PlacementCentresAndDropsTwentyTwoPercentBelowTheTop)
{
    auto mode = makeMode(58);
    rowsFrame(*mode, 8);
    mode->positionWindow();
    EXPECT_EQ(mode->panel()->frame(), QRectF(390, 212, 660, 471)); // y = 211.5 rounded up
    EXPECT_EQ(mode->panel()->geometry(), QRect(390, 217, 660, 471));
}

TEST_F(PanelTest, PlacementRoundsHalvesAwayFromZeroBelowZero)
{
    const Screen left{QRectF(-1921, 0, 1921, 1080), QRectF(-1921, 0, 1921, 1080)};
    fakes.screens->all = {fakes.screens->all.first(), left};
    fakes.screens->mouse = QPointF(-1000, 500);
    auto mode = makeMode(58);
    mode->positionWindow();
    // x = -1921 + 1261 * 0.5 = -1290.5; y = 1080 - 237.6 - 58 = 784.4.
    EXPECT_EQ(mode->panel()->frame(), QRectF(-1291, 784, 660, 58));
}

TEST_F(PanelTest, ScreenUnderMouseUsesTheUnflippedEdgeRule)
{
    // A left of B; the main screen is a third one so a miss shows.
    const Screen a{QRectF(0, 0, 1440, 900), QRectF(0, 0, 1440, 900)};
    const Screen b{QRectF(1440, 0, 1000, 1000), QRectF(1440, 0, 1000, 1000)};
    const Screen main{QRectF(0, 900, 2000, 1000), QRectF(0, 900, 2000, 1000)};
    fakes.screens->all = {a, b, main};
    fakes.screens->main = main;
    auto mode = makeMode(100);
    auto placedX = [&](QPointF mouse) {
        fakes.screens->mouse = mouse;
        mode->positionWindow();
        return mode->panel()->frame().x();
    };
    EXPECT_EQ(placedX(QPointF(0, 450)), 390);     // left edge of A: inside A
    EXPECT_EQ(placedX(QPointF(1440, 450)), 1610); // right edge of A, left edge of B: B
    EXPECT_EQ(placedX(QPointF(100, 900)), 390);   // top edge of A: inside A
    EXPECT_EQ(placedX(QPointF(100, 0)), 670);     // bottom edge of A: outside, so the main screen
    EXPECT_EQ(placedX(QPointF(5000, 5000)), 670); // on no screen: the main screen
    fakes.screens->main.reset();
    EXPECT_EQ(placedX(QPointF(5000, 5000)), 390); // and without a main screen, the first
}

TEST_F(PanelTest, PlacementWithoutAnyScreenLeavesTheFrame)
{
    fakes.screens->all.clear();
    fakes.screens->main.reset();
    auto mode = makeMode(58);
    mode->positionWindow();
    EXPECT_EQ(mode->panel()->frame(), QRectF(0, 0, 660, 58));
}

TEST_F(PanelTest, PresentingCapturesPlacesActivatesAndShows)
{
    fakes.focus->frontmost = platform::RunningApplication{77, 5};
    auto mode = makeMode(58);
    mode->present();
    EXPECT_TRUE(mode->isVisible());
    EXPECT_EQ(mode->panel()->frame(), QRectF(390, 625, 660, 58));
    EXPECT_EQ(fakes.application->activations, 1);
    ASSERT_EQ(fakes.application->keyWindows.size(), 1);
    EXPECT_EQ(fakes.application->keyWindows.first(), mode->panel()->windowHandle());
    // The capture is what lets hiding with focus restore reach the application of before.
    fakes.focus->frontmost = platform::RunningApplication{4242, 9};
    mode->hide(true);
    EXPECT_FALSE(mode->isVisible());
    ASSERT_EQ(fakes.focus->activated.size(), 1);
    EXPECT_EQ(fakes.focus->activated.first().processIdentifier, 77);
}

// ---- Message rows and rendering

TEST_F(PanelTest, MessageRowShownInsteadOfResults)
{
    auto mode = makeMode(58);
    mode->results = scoredFiles(3);
    mode->renderRows(QStringLiteral("/home/u/conflocal/urls not found"));
    auto *label = mode->panel()->findChild<QLabel *>(QStringLiteral("messageLabel"));
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->text(), QStringLiteral("/home/u/conflocal/urls not found"));
    EXPECT_TRUE(mode->rowViews.isEmpty());
    EXPECT_EQ(mode->panel()->frame().height(), 121);
    EXPECT_FALSE(mode->panel()->findChild<QWidget *>(QStringLiteral("separator"))->isHidden());
    EXPECT_FALSE(mode->panel()->findChild<QWidget *>(QStringLiteral("resultsStack"))->isHidden());
}

TEST_F(PanelTest, EmptyMessageStillShowsOneRow)
{
    auto mode = makeMode(86);
    mode->renderRows(QString());
    auto *label = mode->panel()->findChild<QLabel *>(QStringLiteral("messageLabel"));
    ASSERT_NE(label, nullptr);
    EXPECT_TRUE(label->text().isEmpty());
    EXPECT_EQ(mode->panel()->frame().height(), 149);
}

TEST_F(PanelTest, RenderingRebuildsEveryRowAndKeepsTheMessageLabel)
{
    auto mode = makeMode(58);
    mode->renderRows(QStringLiteral("first"));
    auto *label = mode->panel()->findChild<QLabel *>(QStringLiteral("messageLabel"));
    mode->results = scoredFiles(3);
    mode->selectedIndex = 1;
    mode->renderRows(std::nullopt);
    ASSERT_EQ(mode->rowViews.size(), 3);
    const QList<ui::ResultRowView *> before = mode->rowViews;
    EXPECT_EQ(before[1]->title(), QStringLiteral("Shortcut 1"));
    EXPECT_FALSE(before[0]->isSelected());
    EXPECT_TRUE(before[1]->isSelected());
    QApplication::processEvents(); // lets the dropped message row go

    mode->renderRows(std::nullopt);
    for (qsizetype i = 0; i < 3; ++i)
        EXPECT_NE(mode->rowViews[i], before[i]);
    // The one message label survives the rows that showed it.
    mode->renderRows(QStringLiteral("second"));
    EXPECT_EQ(mode->panel()->findChild<QLabel *>(QStringLiteral("messageLabel")), label);
    EXPECT_EQ(label->text(), QStringLiteral("second"));

    mode->results.clear();
    mode->renderRows(std::nullopt);
    EXPECT_TRUE(mode->panel()->findChild<QWidget *>(QStringLiteral("separator"))->isHidden());
    EXPECT_TRUE(mode->panel()->findChild<QWidget *>(QStringLiteral("resultsStack"))->isHidden());
}

// ---- Selection

std::vector<bool> highlights(const TestMode &mode)
{
    std::vector<bool> selected;
    for (const ui::ResultRowView *row : mode.rowViews)
        selected.push_back(row->isSelected());
    return selected;
}

TEST_F(PanelTest, SelectionSticksAtBothEndsWithoutNoSelection)
{
    auto mode = makeMode(58);
    mode->results = scoredFiles(3);
    mode->selectedIndex = 0;
    mode->renderRows(std::nullopt);
    mode->move(-1, false);
    EXPECT_EQ(mode->selectedIndex, 0);
    mode->move(1, false);
    EXPECT_EQ(highlights(*mode), (std::vector<bool>{false, true, false}));
    mode->move(1, false);
    mode->move(1, false);
    EXPECT_EQ(mode->selectedIndex, 2);
    EXPECT_EQ(highlights(*mode), (std::vector<bool>{false, false, true}));
}

TEST_F(PanelTest, SelectionCanReturnToNone)
{
    auto mode = makeMode(86);
    mode->results = scoredFiles(3);
    mode->selectedIndex = 0;
    mode->renderRows(std::nullopt);
    mode->move(-1, true);
    EXPECT_EQ(mode->selectedIndex, -1);
    EXPECT_EQ(highlights(*mode), (std::vector<bool>{false, false, false}));
    mode->move(-1, true);
    EXPECT_EQ(mode->selectedIndex, -1);
    mode->move(1, true);
    EXPECT_EQ(mode->selectedIndex, 0);
    mode->selectedIndex = 2;
    mode->move(1, true);
    EXPECT_EQ(mode->selectedIndex, 2);
}

TEST_F(PanelTest, SelectionOfAnEmptyListOrOutOfRangeChangesNothing)
{
    auto mode = makeMode(58);
    mode->selectedIndex = -1;
    mode->move(1, false);
    EXPECT_EQ(mode->selectedIndex, -1);
    mode->selectedIndex = 4;
    mode->move(-1, true);
    EXPECT_EQ(mode->selectedIndex, 4);

    mode->results = scoredFiles(2);
    mode->renderRows(std::nullopt);
    mode->updateSelectionHighlight();
    EXPECT_EQ(highlights(*mode), (std::vector<bool>{false, false}));
}

// ---- Clicks and weak closures

TEST_F(PanelTest, ClickingARowReportsItsIndex)
{
    auto mode = makeMode(58);
    mode->results = scoredFiles(5);
    mode->renderRows(std::nullopt);
    mode->present();
    QTest::mouseClick(mode->rowViews[3], Qt::LeftButton, {}, QPoint(500, 40));
    EXPECT_EQ(log->clicks, QList<qsizetype>{3});
    // A press that leaves the row before release is no click.
    QTest::mousePress(mode->rowViews[1], Qt::LeftButton);
    QTest::mouseRelease(mode->rowViews[1], Qt::LeftButton, {}, QPoint(-5, -5));
    EXPECT_EQ(log->clicks, QList<qsizetype>{3});
}

TEST_F(PanelTest, ClosuresDoNothingOnceTheControllerIsGone)
{
    auto mode = makeMode(58);
    mode->results = scoredFiles(5);
    mode->renderRows(std::nullopt);
    const std::function<void()> click = mode->rowViews[3]->onClick;
    const std::function<bool(QKeyEvent *)> keyEquivalent = mode->panel()->onKeyEquivalent;
    const std::function<void()> resignKey = mode->panel()->onResignKey;
    mode->consumeKeyEquivalents = true;
    QKeyEvent copy(QEvent::KeyPress, Qt::Key_C, Qt::ControlModifier, QStringLiteral("c"));
    EXPECT_TRUE(keyEquivalent(&copy));
    EXPECT_EQ(log->keyEquivalents, 1);

    mode.reset();
    click();
    resignKey();
    EXPECT_FALSE(keyEquivalent(&copy));
    EXPECT_TRUE(log->clicks.isEmpty());
    EXPECT_TRUE(log->hides.isEmpty());
    EXPECT_EQ(log->keyEquivalents, 1);
}

// ---- Key equivalents

class KeyEquivalentTest : public PanelTest
{
protected:
    void SetUp() override
    {
        mode = makeMode(58);
        auto *header = mode->panel()->findChild<QWidget *>(QStringLiteral("header"));
        field = new ui::CommandField(header);
        field->setObjectName(QStringLiteral("field"));
        field->setText(QStringLiteral("abc"));
        mode->present();
        mode->panel()->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(mode->panel()));
        field->setFocus();
        field->selectAll();
    }

    std::unique_ptr<TestMode> mode;
    ui::CommandField *field = nullptr;
};

TEST_F(KeyEquivalentTest, ConsumedKeyEquivalentsNeverReachTheField)
{
    mode->consumeKeyEquivalents = true;
    QTest::keyClick(field, Qt::Key_X, Qt::ControlModifier);
    EXPECT_EQ(log->keyEquivalents, 1);
    EXPECT_EQ(field->text(), QStringLiteral("abc"));
    EXPECT_TRUE(log->sawDeleteChord); // the key equivalent is the current event meanwhile
    EXPECT_EQ(ui::CommandField::currentEvent(), nullptr);
}

TEST_F(KeyEquivalentTest, DeclinedKeyEquivalentsGetStandardHandlingOnce)
{
    QTest::keyClick(field, Qt::Key_X, Qt::ControlModifier);
    EXPECT_EQ(log->keyEquivalents, 1);
    EXPECT_EQ(field->text(), QString());                     // cut
    QTest::keyClick(field, Qt::Key_F5, Qt::ControlModifier); // ignored by the field, bubbles up
    EXPECT_EQ(log->keyEquivalents, 2);
    QTest::keyClick(field, Qt::Key_Z, Qt::MetaModifier);
    EXPECT_EQ(log->keyEquivalents, 3);
    QTest::keyClick(field, Qt::Key_Q);
    QTest::keyClick(field, Qt::Key_Q, Qt::ShiftModifier | Qt::AltModifier);
    EXPECT_EQ(log->keyEquivalents, 3);
}

TEST_F(KeyEquivalentTest, FieldCommandsSeeTheirEventAsCurrent)
{
    std::vector<std::pair<ui::TextCommand, bool>> seen;
    field->onCommand = [&](ui::CommandField *, ui::TextCommand command) {
        seen.emplace_back(command, mode->isDeleteChord());
        return command != ui::TextCommand::deleteForward;
    };
    field->setCursorPosition(0);
    QTest::keyClick(field, Qt::Key_Delete); // not consumed: the field deletes forward
    EXPECT_EQ(field->text(), QStringLiteral("bc"));
    QTest::keyClick(field, Qt::Key_Delete, Qt::ControlModifier | Qt::ShiftModifier);
    QTest::keyClick(field, Qt::Key_Return);
    QTest::keyClick(field, Qt::Key_Enter, Qt::KeypadModifier);
    QTest::keyClick(field, Qt::Key_Escape);
    QTest::keyClick(field, Qt::Key_Up);
    QTest::keyClick(field, Qt::Key_Down);
    using ui::TextCommand;
    const std::vector<std::pair<TextCommand, bool>> expected{
        {TextCommand::deleteForward, false},   {TextCommand::deleteForward, true},
        {TextCommand::insertNewline, false},   {TextCommand::insertNewline, false},
        {TextCommand::cancelOperation, false}, {TextCommand::moveUp, false},
        {TextCommand::moveDown, false}};
    EXPECT_EQ(seen, expected);
    EXPECT_FALSE(mode->isDeleteChord()); // no event is being handled now
}

// ---- Losing key status

TEST_F(PanelTest, LosingKeyStatusHidesWithoutRestoringFocus)
{
    fakes.focus->frontmost = platform::RunningApplication{77, 5};
    auto mode = makeMode(58);
    mode->present();
    QEvent deactivate(QEvent::WindowDeactivate);
    QApplication::sendEvent(mode->panel(), &deactivate);
    EXPECT_FALSE(mode->isVisible());
    EXPECT_EQ(log->hides, QList<bool>{false});
    EXPECT_TRUE(fakes.focus->activated.isEmpty());
    // The deactivation Qt reports for a panel already ordered out hides nothing twice.
    QApplication::sendEvent(mode->panel(), &deactivate);
    EXPECT_EQ(log->hides, QList<bool>{false});
}

TEST_F(PanelTest, LosingKeyStatusWhileConfirmingKeepsThePanel)
{
    auto mode = makeMode(58);
    mode->results = scoredFiles(2);
    mode->selectedIndex = 0;
    mode->renderRows(std::nullopt);
    mode->present();
    mode->confirmDeleteSelection(nullptr);
    ASSERT_TRUE(mode->isConfirming());
    auto *sheet = mode->panel()->findChild<QMessageBox *>(QStringLiteral("alert"));
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    QEvent deactivate(QEvent::WindowDeactivate);
    QApplication::sendEvent(mode->panel(), &deactivate);
    EXPECT_TRUE(mode->isVisible());
    EXPECT_TRUE(log->hides.isEmpty());

    sheet->findChild<QAbstractButton *>(QStringLiteral("alertButton1"))->click(); // Cancel
    EXPECT_FALSE(mode->isConfirming());
    QApplication::sendEvent(mode->panel(), &deactivate);
    EXPECT_FALSE(mode->isVisible());
    EXPECT_EQ(log->hides, QList<bool>{false});
}

} // namespace
