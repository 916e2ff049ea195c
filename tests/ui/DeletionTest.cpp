#include "PanelTestSupport.h"

#include "ui/Alert.h"
#include "ui/CommandField.h"
#include "ui/ResultRowView.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

using namespace pindle;
using namespace pindle::test;

namespace {

constexpr int deleteAnswer = ui::Alert::firstButtonReturn;
constexpr int cancelAnswer = ui::Alert::firstButtonReturn + 1;

class DeletionTest : public testing::Test
{
protected:
    // A shown panel listing count shortcuts, row `selected` selected, the focus in a second
    // field so that the focus coming back to `field` shows.
    void open(int count, qsizetype selected)
    {
        auto *header = mode->panel()->findChild<QWidget *>(QStringLiteral("header"));
        field = new ui::CommandField(header);
        other = new ui::CommandField(header);
        for (const ScoredFile &result : scoredFiles(count))
            mode->files.append(result.file);
        mode->updateResults();
        mode->selectedIndex = selected;
        mode->updateSelectionHighlight();
        mode->present();
        mode->panel()->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(mode->panel()));
        other->setFocus();
    }

    // The answer arrives from the event loop, after the confirmation has started.
    void confirmAnswering(int answer)
    {
        ui::Alert::setNextAnswer(answer);
        mode->confirmDeleteSelection(field);
        EXPECT_TRUE(mode->isConfirming());
        QTRY_VERIFY(!mode->isConfirming());
    }

    // The rows' shortcut numbers, the selected one in brackets.
    QString shown() const
    {
        QString rows;
        for (const ui::ResultRowView *row : mode->rowViews)
            rows += row->isSelected() ? u'[' + row->title().last(1) + u']' : row->title().last(1);
        return rows;
    }

    static QString pathOf(int shortcut)
    {
        return fileNamed(QStringLiteral("Shortcut %1").arg(shortcut)).url.toLocalFile();
    }

    platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    std::shared_ptr<ModeLog> log = std::make_shared<ModeLog>();
    std::unique_ptr<TestMode> mode = std::make_unique<TestMode>(58, log);
    ui::CommandField *field = nullptr;
    ui::CommandField *other = nullptr;
};

TEST_F(DeletionTest, SheetOnThePanelAsksAboutTheSelectedShortcut)
{
    open(3, 1);
    mode->results[1].file.displayName = QStringLiteral("News");
    mode->confirmDeleteSelection(field);
    auto *sheet = mode->panel()->findChild<QMessageBox *>(QStringLiteral("alert"));
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->text(), QStringLiteral("Delete \u201CNews\u201D?"));
    EXPECT_EQ(sheet->informativeText(), QStringLiteral("The shortcut will be moved to the Trash."));
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    auto *deleteButton = sheet->findChild<QPushButton *>(QStringLiteral("alertButton0"));
    ASSERT_NE(deleteButton, nullptr);
    EXPECT_EQ(deleteButton->text(), QStringLiteral("Delete"));

    deleteButton->click();
    EXPECT_FALSE(mode->isConfirming());
    EXPECT_EQ(fakes.workspace->trashed, QStringList{pathOf(1)});
    EXPECT_TRUE(field->hasFocus());
}

TEST_F(DeletionTest, TheRowThatMovesUpIsSelectedAndAfterTheLastTheNewLast)
{
    open(5, 0);
    confirmAnswering(deleteAnswer);
    EXPECT_EQ(fakes.workspace->trashed, QStringList{pathOf(0)});
    EXPECT_EQ(mode->files.size(), 4);
    EXPECT_EQ(shown(), QStringLiteral("[1]234"));
    EXPECT_TRUE(field->hasFocus());
    mode->selectedIndex = 3;
    confirmAnswering(deleteAnswer);
    EXPECT_EQ(shown(), QStringLiteral("12[3]"));
    EXPECT_TRUE(mode->isVisible());
    for (int left = 3; left > 0; --left)
        confirmAnswering(deleteAnswer);
    EXPECT_TRUE(mode->files.isEmpty());
    EXPECT_EQ(mode->selectedIndex, -1); // what the mode's update left
    EXPECT_EQ(mode->panel()->frame().height(), 58);
}

TEST_F(DeletionTest, CancelOrAFailedMoveChangesNothingButTheFocus)
{
    open(3, 1);
    confirmAnswering(cancelAnswer);
    EXPECT_TRUE(fakes.workspace->trashed.isEmpty());
    EXPECT_TRUE(field->hasFocus());

    fakes.workspace->failTrash = true;
    other->setFocus();
    const int updates = log->updates;
    confirmAnswering(deleteAnswer);
    EXPECT_EQ(fakes.workspace->beeps, 1);
    EXPECT_TRUE(field->hasFocus());
    EXPECT_EQ(mode->files.size(), 3);
    EXPECT_EQ(log->updates, updates);
    EXPECT_EQ(shown(), QStringLiteral("0[1]2"));
}

TEST_F(DeletionTest, TheFileNamedWhenAskingIsTheOneDeleted)
{
    open(3, 2);
    ui::Alert::setNextAnswer(deleteAnswer);
    mode->confirmDeleteSelection(field);
    // The list and the selection change while the sheet is open.
    std::reverse(mode->results.begin(), mode->results.end());
    mode->selectedIndex = 0;
    QTRY_VERIFY(!mode->isConfirming());
    EXPECT_EQ(fakes.workspace->trashed, QStringList{pathOf(2)});
    EXPECT_EQ(mode->selectedIndex, 1); // as near as it gets to where it was asked
}

TEST_F(DeletionTest, NothingIsAskedWithoutAValidSelectionOrDoneWithoutTheController)
{
    open(2, -1);
    mode->confirmDeleteSelection(field);
    mode->selectedIndex = 2;
    mode->confirmDeleteSelection(field);
    EXPECT_FALSE(mode->isConfirming());

    mode->selectedIndex = 1;
    ui::Alert::setNextAnswer(deleteAnswer);
    mode->confirmDeleteSelection(nullptr);
    mode.reset();
    // Queued behind the answer, so it runs once the answer has been delivered.
    bool isPastAnswer = false;
    QTimer::singleShot(0, qApp, [&] { isPastAnswer = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return isPastAnswer; }));
    EXPECT_TRUE(fakes.workspace->trashed.isEmpty());
}

} // namespace
