// What a scan lists, in which order, and that whatever changed on disk before a scan shows in it
// as a scan from nothing shows it, though the scan keeps what it read while the folder watch sees
// no change.

#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>

#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

using namespace Qt::StringLiterals;

using namespace pindle;
using test::inFolder;
using test::writeWebloc;

namespace {

QStringList scannedFileNames()
{
    QStringList names;
    for (const IndexedFile &file : FileIndex::scan())
        names.append(file.url.fileName() + u" as "_s + file.displayName);
    return names;
}

// Display name -> target (or "-" for none), as a panel would ask for them after a scan.
QMap<QString, QString> scannedTargets()
{
    QMap<QString, QString> targets;
    for (const IndexedFile &file : FileIndex::scan())
        targets.insert(file.displayName, ShortcutURL::target(file.url).value_or(u"-"_s));
    return targets;
}

void renameOver(const QString &from, const QString &to)
{
    ASSERT_EQ(::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()), 0);
}

// CTest runs every case in a process of its own, so the collator is made under this locale.
TEST(Scan, ListsVisibleFilesAndLinksToThemInTheFileBrowsersOrder)
{
    setenv("LC_ALL", "C", 1);
    for (const char *name : {"Example.WEBLOC", "Trip.Plans.Url", "item 10.inetloc", "item 2.txt",
                             "archive", "dots.", ".hidden.webloc", "work.webloc/inner.url",
                             "#1 ?odd%.url", "docs.url", "Docs.webloc", "DOCS.inetloc"})
        test::writeFile(inFolder(QString::fromUtf8(name)), {});
    ASSERT_TRUE(QFile::link(inFolder(u"archive"_s), inFolder(u"link.webloc"_s)));
    ASSERT_TRUE(QFile::link(inFolder(u"work.webloc"_s), inFolder(u"folder.webloc"_s)));
    // Equal names keep the order the folder lists them in.
    QStringList docs;
    for (QDirIterator it(test::shortcutFolder(), QDir::Files); it.hasNext();) {
        if (const QString name = it.nextFileInfo().fileName();
            name.startsWith(u"docs"_s, Qt::CaseInsensitive))
            docs.append(name + u" as "_s + name.section(u'.', 0, 0));
    }

    const QStringList expected = QStringList{u"#1 ?odd%.url as #1 ?odd%"_s, u"archive as archive"_s}
                                 << docs << u"dots. as dots."_s << u"Example.WEBLOC as Example"_s
                                 << u"item 2.txt as item 2.txt"_s << u"item 10.inetloc as item 10"_s
                                 << u"link.webloc as link"_s << u"Trip.Plans.Url as Trip.Plans"_s;
    EXPECT_EQ(scannedFileNames(), expected);
}

TEST(Scan, TellsAMissingFolderFromAnEmptyOne)
{
    EXPECT_FALSE(FileIndex::directoryExists());
    ASSERT_TRUE(QDir().mkpath(test::shortcutFolder()));
    EXPECT_TRUE(FileIndex::directoryExists());
    EXPECT_TRUE(FileIndex::scan().isEmpty());
    ASSERT_TRUE(QDir(test::shortcutFolder()).removeRecursively());
    test::writeFile(test::shortcutFolder(), "not a folder");
    EXPECT_FALSE(FileIndex::directoryExists());
    EXPECT_TRUE(FileIndex::scan().isEmpty());
}

TEST(ScanChanges, SeesFilesAddedRemovedRenamedAndRewrittenAtTheNextScan)
{
    for (const char *name : {"kept", "removed", "renamed", "rewritten", "replaced"})
        writeWebloc(QString::fromLatin1(name), u"https://old/"_s + QString::fromLatin1(name));
    (void)scannedTargets();

    writeWebloc(u"added"_s, u"https://new/added"_s);
    ASSERT_TRUE(QFile::remove(inFolder(u"removed.webloc"_s)));
    ASSERT_TRUE(QFile::rename(inFolder(u"renamed.webloc"_s), inFolder(u"moved.webloc"_s)));
    // Rewritten where it is, keeping its inode, as an editor that saves in place does.
    const QByteArray bytes = test::readFile(writeWebloc(u".new"_s, u"https://new/rewritten"_s));
    QFile rewritten(inFolder(u"rewritten.webloc"_s));
    ASSERT_TRUE(rewritten.open(QIODevice::ReadWrite | QIODevice::Truncate));
    ASSERT_EQ(rewritten.write(bytes), bytes.size());
    rewritten.close();
    // Written beside and renamed over, as a sync client saves.
    renameOver(writeWebloc(u".new"_s, u"https://new/replaced"_s), inFolder(u"replaced.webloc"_s));

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
    // Large enough that the old folder's answers are freed beside the interface.
    for (int i = 0; i < 4200; ++i)
        writeWebloc(u"page "_s + QString::number(i), u"https://first/"_s);
    EXPECT_EQ(scannedTargets().size(), 4200);
    ASSERT_TRUE(QDir(folder).removeRecursively());
    writeWebloc(u"page 7"_s, u"https://recreated/"_s);
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"page 7"_s, u"https://recreated/"_s}}));

    ASSERT_TRUE(QDir().rename(folder, conflocal + u"/moved"_s));
    writeWebloc(u"page"_s, u"https://after-move/"_s);
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"page"_s, u"https://after-move/"_s}}));

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
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"hard"_s, u"https://hard/2"_s},
                                                        {u"linked"_s, u"https://link/2"_s}}));
    // A link whose file becomes a folder is no longer listed.
    ASSERT_TRUE(QFile::remove(outside));
    ASSERT_TRUE(QDir().mkpath(outside));
    EXPECT_EQ(scannedTargets(), (QMap<QString, QString>{{u"hard"_s, u"https://hard/2"_s}}));
}

} // namespace
