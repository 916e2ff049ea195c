// The creator driven through its two real fields: the address's list, adopting a listed name,
// the two fields' keys, refused and very long names, and keys typed while the list is read.

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "platform/fake/FakePlatform.h"
#include "support/TestSupport.h"
#include "ui/CreatorController.h"
#include "ui/ResultRowView.h"

#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace pindle;
using pindle::test::writeWebloc;

namespace {

const QString sharedURL = u"https://example.com/"_s;

class Creator : public testing::Test
{
protected:
    void SetUp() override
    {
        fakes = platform::fake::installFakePlatform();
        writeWebloc(u"Example Home"_s, sharedURL);
        writeWebloc(u"Example Again"_s, sharedURL);
        writeWebloc(u"Other"_s, u"https://other.example.org/"_s);

        auto *header = new QWidget;
        creator = std::make_unique<ui::CreatorController>(header, 86);
        creator->buildFields(header);
    }

    void open() { creator->show(u"  "_s + sharedURL + u"\n"_s); }
    ui::CommandField *name() const { return creator->nameField(); }
    ui::CommandField *url() const { return creator->urlField(); }
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
    static std::optional<QString> targetOf(const QString &name)
    {
        return ShortcutURL::target(QUrl::fromLocalFile(test::inFolder(name + u".webloc"_s)));
    }

    platform::fake::FakePlatform fakes;
    std::unique_ptr<ui::CreatorController> creator;
};

TEST_F(Creator, ListsTheAddressMatchesUntilARowIsAdoptedAsTheNameToSave)
{
    open();
    EXPECT_EQ(shownNames(), (QStringList{u"Example Again"_s, u"Example Home"_s}));
    EXPECT_EQ(creator->selectedIndex, -1);
    const QString clicked = creator->results[1].file.displayName;
    QTest::mouseClick(creator->rowViews[1], Qt::LeftButton);
    EXPECT_EQ(name()->text(), clicked);
    key(name(), Qt::Key_Escape);

    // Up from the first row goes back to no selection, where Return saves.
    key(name(), Qt::Key_Down);
    key(name(), Qt::Key_Up);
    EXPECT_EQ(creator->selectedIndex, -1);
    key(name(), Qt::Key_Down);
    const QString adopted = creator->results[0].file.displayName;
    key(name(), Qt::Key_Return);
    EXPECT_EQ(name()->text(), adopted);
    EXPECT_EQ(name()->cursorPosition(), adopted.size());
    EXPECT_EQ(creator->selectedIndex, -1);
    EXPECT_TRUE(shownNames().contains(adopted)); // now a name search on the adopted name

    QTest::keyClicks(name(), u" 2"_s);
    key(name(), Qt::Key_Return);
    EXPECT_EQ(targetOf(adopted + u" 2"_s), sharedURL);
    EXPECT_FALSE(creator->isVisible());
    EXPECT_TRUE(name()->text().isEmpty() && url()->text().isEmpty());
}

TEST_F(Creator, EscapeClearsTheFocusedFieldThenHidesAndTabGoesRoundTheTwo)
{
    open();
    QTest::keyClicks(name(), u"oth"_s);
    key(name(), Qt::Key_Tab);
    EXPECT_EQ(creator->panel()->focusWidget(), url());
    // Clearing the address leaves the name's list as it was.
    key(url(), Qt::Key_Escape);
    EXPECT_TRUE(url()->text().isEmpty());
    EXPECT_EQ(shownNames(), QStringList{u"Other"_s});

    key(url(), Qt::Key_Backtab, Qt::ShiftModifier);
    ASSERT_EQ(creator->panel()->focusWidget(), name());
    // With the name cleared too, the list follows the address, now empty.
    key(name(), Qt::Key_Escape);
    EXPECT_TRUE(creator->results.isEmpty());
    EXPECT_TRUE(creator->isVisible());
    key(name(), Qt::Key_Escape);
    EXPECT_FALSE(creator->isVisible());
}

TEST_F(Creator, ARefusedNameBeepsAndChangesNothingAndLongOnesAreKeptWhole)
{
    const QString address = u"https://example.com/?q="_s + QString(100000, u'x');
    creator->show(address);
    QTest::keyClicks(name(), u"Other"_s);
    const QByteArray existing = test::readFile(test::inFolder(u"Other.webloc"_s));
    key(name(), Qt::Key_Return);
    EXPECT_EQ(fakes.workspace->beeps, 1);
    EXPECT_TRUE(creator->isVisible());
    EXPECT_EQ(name()->text() + url()->text(), u"Other"_s + address);
    EXPECT_EQ(test::readFile(test::inFolder(u"Other.webloc"_s)), existing);

    const QString longName = QString(200, u'n');
    name()->selectAll();
    QTest::keyClicks(name(), longName);
    key(name(), Qt::Key_Return);
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
    key(name(), Qt::Key_Down);
    key(name(), Qt::Key_Return);
    creator->waitForFiles();
    ASSERT_TRUE(creator->isAwaitingTargets());
    EXPECT_TRUE(name()->text().isEmpty());

    creator->waitForTargets();
    const QList<ScoredFile> expected = FileIndex::matching(sharedURL, FileIndex::scan(), 6);
    ASSERT_FALSE(expected.isEmpty());
    EXPECT_EQ(name()->text(), expected[0].file.displayName);
    EXPECT_EQ(fakes.workspace->beeps, 0); // Return was not taken for a save
}

} // namespace
