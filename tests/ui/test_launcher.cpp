// The launcher driven through its real search field against the fake desktop: the chords, keys
// typed while the folder is still being read, clicks, deletion answers, a missing folder and the
// screen edges, none of which the end-to-end scripts can press or provoke.

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "platform/fake/FakePlatform.h"
#include "support/TestSupport.h"
#include "ui/Alert.h"
#include "ui/LauncherController.h"
#include "ui/ResultRowView.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace pindle;
using pindle::test::writeWebloc;

namespace {

constexpr int deleteAnswer = ui::Alert::firstButtonReturn;
constexpr int cancelAnswer = ui::Alert::firstButtonReturn + 1;

class Launcher : public testing::Test
{
protected:
    void SetUp() override
    {
        fakes = platform::fake::installFakePlatform();
        writeWebloc(u"News"_s, u"https://news.example.com/"_s);
        writeWebloc(u"Netflix"_s, u"https://www.netflix.com/"_s);
        writeWebloc(u"Nightly Forecast"_s, u"https://weather.example/"_s);
        writeWebloc(u"Docs"_s, u"https://docs.example.com/"_s);
        brokenPath = test::inFolder(u"Broken.webloc"_s);
        test::writeFile(brokenPath, "not a property list");

        auto *header = new QWidget;
        launcher = std::make_unique<ui::LauncherController>(header, 58);
        launcher->buildField(header);
        launcher->show();
    }

    ui::CommandField *field() const { return launcher->textField(); }
    void type(const QString &text) { QTest::keyClicks(field(), text); }
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(field(), key, modifiers);
    }
    void deactivate()
    {
        QEvent event(QEvent::WindowDeactivate);
        QApplication::sendEvent(launcher->panel(), &event);
    }
    // Shows the panel again with the folder read beside the interface, one shortcut more in it.
    void showWhileScanning()
    {
        launcher->hide(false);
        launcher->setMostBytesScannedInPlace(0);
        newsletterPath = writeWebloc(u"Newsletter"_s, u"https://letter.example/"_s);
        launcher->show();
        ASSERT_TRUE(launcher->isAwaitingFiles());
    }

    platform::fake::FakePlatform fakes;
    std::unique_ptr<ui::LauncherController> launcher;
    QString brokenPath;
    QString newsletterPath;
};

TEST_F(Launcher, OnlyTheBoundChordsActAndNoChordTypesItsLetter)
{
    const QList<Qt::KeyboardModifiers> unbound = {
        Qt::MetaModifier | Qt::ShiftModifier, Qt::ControlModifier | Qt::ShiftModifier,
        Qt::ControlModifier | Qt::AltModifier, Qt::MetaModifier | Qt::AltModifier};
    // A blank query lists nothing: no key acts on a row, and Super+C types no "c".
    type(u"   "_s);
    key(Qt::Key_Down);
    key(Qt::Key_Return);
    key(Qt::Key_C, Qt::MetaModifier);
    key(Qt::Key_Delete, Qt::ControlModifier);
    for (const Qt::Key letter : {Qt::Key_C, Qt::Key_X, Qt::Key_Q}) {
        for (const Qt::KeyboardModifiers chord : unbound)
            key(letter, chord);
    }
    EXPECT_EQ(field()->text(), u"   "_s);
    EXPECT_TRUE(fakes.workspace->opened.isEmpty());
    EXPECT_FALSE(launcher->isConfirming());
    EXPECT_TRUE(launcher->isVisible());

    type(u"docs"_s);
    for (const Qt::KeyboardModifiers chord : unbound)
        key(Qt::Key_C, chord);
    EXPECT_FALSE(fakes.pasteboard->text.has_value());
    // The field's own editing chords still work.
    key(Qt::Key_A, Qt::ControlModifier);
    key(Qt::Key_X, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), QString());
    key(Qt::Key_V, Qt::ControlModifier);
    key(Qt::Key_C, Qt::MetaModifier);
    EXPECT_EQ(fakes.pasteboard->text, u"https://docs.example.com/"_s);
    EXPECT_FALSE(launcher->isVisible());

    // A shortcut whose target can't be read gives its own path.
    launcher->show();
    type(u"broken"_s);
    key(Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(fakes.pasteboard->text, brokenPath);
}

TEST_F(Launcher, KeypadEnterAndClicksOpenTheirRowWhileThePanelIsStillShown)
{
    // Qt on Wayland asks the focused window for an activation token while opening: a panel
    // already hidden has no surface left to ask with (Qt 6.8 crashes there).
    QList<bool> shownWhileOpening;
    fakes.workspace->onOpen = [&] { shownWhileOpening.append(launcher->isVisible()); };
    type(u"n"_s);
    const QList<ScoredFile> rows = launcher->results;
    ASSERT_GE(rows.size(), 3);
    // The selection stops at both ends.
    key(Qt::Key_Up);
    EXPECT_EQ(launcher->selectedIndex, 0);
    for (qsizetype i = 0; i < rows.size() + 2; ++i)
        key(Qt::Key_Down);
    key(Qt::Key_Up);
    key(Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_EQ(fakes.workspace->opened, QList<QUrl>{rows[rows.size() - 2].file.url});

    launcher->show();
    type(u"n"_s);
    QTest::mouseClick(launcher->rowViews[2], Qt::LeftButton, {}, QPoint(30, 25)); // on the icon
    EXPECT_EQ(fakes.workspace->opened.value(1), rows[2].file.url);
    EXPECT_EQ(shownWhileOpening, (QList<bool>{true, true}));
    EXPECT_FALSE(launcher->isVisible());
    EXPECT_TRUE(fakes.focus->activated.isEmpty());
}

TEST_F(Launcher, RowsBoldTheMatchedCharactersOverTheTarget)
{
    type(u"ocs"_s);
    ASSERT_FALSE(launcher->rowViews.isEmpty());
    const ui::ResultRowView *row = launcher->rowViews[0];
    EXPECT_EQ(row->title(), u"Docs"_s);
    EXPECT_EQ(row->titleRanges(), (QList<ui::ResultRowView::TitleRange>{{1, 1}, {2, 1}, {3, 1}}));
    EXPECT_EQ(row->subtitle(), u"https://docs.example.com/"_s);
}

TEST_F(Launcher, DeleteEditsTheQueryUnlessControlIsHeldOnARow)
{
    type(u"docs"_s);
    key(Qt::Key_Home);
    key(Qt::Key_Delete);
    EXPECT_EQ(field()->text(), u"ocs"_s);
    // With Control but no row to delete, one character goes, not a word, and the list follows.
    type(u"x "_s);
    key(Qt::Key_Home);
    ASSERT_EQ(launcher->selectedIndex, -1);
    key(Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), u" ocs"_s);
    ASSERT_EQ(launcher->selectedIndex, 0);
    EXPECT_FALSE(launcher->isConfirming());

    // On a row, Shift held too, it asks; the field keeps its text.
    ui::Alert::setNextAnswer(deleteAnswer);
    key(Qt::Key_Delete, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_TRUE(launcher->isConfirming());
    EXPECT_EQ(field()->text(), u" ocs"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.workspace->trashed.isEmpty(); }, 2000));
    EXPECT_EQ(fakes.workspace->trashed, QStringList{test::inFolder(u"Docs.webloc"_s)});
}

TEST_F(Launcher, DeletionAnswersKeepThePanelAndLeaveTheNearestRowSelected)
{
    type(u"n"_s);
    const QList<ScoredFile> rows = launcher->results;
    ASSERT_GE(rows.size(), 3);
    const auto deleteSelected = [&](int answer) {
        ui::Alert::setNextAnswer(answer);
        key(Qt::Key_Delete, Qt::ControlModifier);
        ASSERT_TRUE(launcher->isConfirming());
        deactivate(); // the sheet taking the focus
        QTRY_VERIFY(!launcher->isConfirming());
        EXPECT_TRUE(launcher->isVisible());
    };
    deleteSelected(cancelAnswer);
    fakes.workspace->failTrash = true;
    deleteSelected(deleteAnswer);
    EXPECT_EQ(fakes.workspace->beeps, 1);
    EXPECT_EQ(launcher->results.size(), rows.size());
    EXPECT_TRUE(fakes.workspace->trashed.isEmpty());

    fakes.workspace->failTrash = false;
    for (qsizetype i = 0; i < rows.size(); ++i)
        key(Qt::Key_Down);
    deleteSelected(deleteAnswer);
    EXPECT_EQ(launcher->selectedIndex, rows.size() - 2); // after the last, the new last
    for (qsizetype i = 0; i < rows.size(); ++i)
        key(Qt::Key_Up);
    deleteSelected(deleteAnswer);
    EXPECT_EQ(fakes.workspace->trashed,
              (QStringList{rows.last().file.url.toLocalFile(), rows[0].file.url.toLocalFile()}));
    EXPECT_EQ(launcher->results.value(launcher->selectedIndex).file.url, rows[1].file.url);

    // With no sheet up, losing the focus hides the panel and leaves the focus where it went.
    deactivate();
    EXPECT_FALSE(launcher->isVisible());
    EXPECT_TRUE(fakes.focus->activated.isEmpty());
}

TEST_F(Launcher, MissingFolderShowsItsPathAsNotFoundWhileAQueryIsTyped)
{
    ASSERT_TRUE(QDir(test::shortcutFolder()).removeRecursively());
    type(u"ne"_s);
    EXPECT_TRUE(launcher->rowViews.isEmpty());
    auto *message = launcher->panel()->findChild<QLabel *>(u"messageLabel"_s);
    ASSERT_NE(message, nullptr);
    EXPECT_TRUE(message->isVisibleTo(launcher->panel()));
    EXPECT_EQ(message->text(), test::shortcutFolder() + u" not found"_s);
    key(Qt::Key_Backspace);
    key(Qt::Key_Backspace);
    EXPECT_FALSE(message->isVisibleTo(launcher->panel()));
}

// The screen under the mouse takes its left and top edges and leaves its right and bottom ones
// (y grows upwards); with none under it the main screen, else the first, else none at all.
TEST_F(Launcher, ShowsOnTheScreenUnderTheMouseCountingOnlyItsLeftAndTopEdges)
{
    const platform::Screen a{QRectF(0, 0, 1440, 900), QRectF(0, 0, 1440, 900)};
    const platform::Screen b{QRectF(1440, 0, 1000, 1000), QRectF(1440, 0, 1000, 1000)};
    const platform::Screen main{QRectF(0, 900, 2000, 1000), QRectF(0, 900, 2000, 1000)};
    fakes.screens->all = {a, b, main};
    fakes.screens->main = main;
    const auto shownAtX = [&](QPointF mouse) {
        fakes.screens->mouse = mouse;
        launcher->show();
        return launcher->panel()->frame().x();
    };
    EXPECT_EQ(shownAtX(QPointF(0, 450)), 390);
    EXPECT_EQ(shownAtX(QPointF(1440, 450)), 1610);
    EXPECT_EQ(shownAtX(QPointF(100, 900)), 390);
    EXPECT_EQ(shownAtX(QPointF(100, 0)), 670);
    fakes.screens->main.reset();
    EXPECT_EQ(shownAtX(QPointF(5000, 5000)), 390);
    fakes.screens->all.clear();
    EXPECT_EQ(shownAtX(QPointF(0, 450)), 390);
}

TEST_F(Launcher, KeysTypedWhileTheFolderIsReadActInOrderOnTheNewList)
{
    showWhileScanning();
    type(u"ne"_s);
    key(Qt::Key_Down);
    key(Qt::Key_C, Qt::ControlModifier);
    type(u"x"_s);
    EXPECT_EQ(field()->text(), u"ne"_s);
    EXPECT_FALSE(fakes.pasteboard->text.has_value());

    launcher->waitForFiles();
    const QList<ScoredFile> expected = FileIndex::search(u"ne"_s, FileIndex::scan(), 8);
    ASSERT_GE(expected.size(), 2);
    EXPECT_EQ(fakes.pasteboard->text, ShortcutURL::target(expected[1].file.url));
    EXPECT_FALSE(launcher->isVisible());
    // The copy hid the panel: the key after it found no field to type into.
    EXPECT_TRUE(field()->text().isEmpty());
}

TEST_F(Launcher, EscapeDropsTheKeysHeldForTheListAndControlDeleteWaitsForIt)
{
    showWhileScanning();
    type(u"newsl"_s);
    key(Qt::Key_Return);
    key(Qt::Key_Escape);
    EXPECT_TRUE(field()->text().isEmpty());
    type(u"newsl"_s);
    ui::Alert::setNextAnswer(deleteAnswer);
    key(Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_FALSE(launcher->isConfirming());

    launcher->waitForFiles();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.workspace->trashed.isEmpty(); }, 2000));
    EXPECT_EQ(fakes.workspace->trashed, QStringList{newsletterPath});
    EXPECT_TRUE(fakes.workspace->opened.isEmpty());
    EXPECT_TRUE(launcher->isVisible());
}

} // namespace
