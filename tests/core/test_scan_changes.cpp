// Whatever changed on disk before a scan must show in it as a scan from nothing shows it, though
// the scan keeps what it read while the folder watch sees no change.

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QMap>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace pindle;
using test::writeWebloc;

namespace {

QString inFolder(const QString &name)
{
    return test::shortcutFolder() + u'/' + name;
}

// Display name -> target (or "-" for none), as a panel would ask for them after a scan.
QMap<QString, QString> scannedTargets()
{
    QMap<QString, QString> targets;
    for (const IndexedFile &file : FileIndex::scan())
        targets.insert(file.displayName, ShortcutURL::target(file.url).value_or(u"-"_qs));
    return targets;
}

// Rewrites a file where it is, keeping its inode, as an editor that saves in place does.
void rewriteInPlace(const QString &path, const QString &url)
{
    const QString staged = test::writeWebloc(u".staged"_qs, url);
    const QByteArray bytes = test::readFile(staged);
    ASSERT_TRUE(QFile::remove(staged));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite | QIODevice::Truncate));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

TEST(ScanChanges, SeesFilesAddedRemovedRenamedAndRewrittenAtTheNextScan)
{
    for (const char *name : {"kept", "removed", "renamed", "rewritten", "replaced"})
        writeWebloc(QString::fromLatin1(name), u"https://old/"_qs + QString::fromLatin1(name));
    (void)scannedTargets();

    writeWebloc(u"added"_qs, u"https://new/added"_qs);
    ASSERT_TRUE(QFile::remove(inFolder(u"removed.webloc"_qs)));
    ASSERT_TRUE(QFile::rename(inFolder(u"renamed.webloc"_qs), inFolder(u"moved.webloc"_qs)));
    rewriteInPlace(inFolder(u"rewritten.webloc"_qs), u"https://new/rewritten"_qs);
    // Written beside and renamed over, as a sync client saves.
    writeWebloc(u".partial"_qs, u"https://new/replaced"_qs);
    ASSERT_EQ(::rename(QFile::encodeName(inFolder(u".partial.webloc"_qs)).constData(),
                       QFile::encodeName(inFolder(u"replaced.webloc"_qs)).constData()),
              0);

    const QMap<QString, QString> expected = {{u"added"_qs, u"https://new/added"_qs},
                                             {u"kept"_qs, u"https://old/kept"_qs},
                                             {u"moved"_qs, u"https://old/renamed"_qs},
                                             {u"replaced"_qs, u"https://new/replaced"_qs},
                                             {u"rewritten"_qs, u"https://new/rewritten"_qs}};
    EXPECT_EQ(scannedTargets(), expected);
}

TEST(ScanChanges, SeesTheFolderRemovedRecreatedMovedOrReplacedByALink)
{
    const QString folder = test::shortcutFolder();
    const QString conflocal = test::homePath() + u"/conflocal"_qs;
    writeWebloc(u"page"_qs, u"https://first/"_qs);
    EXPECT_EQ(scannedTargets().value(u"page"_qs), u"https://first/"_qs);

    ASSERT_TRUE(QDir(folder).removeRecursively());
    writeWebloc(u"page"_qs, u"https://recreated/"_qs);
    EXPECT_EQ(scannedTargets().value(u"page"_qs), u"https://recreated/"_qs);

    ASSERT_TRUE(QDir().rename(folder, conflocal + u"/moved"_qs));
    writeWebloc(u"page"_qs, u"https://after-move/"_qs);
    EXPECT_EQ(scannedTargets().value(u"page"_qs), u"https://after-move/"_qs);

    const QString elsewhere = test::homePath() + u"/elsewhere"_qs;
    test::writeFile(elsewhere + u"/page.url"_qs, "URL=https://linked/\n");
    ASSERT_TRUE(QDir(folder).removeRecursively());
    ASSERT_TRUE(QFile::link(elsewhere, folder));
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"page"_qs, u"https://linked/"_qs}}));

    // The folder above renamed, and a new one made in its place.
    ASSERT_TRUE(QDir().rename(conflocal, test::homePath() + u"/old-conflocal"_qs));
    writeWebloc(u"other"_qs, u"https://other/"_qs);
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"other"_qs, u"https://other/"_qs}}));
}

// A large folder's answers are freed beside the interface; the new folder's are read afresh.
TEST(ScanChanges, ForgetsTheTargetsOfALargeFolderReplacedByAnother)
{
    const QString folder = test::shortcutFolder();
    for (int i = 0; i < 4200; ++i)
        writeWebloc(u"page "_qs + QString::number(i), u"https://old/"_qs);
    EXPECT_EQ(scannedTargets().size(), 4200);

    ASSERT_TRUE(QDir().rename(folder, test::homePath() + u"/old-urls"_qs));
    writeWebloc(u"page 7"_qs, u"https://new/"_qs);
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"page 7"_qs, u"https://new/"_qs}}));
}

TEST(ScanChanges, RereadsFilesWhoseChangesTheFolderCannotSee)
{
    const QString outside = test::homePath() + u"/outside.url"_qs;
    const QString secondName = test::homePath() + u"/second-name.url"_qs;
    test::writeFile(outside, "URL=https://link/1\n");
    test::writeFile(inFolder(u"hard.url"_qs), "URL=https://hard/1\n");
    ASSERT_TRUE(QFile::link(outside, inFolder(u"linked.url"_qs)));
    ASSERT_EQ(::link(QFile::encodeName(inFolder(u"hard.url"_qs)).constData(),
                     QFile::encodeName(secondName).constData()),
              0);
    (void)scannedTargets();

    test::writeFile(outside, "URL=https://link/2\n");
    test::writeFile(secondName, "URL=https://hard/2\n");
    const QMap<QString, QString> expected = {{u"hard"_qs, u"https://hard/2"_qs},
                                             {u"linked"_qs, u"https://link/2"_qs}};
    EXPECT_EQ(scannedTargets(), expected);

    // A link whose file becomes a folder is no longer listed.
    ASSERT_TRUE(QFile::remove(outside));
    ASSERT_TRUE(QDir().mkpath(outside));
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"hard"_qs, u"https://hard/2"_qs}}));
}

} // namespace
