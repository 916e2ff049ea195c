#include "core/FileIndex.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace pindle;

namespace {

QString inFolder(const QString &name)
{
    return test::shortcutFolder() + u'/' + name;
}

QStringList scannedNames(bool asDisplayed = true)
{
    QStringList names;
    for (const IndexedFile &file : FileIndex::scan())
        names.append(asDisplayed ? file.displayName : file.url.fileName());
    return names;
}

TEST(ScanListing, ListsVisibleRegularFilesAndLinksToThemUnderTheirDisplayNames)
{
    for (const char *name :
         {"Example.WEBLOC", "Trip.Plans.Url", "Go.inetloc", "readme.txt", "archive", "dots.",
          ".hidden.webloc", "work.webloc/inner.url", "#1 ?odd%.url", "#2 ?[x] \u00E9 100.url"})
        test::writeFile(inFolder(QString::fromUtf8(name)), {});
    ASSERT_TRUE(QFile::link(inFolder(u"readme.txt"_qs), inFolder(u"link.webloc"_qs)));
    ASSERT_TRUE(QFile::link(inFolder(u"work.webloc"_qs), inFolder(u"folder.webloc"_qs)));

    EXPECT_EQ(scannedNames(), QStringList({u"#1 ?odd%"_qs, u"#2 ?[x] \u00E9 100"_qs, u"archive"_qs,
                                           u"dots."_qs, u"Example"_qs, u"Go"_qs, u"link"_qs,
                                           u"readme.txt"_qs, u"Trip.Plans"_qs}));
    const QList<IndexedFile> files = FileIndex::scan();
    EXPECT_EQ(files[0].url, QUrl::fromLocalFile(inFolder(u"#1 ?odd%.url"_qs)));
    EXPECT_EQ(files[1].url, QUrl::fromLocalFile(inFolder(u"#2 ?[x] \u00E9 100.url"_qs)));
}

// CTest runs every case in a process of its own, so the collator is made under this locale.
TEST(ScanOrder, FollowsTheFileBrowserInTheCLocaleAndKeepsEqualNamesInListingOrder)
{
    setenv("LC_ALL", "C", 1);
    for (const char *name : {"item 10.webloc", "Banana.url", "item 2.webloc", "apple.txt",
                             "Docs.webloc", "docs.url", "DOCS.inetloc", "Docs.URL"})
        test::writeFile(inFolder(QString::fromUtf8(name)), {});
    QStringList docsInListingOrder;
    for (QDirIterator it(test::shortcutFolder(), QDir::Files); it.hasNext();) {
        if (const QString name = it.nextFileInfo().fileName();
            name.startsWith(u"docs"_qs, Qt::CaseInsensitive))
            docsInListingOrder.append(name);
    }

    EXPECT_EQ(scannedNames(false), QStringList()
                                       << u"apple.txt"_qs << u"Banana.url"_qs << docsInListingOrder
                                       << u"item 2.webloc"_qs << u"item 10.webloc"_qs);
}

TEST(ScanFolder, TellsAMissingFolderFromAnEmptyOne)
{
    EXPECT_FALSE(FileIndex::directoryExists());
    EXPECT_TRUE(FileIndex::scan().isEmpty());

    ASSERT_TRUE(QDir().mkpath(test::shortcutFolder()));
    EXPECT_TRUE(FileIndex::directoryExists());
    EXPECT_TRUE(FileIndex::scan().isEmpty());

    ASSERT_TRUE(QDir(test::shortcutFolder()).removeRecursively());
    test::writeFile(test::shortcutFolder(), "not a folder");
    EXPECT_FALSE(FileIndex::directoryExists());
    EXPECT_TRUE(FileIndex::scan().isEmpty());
}

} // namespace
