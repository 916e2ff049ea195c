// The launcher driven through its real search field: the keys and states the end-to-end scripts
// have no way to press or set up (Super, the keypad, clicks, a blank query, a missing folder, and
// keys typed while the folder is still being read).

#include "PanelTestSupport.h"

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"
#include "ui/Alert.h"
#include "ui/LauncherController.h"
#include "ui/ResultRowView.h"

#include <QDir>
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
        writeWebloc(QStringLiteral("News"), QStringLiteral("https://news.example.com/"));
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

    platform::fake::FakePlatform fakes;
    std::unique_ptr<ui::LauncherController> launcher;
    QString docsPath;
    QString brokenPath;
};

using LauncherSearching = Launcher;
using LauncherOpening = Launcher;
using LauncherCopying = Launcher;
using LauncherDeleting = Launcher;

TEST_F(LauncherSearching, RescansTheFolderEachTimeAndListsAtMostEight)
{
    for (int i = 0; i < 12; ++i)
        writeWebloc(QStringLiteral("Site %1").arg(i),
                    QStringLiteral("https://s%1.example/").arg(i));
    launcher->hide(false);
    launcher->show();
    type(QStringLiteral("site"));
    EXPECT_EQ(launcher->results.size(), 8);
    EXPECT_EQ(launcher->rowViews.size(), 8);
}

TEST_F(LauncherSearching, BlankQueryShowsNothingAndNoKeyActsOnARow)
{
    type(QStringLiteral("   "));
    EXPECT_TRUE(launcher->results.isEmpty());
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

TEST_F(LauncherSearching, MissingFolderShowsItsPathAsNotFoundWhileAQueryIsTyped)
{
    ASSERT_TRUE(QDir(test::shortcutFolder()).removeRecursively());
    const QString message = test::shortcutFolder() + QStringLiteral(" not found");
    type(QStringLiteral("ne"));
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_TRUE(launcher->rowViews.isEmpty());
    EXPECT_TRUE(test::visibleLabelTexts(launcher->panel()).contains(message));

    key(Qt::Key_Backspace);
    key(Qt::Key_Backspace);
    EXPECT_FALSE(test::visibleLabelTexts(launcher->panel()).contains(message));
}

TEST_F(LauncherOpening, KeypadEnterOpensTheRowMovedToAndAClickOpensItsRowWhileStillShown)
{
    // Qt on Wayland asks the focused window for an activation token while opening: a panel
    // already hidden has no surface left to ask with (Qt 6.8 crashes there).
    QList<bool> shownWhileOpening;
    fakes.workspace->onOpen = [&] { shownWhileOpening.append(launcher->isVisible()); };
    type(QStringLiteral("n"));
    const QList<ScoredFile> rows = launcher->results;
    ASSERT_GE(rows.size(), 3);
    // The first match is selected, and the selection stops at both ends.
    EXPECT_EQ(launcher->selectedIndex, 0);
    key(Qt::Key_Up);
    EXPECT_EQ(launcher->selectedIndex, 0);
    for (qsizetype i = 0; i < rows.size() + 2; ++i)
        key(Qt::Key_Down);
    EXPECT_TRUE(launcher->rowViews.last()->isSelected());
    key(Qt::Key_Up);
    key(Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_EQ(fakes.workspace->opened, QList<QUrl>{rows[rows.size() - 2].file.url});
    EXPECT_FALSE(launcher->isVisible());

    launcher->show();
    type(QStringLiteral("n"));
    QTest::mouseClick(launcher->rowViews[2], Qt::LeftButton, {}, QPoint(30, 25)); // on the icon
    ASSERT_EQ(fakes.workspace->opened.size(), 2);
    EXPECT_EQ(fakes.workspace->opened[1], rows[2].file.url);
    EXPECT_EQ(shownWhileOpening, (QList<bool>{true, true}));
    EXPECT_FALSE(launcher->isVisible());
    EXPECT_TRUE(fakes.focus->activated.isEmpty());
}

TEST_F(LauncherOpening, EscapeFirstClearsTheQueryThenHidesAndRestoresFocus)
{
    type(QStringLiteral("ne"));
    key(Qt::Key_Escape);
    EXPECT_TRUE(field()->text().isEmpty());
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_TRUE(launcher->isVisible());

    key(Qt::Key_Escape);
    EXPECT_FALSE(launcher->isVisible());
    ASSERT_EQ(fakes.focus->activated.size(), 1);
    EXPECT_EQ(fakes.focus->activated[0].processIdentifier, previousApp);
}

TEST_F(LauncherCopying, OnlyControlOrSuperCAloneCopiesAndOtherChordsTypeNothing)
{
    // Chords carry their letter as text: none of it may land in the query, even a blank one.
    const QList<Qt::KeyboardModifiers> noActions = {
        Qt::MetaModifier | Qt::ShiftModifier, Qt::ControlModifier | Qt::ShiftModifier,
        Qt::ControlModifier | Qt::AltModifier, Qt::MetaModifier | Qt::AltModifier};
    for (const Qt::Key letter : {Qt::Key_C, Qt::Key_X, Qt::Key_Q}) {
        key(letter, Qt::MetaModifier);
        for (const Qt::KeyboardModifiers chord : noActions)
            key(letter, chord);
    }
    EXPECT_EQ(field()->text(), QString());
    type(QStringLiteral("docs"));
    for (const Qt::KeyboardModifiers chord : noActions)
        key(Qt::Key_C, chord);
    // Ctrl+C with Caps Lock on, as the X11 backend delivers it.
    sendKey(field(), Qt::Key_C, Qt::ControlModifier, xControlMask | xLockMask,
            QStringLiteral("\x03"));
    EXPECT_FALSE(fakes.pasteboard->text.has_value());
    EXPECT_TRUE(launcher->isVisible());
    EXPECT_EQ(field()->text(), QStringLiteral("docs"));

    // The field's own editing chords still work.
    key(Qt::Key_A, Qt::ControlModifier);
    key(Qt::Key_X, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), QString());
    key(Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), QStringLiteral("docs"));

    key(Qt::Key_C, Qt::MetaModifier);
    EXPECT_EQ(fakes.pasteboard->text, QStringLiteral("https://docs.example.com/"));
    EXPECT_FALSE(launcher->isVisible());

    // A shortcut whose target can't be read gives its own path.
    launcher->show();
    type(QStringLiteral("broken"));
    sendKey(field(), Qt::Key_C, Qt::ControlModifier, xControlMask, QStringLiteral("\x03"));
    EXPECT_EQ(fakes.pasteboard->text, brokenPath);
}

TEST_F(LauncherDeleting, DeleteEditsTheQueryUnlessControlIsHeldOnARow)
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
    ASSERT_EQ(launcher->selectedIndex, 0);
    EXPECT_FALSE(launcher->isConfirming());

    // On a row, Shift held too, it asks; the field keeps its text and the focus.
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
    key(Qt::Key_Delete, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_TRUE(launcher->isConfirming());
    EXPECT_EQ(field()->text(), QStringLiteral(" ocs"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.workspace->trashed.isEmpty(); }, 2000));
    EXPECT_EQ(fakes.workspace->trashed, QStringList{docsPath});
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
        ASSERT_TRUE(launcher->isAwaitingFiles());
    }

    QString newsletterPath;
};

TEST_F(LauncherScanning, KeysTypedMeanwhileActInOrderOnTheNewList)
{
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

    launcher->waitForFiles();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.workspace->trashed.isEmpty(); }, 2000));
    EXPECT_EQ(fakes.workspace->trashed, QStringList{newsletterPath});
    EXPECT_EQ(launcher->files.size(), 5);
}

} // namespace
