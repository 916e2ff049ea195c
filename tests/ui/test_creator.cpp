// The creator driven through its two real fields: what each key does to the fields and the list,
// adopting a listed name, saving odd and refused names, and keys typed while the list is read.

#include "PanelTestSupport.h"

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"
#include "ui/CreatorController.h"
#include "ui/ResultRowView.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;

using namespace pindle;
using pindle::test::writeWebloc;

namespace {

constexpr std::int64_t previousApp = 777;
const QString sharedURL = QStringLiteral("https://example.com/");

class Creator : public testing::Test
{
protected:
    void SetUp() override
    {
        fakes = platform::fake::installFakePlatform();
        fakes.focus->frontmost = platform::RunningApplication{.processIdentifier = previousApp};
        writeWebloc(QStringLiteral("Example Home"), sharedURL);
        writeWebloc(QStringLiteral("Example Again"), sharedURL);
        writeWebloc(QStringLiteral("Other"), QStringLiteral("https://other.example.org/"));

        auto *header = new QWidget;
        creator = std::make_unique<ui::CreatorController>(header, 86);
        creator->buildFields(header);
    }

    void TearDown() override { creator.reset(); }

    void open() { creator->show(QStringLiteral("  ") + sharedURL + QStringLiteral("\n")); }
    ui::CommandField *name() const { return creator->nameField(); }
    ui::CommandField *url() const { return creator->urlField(); }
    QWidget *focused() const { return creator->panel()->focusWidget(); }
    void key(QWidget *target, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(target, key, modifiers);
    }
    QStringList shownNames() const
    {
        QStringList names;
        for (const ScoredFile &row : creator->results)
            names.append(row.file.displayName);
        names.sort();
        return names;
    }
    static QString savedPath(const QString &name)
    {
        return test::shortcutFolder() + QLatin1Char('/') + name + QStringLiteral(".webloc");
    }

    platform::fake::FakePlatform fakes;
    std::unique_ptr<ui::CreatorController> creator;
};

using CreatorListing = Creator;
using CreatorSaving = Creator;

TEST_F(CreatorListing, ShowsTheAddressMatchesUntilANameIsTyped)
{
    open();
    EXPECT_EQ(url()->text(), sharedURL);
    EXPECT_EQ(focused(), name());
    EXPECT_EQ(shownNames(),
              (QStringList{QStringLiteral("Example Again"), QStringLiteral("Example Home")}));
    EXPECT_EQ(creator->selectedIndex, -1);
    QTest::keyClicks(name(), QStringLiteral("oth"));
    EXPECT_EQ(shownNames(), QStringList{QStringLiteral("Other")});
    EXPECT_EQ(creator->selectedIndex, -1);
    key(name(), Qt::Key_Escape);
    EXPECT_TRUE(name()->text().isEmpty());
    EXPECT_EQ(shownNames().size(), 2);

    url()->selectAll();
    QTest::keyClicks(url(), QStringLiteral("https://other.example.org/"));
    EXPECT_EQ(shownNames(), QStringList{QStringLiteral("Other")});
}

TEST_F(CreatorListing, EscapeClearsTheFocusedFieldThenHidesAndTabGoesRoundTheTwo)
{
    open();
    QTest::keyClicks(name(), QStringLiteral("oth"));
    key(name(), Qt::Key_Tab);
    EXPECT_EQ(focused(), url());
    // Clearing the address leaves the name's list as it was.
    key(url(), Qt::Key_Escape);
    EXPECT_TRUE(url()->text().isEmpty());
    EXPECT_EQ(name()->text(), QStringLiteral("oth"));
    EXPECT_EQ(shownNames(), QStringList{QStringLiteral("Other")});

    key(url(), Qt::Key_Tab);
    EXPECT_EQ(focused(), name());
    key(name(), Qt::Key_Backtab, Qt::ShiftModifier);
    key(url(), Qt::Key_Backtab, Qt::ShiftModifier);
    ASSERT_EQ(focused(), name());
    // With the name cleared too, the list follows the address, now empty.
    key(name(), Qt::Key_Escape);
    EXPECT_TRUE(creator->results.isEmpty());
    EXPECT_TRUE(creator->isVisible());
    EXPECT_TRUE(fakes.focus->activated.isEmpty());

    key(name(), Qt::Key_Escape);
    EXPECT_FALSE(creator->isVisible());
    ASSERT_EQ(fakes.focus->activated.size(), 1);
    EXPECT_EQ(fakes.focus->activated[0].processIdentifier, previousApp);
}

TEST_F(CreatorListing, UpFromTheFirstRowReturnsToNoSelectionWhereReturnSaves)
{
    open();
    QTest::keyClicks(name(), QStringLiteral("Exam"));
    ASSERT_EQ(creator->results.size(), 2);
    key(name(), Qt::Key_Up);
    EXPECT_EQ(creator->selectedIndex, -1);
    for (int i = 0; i < 3; ++i)
        key(name(), Qt::Key_Down);
    EXPECT_EQ(creator->selectedIndex, 1);
    key(name(), Qt::Key_Up);
    key(name(), Qt::Key_Up);
    EXPECT_EQ(creator->selectedIndex, -1);
    key(name(), Qt::Key_Return);
    EXPECT_TRUE(QFile::exists(savedPath(QStringLiteral("Exam"))));
    EXPECT_FALSE(creator->isVisible());
}

TEST_F(CreatorListing, MissingFolderShowsNoRowsAndNoMessage)
{
    ASSERT_TRUE(QDir(test::homePath() + QStringLiteral("/conflocal")).removeRecursively());
    open();
    QTest::keyClicks(name(), QStringLiteral("ex"));
    EXPECT_TRUE(creator->rowViews.isEmpty());
    for (const QString &text : test::visibleLabelTexts(creator->panel()))
        EXPECT_FALSE(text.endsWith(QStringLiteral(" not found"))) << text.toStdString();
}

TEST_F(CreatorSaving, AClickOrReturnOnARowAdoptsItsNameToSaveEdited)
{
    open();
    ASSERT_EQ(creator->rowViews.size(), 2);
    const QString clicked = creator->results[1].file.displayName;
    QTest::mouseClick(creator->rowViews[1], Qt::LeftButton);
    EXPECT_EQ(name()->text(), clicked);
    key(name(), Qt::Key_Escape);

    key(name(), Qt::Key_Down);
    const QString adopted = creator->results[0].file.displayName;
    key(name(), Qt::Key_Return);
    EXPECT_EQ(name()->text(), adopted);
    EXPECT_EQ(name()->cursorPosition(), adopted.size());
    EXPECT_EQ(creator->selectedIndex, -1);
    EXPECT_TRUE(creator->isVisible());
    EXPECT_TRUE(shownNames().contains(adopted)); // now a name search on the adopted name

    QTest::keyClicks(name(), QStringLiteral(" 2"));
    key(name(), Qt::Key_Return);
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(savedPath(adopted + u" 2"_s))), sharedURL);
    EXPECT_FALSE(creator->isVisible());
    EXPECT_TRUE(name()->text().isEmpty() && url()->text().isEmpty());
}

TEST_F(CreatorSaving, KeepsALongAddressAndNameWhole)
{
    const QString address = u"https://example.com/?q="_s + QString(100000, u'x');
    const QString longName = QString(200, u'n');
    creator->show(address);
    QTest::keyClicks(name(), longName);
    key(name(), Qt::Key_Return);
    const QString saved = savedPath(longName);
    ASSERT_TRUE(QFile::exists(saved));
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(saved)), address);
}

TEST_F(CreatorSaving, FailedSaveBeepsAndChangesNothing)
{
    open();
    QTest::keyClicks(name(), QStringLiteral("Other"));
    const QStringList before = shownNames();
    const QByteArray existing = test::readFile(savedPath(QStringLiteral("Other")));
    key(name(), Qt::Key_Return);
    EXPECT_EQ(fakes.workspace->beeps, 1);
    EXPECT_TRUE(creator->isVisible());
    EXPECT_EQ(name()->text() + url()->text(), u"Other"_s + sharedURL);
    EXPECT_EQ(shownNames(), before);
    EXPECT_EQ(test::readFile(savedPath(QStringLiteral("Other"))), existing);
}

} // namespace

// More files than are read in place: the targets are read beside the interface.
class CreatorLargeFolder : public Creator
{
protected:
    void SetUp() override
    {
        Creator::SetUp();
        for (int i = 0; i < 300; ++i)
            writeWebloc(QStringLiteral("Filler %1").arg(i),
                        QStringLiteral("https://filler.example.org/%1").arg(i));
        writeWebloc(QStringLiteral("Example Third"), sharedURL);
    }

    // The list as the creator would make it with every target read before it is shown.
    static QStringList directMatches()
    {
        ShortcutURL::clearCaches();
        QStringList names;
        for (const ScoredFile &row : FileIndex::matching(sharedURL, FileIndex::scan(), 6))
            names.append(row.file.displayName);
        return names;
    }
};

TEST_F(CreatorLargeFolder, ANameIsListedAtOnceWithoutWaitingForTheTargets)
{
    open();
    ASSERT_TRUE(creator->isAwaitingTargets());
    QTest::keyClicks(name(), QStringLiteral("oth"));
    EXPECT_FALSE(creator->isAwaitingTargets());
    EXPECT_EQ(shownNames(), QStringList{QStringLiteral("Other")});
}

TEST_F(CreatorLargeFolder, KeysWaitForTheScanAndThenForTheTargets)
{
    creator->setMostBytesScannedInPlace(0);
    writeWebloc(QStringLiteral("Example Fourth"), sharedURL);
    ShortcutURL::clearCaches();
    open();
    ASSERT_TRUE(creator->isAwaitingFiles());
    key(name(), Qt::Key_Down);
    key(name(), Qt::Key_Return);
    creator->waitForFiles();
    ASSERT_TRUE(creator->isAwaitingTargets());
    EXPECT_TRUE(name()->text().isEmpty());
    creator->waitForTargets();
    EXPECT_EQ(name()->text(), directMatches().first());
    EXPECT_EQ(fakes.workspace->beeps, 0); // Return was not taken for a save
    EXPECT_EQ(creator->results.size(), 1);
}
