#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "core/ShortcutWriter.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <ctime>
#include <fcntl.h>
#include <latch>
#include <sys/stat.h>
#include <thread>

using namespace Qt::StringLiterals;

using namespace pindle;
using ShortcutWriter::WriteError;
using test::inFolder;

namespace {

// Hidden names included: no attempt may leave a temporary file behind.
QStringList folderEntries()
{
    QStringList names =
        QDir(test::shortcutFolder())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    names.sort();
    return names;
}

std::expected<QUrl, WriteError> create(const QString &name, const QString &url = u"https://a/"_s)
{
    return ShortcutWriter::create(name, url, FileIndex::directory());
}

TEST(ShortcutWriter, WritesTheTrimmedNameAndAddressIntoNewFolders)
{
    const auto written = create(u" \tTrip\u2028 "_s, u"\u00A0https://a/?x=1&y=<2>\n"_s);
    EXPECT_EQ(written, QUrl::fromLocalFile(inFolder(u"Trip.webloc"_s)));
    test::writeFile(inFolder(u"Docs.url"_s), "URL=https://d/");
    for (const QString &name : {u"a.b"_s, u"Caf\u00E9 \\ x"_s, u"Docs"_s})
        EXPECT_TRUE(create(name).has_value()) << name.toStdString();

    EXPECT_EQ(folderEntries(), QStringList({u"Caf\u00E9 \\ x.webloc"_s, u"Docs.url"_s,
                                            u"Docs.webloc"_s, u"Trip.webloc"_s, u"a.b.webloc"_s}));
    EXPECT_EQ(ShortcutURL::target(*written), u"https://a/?x=1&y=<2>"_s);
}

TEST(ShortcutWriter, RefusesInvalidNamesBeforeTouchingTheDisk)
{
    EXPECT_EQ(create(u"Trip"_s, u" \r\n\u2029"_s), std::unexpected(WriteError::invalidName));
    for (const QString &name :
         {u""_s, u" \t\n"_s, u" .profile"_s, u"a/b"_s, u"a:b"_s, u"evil.desktop\u0000tail"_s,
          u"a\tb"_s, u"a\u007Fb"_s, u"a\u0085b"_s, QString(u"a\xD800"_s) + u'b'})
        EXPECT_EQ(create(name), std::unexpected(WriteError::invalidName)) << name.toStdString();
    EXPECT_FALSE(QDir(test::homePath() + u"/conflocal"_s).exists());
}

TEST(ShortcutWriter, NeverReplacesAnythingAndLeavesNothingWhenItFails)
{
    test::writeFile(test::shortcutFolder(), "a file where the folder belongs");
    EXPECT_FALSE(FileIndex::directoryExists());
    EXPECT_EQ(create(u"Trip"_s), std::unexpected(WriteError::writeFailed));
    EXPECT_EQ(test::readFile(test::shortcutFolder()), "a file where the folder belongs");
    ASSERT_TRUE(QFile::remove(test::shortcutFolder()));

    test::writeFile(inFolder(u"File.webloc"_s), "mine");
    ASSERT_TRUE(QDir().mkpath(inFolder(u"Folder.webloc"_s)));
    ASSERT_TRUE(QFile::link(inFolder(u"nowhere"_s), inFolder(u"Dangling.webloc"_s)));
    for (const QString &name : {u"File"_s, u"Folder"_s, u"Dangling"_s})
        EXPECT_EQ(create(name), std::unexpected(WriteError::alreadyExists)) << name.toStdString();
    EXPECT_EQ(create(QString(300, u'n')), std::unexpected(WriteError::writeFailed));
    EXPECT_EQ(create(u"Trip"_s, u"https://a/\u0001"_s), std::unexpected(WriteError::writeFailed));
    EXPECT_EQ(test::readFile(inFolder(u"File.webloc"_s)), "mine");
    EXPECT_EQ(folderEntries(),
              QStringList({u"Dangling.webloc"_s, u"File.webloc"_s, u"Folder.webloc"_s}));
}

// Two writers saving one name at once: whichever comes second finds the name taken, even when
// both looked before either wrote.
TEST(ShortcutWriter, OfTwoWritersRacingForANameTheLoserFindsItTaken)
{
    ASSERT_TRUE(QDir().mkpath(test::shortcutFolder()));
    for (int round = 0; round < 100; ++round) {
        std::latch start(2);
        std::expected<QUrl, WriteError> results[2];
        const auto write = [&](int i) {
            start.arrive_and_wait();
            results[i] = create(u"Race "_s + QString::number(round));
        };
        {
            const std::jthread first(write, 0), second(write, 1);
        }
        ASSERT_NE(results[0].has_value(), results[1].has_value()) << round;
        EXPECT_EQ((results[0] ? results[1] : results[0]).error(), WriteError::alreadyExists);
    }
}

// A save clears a temporary too old for any writer to hold, and nothing that merely looks like one.
TEST(ShortcutWriter, ClearsOldTemporariesAndNothingThatMerelyLooksLikeOne)
{
    const timespec anHourAgo[2] = {{::time(nullptr) - 3600, 0}, {::time(nullptr) - 3600, 0}};
    for (const QString &name :
         {u".pindle-old.tmp"_s, u"pindle-old.tmp"_s, u".pindle-old.tmp.keep"_s, u"target"_s}) {
        test::writeFile(inFolder(name), "leftover");
        ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(inFolder(name)), anHourAgo, 0), 0);
    }
    test::writeFile(inFolder(u".pindle-fresh.tmp"_s), "leftover");
    ASSERT_TRUE(QFile::link(inFolder(u"target"_s), inFolder(u".pindle-link.tmp"_s)));
    ASSERT_TRUE(create(u"New"_s).has_value());
    EXPECT_EQ(folderEntries(),
              QStringList({u".pindle-fresh.tmp"_s, u".pindle-link.tmp"_s, u".pindle-old.tmp.keep"_s,
                           u"New.webloc"_s, u"pindle-old.tmp"_s, u"target"_s}));
}

} // namespace
