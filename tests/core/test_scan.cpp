#include "core/FileIndex.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace pindle;
using test::inFolder;

namespace {

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
    ASSERT_TRUE(QFile::link(inFolder(u"readme.txt"_s), inFolder(u"link.webloc"_s)));
    ASSERT_TRUE(QFile::link(inFolder(u"work.webloc"_s), inFolder(u"folder.webloc"_s)));

    EXPECT_EQ(scannedNames(),
              QStringList({u"#1 ?odd%"_s, u"#2 ?[x] \u00E9 100"_s, u"archive"_s, u"dots."_s,
                           u"Example"_s, u"Go"_s, u"link"_s, u"readme.txt"_s, u"Trip.Plans"_s}));
    const QList<IndexedFile> files = FileIndex::scan();
    EXPECT_EQ(files[0].url, QUrl::fromLocalFile(inFolder(u"#1 ?odd%.url"_s)));
    EXPECT_EQ(files[1].url, QUrl::fromLocalFile(inFolder(u"#2 ?[x] \u00E9 100.url"_s)));
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
            name.startsWith(u"docs"_s, Qt::CaseInsensitive))
            docsInListingOrder.append(name);
    }

    EXPECT_EQ(scannedNames(false), QStringList()
                                       << u"apple.txt"_s << u"Banana.url"_s << docsInListingOrder
                                       << u"item 2.webloc"_s << u"item 10.webloc"_s);
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
