// The launcher driven through its real search field: what each key does in each state.

#include "PanelTestSupport.h"

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"
#include "ui/Alert.h"
#include "ui/LauncherController.h"
#include "ui/ResultRowView.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace pindle;
using pindle::test::sendKey;
using pindle::test::writeWebloc;

namespace {

constexpr std::int64_t previousApp = 777;
constexpr quint32 xLockMask = 0x2;
constexpr quint32 xControlMask = 0x4;

class Launcher : public testing::Test
{
protected:
    void SetUp() override
    {
        fakes = platform::fake::installFakePlatform();
        fakes.focus->frontmost = platform::RunningApplication{.processIdentifier = previousApp};
        newsPath = writeWebloc(QStringLiteral("News"), QStringLiteral("https://news.example.com/"));
        writeWebloc(QStringLiteral("Netflix"), QStringLiteral("https://www.netflix.com/"));
        writeWebloc(QStringLiteral("Nightly Forecast"), QStringLiteral("https://weather.example/"));
        docsPath = writeWebloc(QStringLiteral("Docs"), QStringLiteral("https://docs.example.com/"));
        brokenPath = test::shortcutFolder() + QStringLiteral("/Broken.webloc");
        test::writeFile(brokenPath, QByteArrayLiteral("not a property list"));

        auto *header = new QWidget;
        launcher = std::make_unique<ui::LauncherController>(header, 58);
        launcher->buildField(header);
        launcher->show();
    }

    void TearDown() override { launcher.reset(); }

    ui::CommandField *field() const { return launcher->textField(); }
    void type(const QString &text) { QTest::keyClicks(field(), text); }
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(field(), key, modifiers);
    }
    qsizetype activations() const { return fakes.focus->activated.size(); }

    platform::fake::FakePlatform fakes;
    std::unique_ptr<ui::LauncherController> launcher;
    QString newsPath;
    QString docsPath;
    QString brokenPath;
};

using LauncherShowing = Launcher;
using LauncherSearching = Launcher;
using LauncherOpening = Launcher;
using LauncherEscape = Launcher;
using LauncherCopying = Launcher;
using LauncherDeleting = Launcher;

TEST_F(LauncherShowing, OpensOnTheScannedFolderWithAnEmptyFocusedField)
{
    EXPECT_TRUE(launcher->isVisible());
    EXPECT_EQ(launcher->files.size(), 5);
    EXPECT_TRUE(field()->text().isEmpty());
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_EQ(launcher->selectedIndex, -1);
    EXPECT_EQ(launcher->panel()->focusWidget(), field());
    EXPECT_EQ(fakes.application->activations, 1);
    EXPECT_EQ(fakes.application->keyWindows, QList<QWindow *>{launcher->panel()->windowHandle()});
}

TEST_F(LauncherShowing, RescansTheFolderEachTimeAndListsAtMostEight)
{
    for (int i = 0; i < 12; ++i)
        writeWebloc(QStringLiteral("Site %1").arg(i),
                    QStringLiteral("https://s%1.example/").arg(i));
    key(Qt::Key_Escape);
    ASSERT_FALSE(launcher->isVisible());
    launcher->show();
    EXPECT_EQ(launcher->files.size(), 17);
    type(QStringLiteral("site"));
    EXPECT_EQ(launcher->results.size(), 8);
    EXPECT_EQ(launcher->rowViews.size(), 8);
}

TEST_F(LauncherSearching, BlankQueryShowsNothingAndNoKeyActsOnARow)
{
    type(QStringLiteral("   "));
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_EQ(launcher->selectedIndex, -1);
    key(Qt::Key_Down);
    key(Qt::Key_Up);
    EXPECT_EQ(launcher->selectedIndex, -1);
    key(Qt::Key_Return);
    key(Qt::Key_C, Qt::ControlModifier);
    key(Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_TRUE(fakes.workspace->opened.isEmpty());
    EXPECT_FALSE(fakes.pasteboard->text.has_value());
    EXPECT_FALSE(launcher->isConfirming());
    EXPECT_TRUE(launcher->isVisible());
    // Up and Down are taken by the list, never by the field's cursor.
    EXPECT_EQ(field()->text(), QStringLiteral("   "));
}

TEST_F(LauncherSearching, TheFirstMatchIsSelectedAndTheSelectionStopsAtBothEnds)
{
    type(QStringLiteral("n"));
    const qsizetype count = launcher->results.size();
    ASSERT_GE(count, 3);
    EXPECT_EQ(launcher->selectedIndex, 0);
    key(Qt::Key_Up);
    EXPECT_EQ(launcher->selectedIndex, 0);
    for (qsizetype i = 0; i < count + 2; ++i)
        key(Qt::Key_Down);
    EXPECT_EQ(launcher->selectedIndex, count - 1);
    EXPECT_TRUE(launcher->rowViews[count - 1]->isSelected());
    key(Qt::Key_Up);
    EXPECT_EQ(launcher->selectedIndex, count - 2);
}

TEST_F(LauncherSearching, MissingFolderShowsItsPathAsNotFoundWhileAQueryIsTyped)
{
    ASSERT_TRUE(QDir(test::shortcutFolder()).removeRecursively());
    const QString message = test::shortcutFolder() + QStringLiteral(" not found");
    type(QStringLiteral("ne"));
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_EQ(launcher->selectedIndex, -1);
    EXPECT_TRUE(launcher->rowViews.isEmpty());
    EXPECT_TRUE(test::visibleLabelTexts(launcher->panel()).contains(message));

    key(Qt::Key_Backspace);
    key(Qt::Key_Backspace);
    EXPECT_FALSE(test::visibleLabelTexts(launcher->panel()).contains(message));
}

TEST_F(LauncherOpening, ReturnOpensTheShortcutFileAndHidesWithoutRestoringFocus)
{
    // Qt on Wayland asks the focused window for an activation token while opening: a panel
    // already hidden has no surface left to ask with (Qt 6.8 crashes there).
    bool isShownWhileOpening = false;
    fakes.workspace->onOpen = [&] { isShownWhileOpening = launcher->isVisible(); };
    type(QStringLiteral("docs"));
    key(Qt::Key_Return);
    EXPECT_TRUE(isShownWhileOpening);
    ASSERT_EQ(fakes.workspace->opened.size(), 1);
    EXPECT_EQ(fakes.workspace->opened[0], QUrl::fromLocalFile(docsPath));
    EXPECT_FALSE(launcher->isVisible());
    EXPECT_TRUE(field()->text().isEmpty());
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_EQ(activations(), 0);
}

TEST_F(LauncherOpening, KeypadEnterOpensTheRowMovedToAndAClickOpensItsRow)
{
    type(QStringLiteral("n"));
    ASSERT_GE(launcher->results.size(), 3);
    const QUrl second = launcher->results[1].file.url;
    const QUrl third = launcher->results[2].file.url;
    key(Qt::Key_Down);
    key(Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_EQ(fakes.workspace->opened, QList<QUrl>{second});

    launcher->show();
    type(QStringLiteral("n"));
    QTest::mouseClick(launcher->rowViews[2], Qt::LeftButton);
    EXPECT_EQ(fakes.workspace->opened, (QList<QUrl>{second, third}));
    EXPECT_FALSE(launcher->isVisible());
}

TEST_F(LauncherEscape, FirstClearsTheQueryThenHidesAndRestoresFocus)
{
    type(QStringLiteral("ne"));
    ASSERT_FALSE(launcher->results.isEmpty());
    key(Qt::Key_Escape);
    EXPECT_TRUE(field()->text().isEmpty());
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_TRUE(launcher->isVisible());
    EXPECT_EQ(activations(), 0);

    key(Qt::Key_Escape);
    EXPECT_FALSE(launcher->isVisible());
    ASSERT_EQ(activations(), 1);
    EXPECT_EQ(fakes.focus->activated[0].processIdentifier, previousApp);
}

TEST_F(LauncherCopying, ControlCAndSuperCCopyTheTargetAndRestoreFocus)
{
    // Where only a focused window may set the clipboard, the copy must come before the hide.
    bool shownWhenCopied = false;
    fakes.pasteboard->onSetString = [&] { shownWhenCopied = launcher->isVisible(); };
    for (const Qt::KeyboardModifier modifier : {Qt::ControlModifier, Qt::MetaModifier}) {
        fakes.pasteboard->text.reset();
        fakes.focus->activated.clear();
        launcher->show();
        type(QStringLiteral("docs"));
        key(Qt::Key_C, modifier);
        EXPECT_EQ(fakes.pasteboard->text, QStringLiteral("https://docs.example.com/"));
        EXPECT_TRUE(shownWhenCopied);
        EXPECT_FALSE(launcher->isVisible());
        EXPECT_TRUE(field()->text().isEmpty());
        EXPECT_EQ(activations(), 1);
    }
    EXPECT_EQ(fakes.pasteboard->clears, 2);
}

TEST_F(LauncherCopying, ChordsThatAreNoActionTypeNothingButStillEdit)
{
    // Super and Ctrl chords carry their letter as text; none of it may land in the query.
    for (const Qt::KeyboardModifiers chord :
         {Qt::KeyboardModifiers(Qt::MetaModifier), Qt::MetaModifier | Qt::ShiftModifier,
          Qt::ControlModifier | Qt::AltModifier, Qt::MetaModifier | Qt::AltModifier}) {
        for (const Qt::Key letter : {Qt::Key_C, Qt::Key_X, Qt::Key_Q})
            key(letter, chord);
    }
    EXPECT_EQ(field()->text(), QString());
    EXPECT_FALSE(fakes.pasteboard->text.has_value());
    EXPECT_TRUE(launcher->isVisible());

    type(QStringLiteral("docs"));
    key(Qt::Key_A, Qt::ControlModifier);
    key(Qt::Key_X, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), QString());
    key(Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), QStringLiteral("docs"));
    EXPECT_EQ(launcher->results.size(), 1);
}

TEST_F(LauncherCopying, ShortcutWithoutReadableTargetCopiesItsPath)
{
    type(QStringLiteral("broken"));
    ASSERT_EQ(launcher->selectedIndex, 0);
    key(Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(fakes.pasteboard->text, brokenPath);
}

TEST_F(LauncherCopying, ChordsWithMoreModifiersAreLeftAlone)
{
    type(QStringLiteral("docs"));
    key(Qt::Key_C, Qt::ControlModifier | Qt::ShiftModifier);
    key(Qt::Key_C, Qt::MetaModifier | Qt::AltModifier);
    key(Qt::Key_C, Qt::ControlModifier | Qt::AltModifier);
    sendKey(field(), Qt::Key_C, Qt::ControlModifier, xControlMask | xLockMask,
            QStringLiteral("\x03"));
    EXPECT_FALSE(fakes.pasteboard->text.has_value());
    EXPECT_TRUE(launcher->isVisible());
    EXPECT_EQ(field()->text(), QStringLiteral("docs"));

    // The same X state without the Lock bit is the copy chord.
    sendKey(field(), Qt::Key_C, Qt::ControlModifier, xControlMask, QStringLiteral("\x03"));
    EXPECT_EQ(fakes.pasteboard->text, QStringLiteral("https://docs.example.com/"));
}

TEST_F(LauncherDeleting, DeleteThatIsNoChordOnARowEditsTheQuery)
{
    type(QStringLiteral("docs"));
    key(Qt::Key_Home);
    key(Qt::Key_Delete);
    EXPECT_EQ(field()->text(), QStringLiteral("ocs"));
    // With Control but no row to delete, one character goes, not a word, and the list follows.
    type(QStringLiteral("x "));
    key(Qt::Key_Home);
    ASSERT_EQ(launcher->selectedIndex, -1);
    key(Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), QStringLiteral(" ocs"));
    EXPECT_EQ(launcher->selectedIndex, 0);
    EXPECT_FALSE(QApplication::activeModalWidget());
}

TEST_F(LauncherDeleting, ControlDeleteWithShiftTooAsksAndMovesTheSelectedFileToTheTrash)
{
    type(QStringLiteral("docs"));
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
    key(Qt::Key_Delete, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_TRUE(launcher->isConfirming());
    EXPECT_EQ(ui::Alert::lastAlert()->messageText, QStringLiteral("Delete \u201cDocs\u201d?"));
    EXPECT_EQ(field()->text(), QStringLiteral("docs"));

    ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.workspace->trashed.isEmpty(); }, 2000));
    EXPECT_EQ(fakes.workspace->trashed, QStringList{docsPath});
    EXPECT_TRUE(launcher->isVisible());
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_EQ(launcher->files.size(), 4);
    EXPECT_EQ(launcher->panel()->focusWidget(), field());
}

// The folder is scanned beside the interface: the panel shows before its list is in.
class LauncherScanning : public Launcher
{
protected:
    void SetUp() override
    {
        Launcher::SetUp();
        launcher->hide(false);
        launcher->setMostBytesScannedInPlace(0);
        newsletterPath =
            writeWebloc(QStringLiteral("Newsletter"), QStringLiteral("https://letter.example/"));
        launcher->show();
    }

    QString newsletterPath;
};

TEST_F(LauncherScanning, KeysTypedMeanwhileActInOrderOnTheNewList)
{
    ASSERT_TRUE(launcher->isAwaitingFiles());
    EXPECT_TRUE(launcher->isVisible());
    type(QStringLiteral("ne"));
    key(Qt::Key_Down);
    key(Qt::Key_C, Qt::ControlModifier);
    type(QStringLiteral("x"));
    EXPECT_EQ(field()->text(), QStringLiteral("ne"));
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_FALSE(fakes.pasteboard->text.has_value());

    launcher->waitForFiles();
    const QList<ScoredFile> expected =
        FileIndex::search(QStringLiteral("ne"), FileIndex::scan(), 8);
    ASSERT_GE(expected.size(), 2);
    EXPECT_EQ(fakes.pasteboard->text, ShortcutURL::target(expected[1].file.url));
    EXPECT_FALSE(launcher->isVisible());
    // The copy hid the panel: the key after it found no field to type into.
    EXPECT_TRUE(field()->text().isEmpty());
}

TEST_F(LauncherScanning, EscapeDropsTheKeysHeldAndTheListStillComes)
{
    type(QStringLiteral("newsl"));
    key(Qt::Key_Return);
    key(Qt::Key_Escape);
    EXPECT_TRUE(field()->text().isEmpty());
    type(QStringLiteral("docs"));
    launcher->waitForFiles();
    EXPECT_TRUE(fakes.workspace->opened.isEmpty());
    EXPECT_TRUE(launcher->isVisible());
    EXPECT_EQ(field()->text(), QStringLiteral("docs"));

    key(Qt::Key_Escape);

    type(QStringLiteral("newsl"));
    key(Qt::Key_Return);
    EXPECT_EQ(fakes.workspace->opened, QList<QUrl>{QUrl::fromLocalFile(newsletterPath)});
}

TEST_F(LauncherScanning, ControlDeleteWaitsForTheListAndDeletesFromIt)
{
    type(QStringLiteral("newsl"));
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
    key(Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_FALSE(launcher->isConfirming());
    EXPECT_EQ(field()->text(), QStringLiteral("newsl"));

    launcher->waitForFiles();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.workspace->trashed.isEmpty(); }, 2000));
    EXPECT_EQ(fakes.workspace->trashed, QStringList{newsletterPath});
    EXPECT_EQ(launcher->files.size(), 5);
}

} // namespace
