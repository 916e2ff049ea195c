#include "PanelTestSupport.h"

#include "ui/Alert.h"
#include "ui/CommandField.h"
#include "ui/ResultRowView.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

using namespace pindle;
using namespace pindle::test;

namespace {

constexpr int deleteAnswer = ui::Alert::firstButtonReturn;
constexpr int cancelAnswer = ui::Alert::firstButtonReturn + 1;

class DeletionTest : public testing::Test
{
protected:
    // A shown panel listing count shortcuts with row `selected` selected and the focus in a
    // second field, so the focus coming back to `field` shows.
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
        updatesBefore = log->updates;
    }

    // The answer arrives from the event loop, after the confirmation has started.
    void confirmAnswering(int answer)
    {
        ui::Alert::setNextAnswer(answer);
        mode->confirmDeleteSelection(field);
        EXPECT_TRUE(mode->isConfirming());
        QTRY_VERIFY(!mode->isConfirming());
    }

    // The titles shown, the selected one in brackets.
    QStringList shown() const
    {
        QStringList titles;
        for (const ui::ResultRowView *row : mode->rowViews)
            titles.append(row->isSelected() ? u'[' + row->title() + u']' : row->title());
        return titles;
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
    int updatesBefore = 0;
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
    auto *cancelButton = sheet->findChild<QPushButton *>(QStringLiteral("alertButton1"));
    ASSERT_NE(deleteButton, nullptr);
    ASSERT_NE(cancelButton, nullptr);
    EXPECT_EQ(deleteButton->text(), QStringLiteral("Delete"));
    EXPECT_EQ(cancelButton->text(), QStringLiteral("Cancel"));
    EXPECT_EQ(sheet->defaultButton(), deleteButton);
    EXPECT_EQ(sheet->escapeButton(), cancelButton);

    deleteButton->click();
    EXPECT_FALSE(mode->isConfirming());
    EXPECT_EQ(fakes.workspace->trashed, QStringList{pathOf(1)});
    EXPECT_TRUE(field->hasFocus());
}

TEST_F(DeletionTest, ConfirmedDeletionSelectsTheRowThatMovedUp)
{
    open(5, 0);
    confirmAnswering(deleteAnswer);
    EXPECT_EQ(fakes.workspace->trashed, QStringList{pathOf(0)});
    EXPECT_EQ(mode->files.size(), 4);
    EXPECT_EQ(shown().mid(0, 2),
              (QStringList{QStringLiteral("[Shortcut 1]"), QStringLiteral("Shortcut 2")}));
    EXPECT_TRUE(field->hasFocus());
    EXPECT_TRUE(mode->isVisible());
}

TEST_F(DeletionTest, DeletingTheLastRowSelectsTheNewLastAndTheOnlyRowNone)
{
    open(3, 2);
    confirmAnswering(deleteAnswer);
    EXPECT_EQ(shown(), (QStringList{QStringLiteral("Shortcut 0"), QStringLiteral("[Shortcut 1]")}));
    mode->selectedIndex = 0;
    confirmAnswering(deleteAnswer);
    confirmAnswering(deleteAnswer);
    EXPECT_TRUE(mode->files.isEmpty());
    EXPECT_TRUE(mode->rowViews.isEmpty());
    EXPECT_EQ(mode->selectedIndex, -1); // what the mode's update left
    EXPECT_EQ(mode->panel()->frame().height(), 58);
    EXPECT_EQ(fakes.workspace->trashed.size(), 3);
}

TEST_F(DeletionTest, CancelOrAFailedMoveChangesNothingButTheFocus)
{
    open(3, 1);
    confirmAnswering(cancelAnswer);
    EXPECT_TRUE(fakes.workspace->trashed.isEmpty());
    EXPECT_EQ(fakes.workspace->beeps, 0);
    EXPECT_TRUE(field->hasFocus());

    fakes.workspace->failTrash = true;
    other->setFocus();
    confirmAnswering(deleteAnswer);
    EXPECT_EQ(fakes.workspace->beeps, 1);
    EXPECT_TRUE(field->hasFocus());
    EXPECT_EQ(mode->files.size(), 3);
    EXPECT_EQ(log->updates, updatesBefore);
    EXPECT_EQ(shown()[1], QStringLiteral("[Shortcut 1]"));
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

TEST_F(DeletionTest, NothingIsAskedWithoutAValidSelectionOrAnsweredWithoutController)
{
    open(2, -1);
    mode->confirmDeleteSelection(field);
    mode->selectedIndex = 2;
    mode->confirmDeleteSelection(field);
    EXPECT_FALSE(mode->isConfirming());
    EXPECT_FALSE(ui::Alert::lastAlert().has_value());

    mode->selectedIndex = 1;
    ui::Alert::setNextAnswer(deleteAnswer);
    mode->confirmDeleteSelection(nullptr);
    mode.reset();
    QTest::qWait(20);
    EXPECT_TRUE(fakes.workspace->trashed.isEmpty());
}

TEST(Alert, ModalAnswersThroughTheHookAndRecordsTheQuestion)
{
    ui::Alert alert;
    alert.messageText = QStringLiteral("Hot keys taken");
    alert.addButton(QStringLiteral("OK"));
    alert.addButton(QStringLiteral("Quit"));
    ui::Alert::setNextAnswer(1001);
    EXPECT_EQ(alert.runModal(), 1001);
    const std::optional<ui::Alert> asked = ui::Alert::lastAlert();
    ASSERT_TRUE(asked.has_value());
    EXPECT_EQ(asked->messageText, QStringLiteral("Hot keys taken"));
    EXPECT_EQ(asked->buttons(), (QStringList{QStringLiteral("OK"), QStringLiteral("Quit")}));
}

} // namespace
