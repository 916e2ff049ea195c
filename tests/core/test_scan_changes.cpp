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

using namespace Qt::StringLiterals;

using namespace pindle;
using test::inFolder;
using test::writeWebloc;

namespace {

// Display name -> target (or "-" for none), as a panel would ask for them after a scan.
QMap<QString, QString> scannedTargets()
{
    QMap<QString, QString> targets;
    for (const IndexedFile &file : FileIndex::scan())
        targets.insert(file.displayName, ShortcutURL::target(file.url).value_or(u"-"_s));
    return targets;
}

// Rewrites a file where it is, keeping its inode, as an editor that saves in place does.
void rewriteInPlace(const QString &path, const QString &url)
{
    const QString staged = test::writeWebloc(u".staged"_s, url);
    const QByteArray bytes = test::readFile(staged);
    ASSERT_TRUE(QFile::remove(staged));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite | QIODevice::Truncate));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

TEST(ScanChanges, SeesFilesAddedRemovedRenamedAndRewrittenAtTheNextScan)
{
    for (const char *name : {"kept", "removed", "renamed", "rewritten", "replaced"})
        writeWebloc(QString::fromLatin1(name), u"https://old/"_s + QString::fromLatin1(name));
    (void)scannedTargets();

    writeWebloc(u"added"_s, u"https://new/added"_s);
    ASSERT_TRUE(QFile::remove(inFolder(u"removed.webloc"_s)));
    ASSERT_TRUE(QFile::rename(inFolder(u"renamed.webloc"_s), inFolder(u"moved.webloc"_s)));
    rewriteInPlace(inFolder(u"rewritten.webloc"_s), u"https://new/rewritten"_s);
    // Written beside and renamed over, as a sync client saves.
    writeWebloc(u".partial"_s, u"https://new/replaced"_s);
    ASSERT_EQ(::rename(QFile::encodeName(inFolder(u".partial.webloc"_s)).constData(),
                       QFile::encodeName(inFolder(u"replaced.webloc"_s)).constData()),
              0);

    const QMap<QString, QString> expected = {{u"added"_s, u"https://new/added"_s},
                                             {u"kept"_s, u"https://old/kept"_s},
                                             {u"moved"_s, u"https://old/renamed"_s},
                                             {u"replaced"_s, u"https://new/replaced"_s},
                                             {u"rewritten"_s, u"https://new/rewritten"_s}};
    EXPECT_EQ(scannedTargets(), expected);
}

TEST(ScanChanges, SeesTheFolderRemovedRecreatedMovedOrReplacedByALink)
{
    const QString folder = test::shortcutFolder();
    const QString conflocal = test::homePath() + u"/conflocal"_s;
    writeWebloc(u"page"_s, u"https://first/"_s);
    EXPECT_EQ(scannedTargets().value(u"page"_s), u"https://first/"_s);

    ASSERT_TRUE(QDir(folder).removeRecursively());
    writeWebloc(u"page"_s, u"https://recreated/"_s);
    EXPECT_EQ(scannedTargets().value(u"page"_s), u"https://recreated/"_s);

    ASSERT_TRUE(QDir().rename(folder, conflocal + u"/moved"_s));
    writeWebloc(u"page"_s, u"https://after-move/"_s);
    EXPECT_EQ(scannedTargets().value(u"page"_s), u"https://after-move/"_s);

    const QString elsewhere = test::homePath() + u"/elsewhere"_s;
    test::writeFile(elsewhere + u"/page.url"_s, "URL=https://linked/\n");
    ASSERT_TRUE(QDir(folder).removeRecursively());
    ASSERT_TRUE(QFile::link(elsewhere, folder));
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"page"_s, u"https://linked/"_s}}));

    // The folder above renamed, and a new one made in its place.
    ASSERT_TRUE(QDir().rename(conflocal, test::homePath() + u"/old-conflocal"_s));
    writeWebloc(u"other"_s, u"https://other/"_s);
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"other"_s, u"https://other/"_s}}));
}

// A large folder's answers are freed beside the interface; the new folder's are read afresh.
TEST(ScanChanges, ForgetsTheTargetsOfALargeFolderReplacedByAnother)
{
    const QString folder = test::shortcutFolder();
    for (int i = 0; i < 4200; ++i)
        writeWebloc(u"page "_s + QString::number(i), u"https://old/"_s);
    EXPECT_EQ(scannedTargets().size(), 4200);

    ASSERT_TRUE(QDir().rename(folder, test::homePath() + u"/old-urls"_s));
    writeWebloc(u"page 7"_s, u"https://new/"_s);
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"page 7"_s, u"https://new/"_s}}));
}

TEST(ScanChanges, RereadsFilesWhoseChangesTheFolderCannotSee)
{
    const QString outside = test::homePath() + u"/outside.url"_s;
    const QString secondName = test::homePath() + u"/second-name.url"_s;
    test::writeFile(outside, "URL=https://link/1\n");
    test::writeFile(inFolder(u"hard.url"_s), "URL=https://hard/1\n");
    ASSERT_TRUE(QFile::link(outside, inFolder(u"linked.url"_s)));
    ASSERT_EQ(::link(QFile::encodeName(inFolder(u"hard.url"_s)).constData(),
                     QFile::encodeName(secondName).constData()),
              0);
    (void)scannedTargets();

    test::writeFile(outside, "URL=https://link/2\n");
    test::writeFile(secondName, "URL=https://hard/2\n");
    const QMap<QString, QString> expected = {{u"hard"_s, u"https://hard/2"_s},
                                             {u"linked"_s, u"https://link/2"_s}};
    EXPECT_EQ(scannedTargets(), expected);

    // A link whose file becomes a folder is no longer listed.
    ASSERT_TRUE(QFile::remove(outside));
    ASSERT_TRUE(QDir().mkpath(outside));
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"hard"_s, u"https://hard/2"_s}}));
}

} // namespace
