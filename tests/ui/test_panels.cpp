// The launcher and the creator driven through their real fields: with the fake desktop, what the
// end-to-end scripts can't press or provoke; with the real icon and type lookups behind the rows,
// heap use over hundreds of openings and openings while the folder keeps changing under them.

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "platform/QtServices.h"
#include "platform/fake/FakePlatform.h"
#include "support/TestSupport.h"
#include "ui/Alert.h"
#include "ui/CreatorController.h"
#include "ui/LauncherController.h"
#include "ui/ResultRowView.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QTest>

#include <gtest/gtest.h>

#include <malloc.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer's own allocator, which mallinfo2() knows nothing about.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

using namespace Qt::StringLiterals;
using namespace pindle;
using pindle::test::writeWebloc;
using Range = ui::ResultRowView::TitleRange;

namespace {

constexpr int deleteAnswer = ui::Alert::firstButtonReturn;
constexpr int cancelAnswer = ui::Alert::firstButtonReturn + 1;
const QString sharedURL = u"https://example.com/"_s;

// Both panels over one folder, the launcher shown.
class Panels : public testing::Test
{
protected:
    void SetUp() override
    {
        fakes = platform::fake::installFakePlatform();
        writeWebloc(u"News"_s, u"https://news.example.com/"_s);
        writeWebloc(u"Netflix"_s, u"https://www.netflix.com/"_s);
        writeWebloc(u"Nightly Forecast"_s, u"https://weather.example/"_s);
        writeWebloc(u"Docs"_s, u"https://docs.example.com/"_s);
        test::writeFile(test::inFolder(u"Broken.webloc"_s), "not a property list");
        writeWebloc(u"Example Home"_s, sharedURL);
        writeWebloc(u"Example Again"_s, sharedURL);
        writeWebloc(u"Other"_s, u"https://other.example.org/"_s);

        auto *header = new QWidget;
        creator = std::make_unique<ui::CreatorController>(header, 86);
        creator->buildFields(header);
        header = new QWidget;
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

    void open() { creator->show(u"  "_s + sharedURL + u"\n"_s); }
    ui::CommandField *name() const { return creator->nameField(); }
    ui::CommandField *url() const { return creator->urlField(); }
    static std::optional<QString> targetOf(const QString &name)
    {
        return ShortcutURL::target(QUrl::fromLocalFile(test::inFolder(name + u".webloc"_s)));
    }

    // Types into a panel just shown, paints every row (filling the caches of scaled icons), hides
    // it and delivers what the event loop would before the next showing. False unless both took.
    static bool drawAndHide(ui::PanelController &panel, ui::CommandField *field)
    {
        QTest::keyClicks(field, u"s"_s);
        const bool shown =
            panel.isVisible() && !panel.results.isEmpty() && !panel.panel()->grab().isNull();
        panel.hide(false);
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return shown && !panel.isVisible();
    }
    platform::fake::FakePlatform fakes;
    std::unique_ptr<ui::CreatorController> creator;
    std::unique_ptr<ui::LauncherController> launcher;
};

using Launcher = Panels;
using Creator = Panels;
using RealServices = Panels;

size_t heapInUse()
{
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return ::mallinfo2().uordblks;
#endif
}

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
    EXPECT_EQ(fakes.pasteboard->text, test::inFolder(u"Broken.webloc"_s));
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
    // A thumbs up with a skin tone is one character of four UTF-16 units.
    writeWebloc(QString::fromUcs4(U"\U0001F44D\U0001F3FD Up"), u"https://up.example/"_s);
    launcher->show();
    type(u"up"_s);
    const ui::ResultRowView *row = launcher->rowViews.value(0);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->titleRanges(), (QList<Range>{{5, 1}, {6, 1}}));
    EXPECT_EQ(row->subtitle(), u"https://up.example/"_s);
}

TEST_F(Launcher, AMissingFolderIsNamedWhileAQueryIsTypedAndTheCreatorListsNothing)
{
    const auto message = [](ui::PanelController &panel) {
        const auto *label = panel.panel()->findChild<QLabel *>(u"messageLabel"_s);
        return label != nullptr && label->isVisible() ? label->text() : QString();
    };
    ASSERT_TRUE(QDir(test::shortcutFolder()).removeRecursively());
    type(u"ne"_s);
    EXPECT_TRUE(launcher->results.isEmpty());
    EXPECT_EQ(message(*launcher), test::shortcutFolder() + u" not found"_s);
    key(Qt::Key_Backspace);
    key(Qt::Key_Backspace);
    EXPECT_EQ(message(*launcher), QString());

    open();
    QTest::keyClicks(name(), u"ex"_s);
    EXPECT_TRUE(creator->results.isEmpty());
    EXPECT_EQ(message(*creator), QString());
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
    const auto deactivate = [&] {
        QEvent event(QEvent::WindowDeactivate);
        QApplication::sendEvent(launcher->panel(), &event);
    };
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

// The folder read beside the interface: keys typed meanwhile wait for its list and then act on
// it in order, and Escape drops those held.
TEST_F(Launcher, KeysTypedWhileTheFolderIsReadActInOrderOnTheNewList)
{
    launcher->hide(false);
    launcher->setMostBytesScannedInPlace(0);
    const QString newsletter = writeWebloc(u"Newsletter"_s, u"https://letter.example/"_s);
    launcher->show();
    ASSERT_TRUE(launcher->isAwaitingFiles());
    type(u"newsl"_s);
    key(Qt::Key_Return);
    key(Qt::Key_Escape);
    EXPECT_TRUE(field()->text().isEmpty());
    type(u"newsl"_s);
    EXPECT_EQ(field()->text(), u"newsl"_s); // typed at once, with nothing held before it
    ui::Alert::setNextAnswer(deleteAnswer);
    key(Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_FALSE(launcher->isConfirming());
    launcher->waitForFiles();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.workspace->trashed.isEmpty(); }, 2000));
    EXPECT_EQ(fakes.workspace->trashed, QStringList{newsletter});
    EXPECT_TRUE(fakes.workspace->opened.isEmpty());

    launcher->hide(false);
    writeWebloc(u"Nearby"_s, u"https://nearby.example/"_s); // an unchanged folder is not read again
    launcher->show();
    ASSERT_TRUE(launcher->isAwaitingFiles());
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
    // The copy hid the panel: the key after it found no field to type into.
    EXPECT_FALSE(launcher->isVisible());
    EXPECT_TRUE(field()->text().isEmpty());
}

TEST_F(Creator, ListsTheAddressMatchesUntilARowIsAdoptedAsTheNameToSave)
{
    open();
    ASSERT_EQ(creator->results.size(), 2);
    for (const ScoredFile &row : creator->results)
        EXPECT_EQ(ShortcutURL::target(row.file.url), sharedURL);
    EXPECT_EQ(creator->selectedIndex, -1);
    const QString clicked = creator->results[1].file.displayName;
    QTest::mouseClick(creator->rowViews[1], Qt::LeftButton);
    EXPECT_EQ(name()->text(), clicked);
    QTest::keyClick(name(), Qt::Key_Escape);

    // Up from the first row goes back to no selection, where Return saves.
    QTest::keyClick(name(), Qt::Key_Down);
    QTest::keyClick(name(), Qt::Key_Up);
    EXPECT_EQ(creator->selectedIndex, -1);
    QTest::keyClick(name(), Qt::Key_Down);
    const QString adopted = creator->results[0].file.displayName;
    QTest::keyClick(name(), Qt::Key_Return);
    EXPECT_EQ(name()->text(), adopted);
    EXPECT_EQ(name()->cursorPosition(), adopted.size());
    EXPECT_EQ(creator->selectedIndex, -1);
    EXPECT_EQ(creator->results.value(0).file.displayName, adopted); // a name search now

    QTest::keyClicks(name(), u" 2"_s);
    QTest::keyClick(name(), Qt::Key_Return);
    EXPECT_EQ(targetOf(adopted + u" 2"_s), sharedURL);
    EXPECT_FALSE(creator->isVisible());
    EXPECT_TRUE(name()->text().isEmpty() && url()->text().isEmpty());
}

TEST_F(Creator, EscapeClearsItsOwnFieldThenHides)
{
    open();
    QTest::keyClicks(name(), u"oth"_s);
    // Clearing the address leaves the name and its list as they were.
    QTest::keyClick(url(), Qt::Key_Escape);
    EXPECT_EQ(name()->text() + url()->text(), u"oth"_s);
    ASSERT_EQ(creator->results.size(), 1);
    EXPECT_EQ(creator->results[0].file.displayName, u"Other"_s);
    // With the name cleared too, the list follows the address, now empty.
    QTest::keyClick(name(), Qt::Key_Escape);
    EXPECT_TRUE(creator->results.isEmpty() && creator->isVisible());
    QTest::keyClick(name(), Qt::Key_Escape);
    EXPECT_FALSE(creator->isVisible());
}

TEST_F(Creator, ARefusedNameBeepsAndChangesNothingAndLongOnesAreKeptWhole)
{
    const QString address = u"https://example.com/?q="_s + QString(100000, u'x');
    creator->show(address);
    QTest::keyClicks(name(), u"Other"_s);
    const QByteArray existing = test::readFile(test::inFolder(u"Other.webloc"_s));
    QTest::keyClick(name(), Qt::Key_Return);
    EXPECT_EQ(fakes.workspace->beeps, 1);
    EXPECT_TRUE(creator->isVisible());
    EXPECT_EQ(name()->text() + url()->text(), u"Other"_s + address);
    EXPECT_EQ(test::readFile(test::inFolder(u"Other.webloc"_s)), existing);

    const QString longName = QString(200, u'n');
    name()->selectAll();
    QTest::keyClicks(name(), longName);
    QTest::keyClick(name(), Qt::Key_Return);
    EXPECT_EQ(targetOf(longName), address);
}

// Enough files that the folder and then the targets are read beside the interface.
TEST_F(Creator, KeysWaitForTheScanAndThenForTheTargets)
{
    for (int i = 0; i < 300; ++i)
        writeWebloc(u"Filler "_s + QString::number(i), u"https://filler.example.org/"_s);
    writeWebloc(u"Example Third"_s, sharedURL);
    creator->setMostBytesScannedInPlace(0);
    open();
    ASSERT_TRUE(creator->isAwaitingFiles());
    QTest::keyClick(name(), Qt::Key_Down);
    QTest::keyClick(name(), Qt::Key_Return);
    creator->waitForFiles();
    ASSERT_TRUE(creator->isAwaitingTargets());
    EXPECT_TRUE(name()->text().isEmpty());

    creator->waitForTargets();
    const QList<ScoredFile> expected = FileIndex::matching(sharedURL, FileIndex::scan(), 6);
    ASSERT_FALSE(expected.isEmpty());
    EXPECT_EQ(name()->text(), expected[0].file.displayName);
    EXPECT_EQ(fakes.workspace->beeps, 0); // Return was not taken for a save
}

TEST_F(RealServices, HeapStaysFlatOverHundredsOfOpeningsWithRowsDrawn)
{
    platform::services().workspace = std::make_unique<platform::QtWorkspace>([] {});
    test::writeFile(test::inFolder(u"Shortcut notes.txt"_s), "plain");
    const auto showLauncher = [this] {
        launcher->show();
        return drawAndHide(*launcher, field());
    };
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(showLauncher());
    const size_t before = heapInUse();
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(showLauncher());
    const size_t after = heapInUse();
    EXPECT_LT(after, before + (1 << 20)) << "grew by " << (after - before) << " bytes";
}

// As a sync client or an attacker might leave it: names turning from files into pipes and back,
// a pipe, a link to an endless file and a folder where shortcuts are expected.
TEST_F(RealServices, BothPanelsKeepOpeningAndClosingWhileTheFolderChangesUnderThem)
{
    ::alarm(50); // a panel that hangs on a file fails the test here rather than never ending
    platform::services().workspace = std::make_unique<platform::QtWorkspace>([] {});
    const test::PipeSwapper swapper(test::inFolder(u"swapped.webloc"_s));
    const test::PipeSwapper typeless(test::inFolder(u"swapped"_s));
    ASSERT_EQ(::mkfifo(QFile::encodeName(test::inFolder(u"pipe.url"_s)).constData(), 0644), 0);
    ASSERT_TRUE(QFile::link(u"/dev/zero"_s, test::inFolder(u"zero.inetloc"_s)));
    ASSERT_TRUE(QDir().mkpath(test::inFolder(u"folder.webloc"_s)));
    for (int round = 0; round < 150; ++round) {
        launcher->show();
        ASSERT_TRUE(drawAndHide(*launcher, field())) << round;
        creator->show(u"https://example.org/"_s);
        ASSERT_TRUE(drawAndHide(*creator, creator->nameField())) << round;
    }
    ::alarm(0);
}

} // namespace
