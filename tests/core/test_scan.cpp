#include "core/FileIndex.h"
#include "core/SearchIndex.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>
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

// A rescan takes the records of unchanged entries from the scan before; whatever changed in
// between must show as a scan from nothing would show it.
TEST(ScanRescan, SharesUnchangedRecordsAndSeesEveryChange)
{
    for (int i = 0; i < 40; ++i)
        test::writeFile(inFolder(u"page %1.webloc"_qs.arg(i)), {});
    const QList<IndexedFile> before = FileIndex::scan();
    ASSERT_EQ(before.size(), 40);

    ASSERT_TRUE(QFile::remove(inFolder(u"page 3.webloc"_qs)));
    ASSERT_TRUE(QFile::rename(inFolder(u"page 7.webloc"_qs), inFolder(u"Seven.url"_qs)));
    ASSERT_TRUE(QFile::remove(inFolder(u"page 11.webloc"_qs)));
    ASSERT_TRUE(QDir().mkpath(inFolder(u"page 11.webloc"_qs)));
    test::writeFile(inFolder(u"added.inetloc"_qs), {});
    const QList<IndexedFile> rescanned = FileIndex::scan();
    detail::forgetScannedRecords();
    const QList<IndexedFile> fresh = FileIndex::scan();

    ASSERT_EQ(rescanned.size(), 39);
    ASSERT_EQ(fresh.size(), rescanned.size());
    for (qsizetype i = 0; i < fresh.size(); ++i) {
        EXPECT_EQ(rescanned[i].url, fresh[i].url);
        EXPECT_EQ(rescanned[i].displayName, fresh[i].displayName);
        ASSERT_TRUE(rescanned[i].prepared);
        EXPECT_EQ(rescanned[i].prepared->collationKey, fresh[i].prepared->collationKey);
    }
    EXPECT_EQ(rescanned.first().displayName, u"added"_qs);
    EXPECT_EQ(rescanned.last().displayName, u"Seven"_qs);
    const auto sharedWithBefore = std::ranges::count_if(rescanned, [&](const IndexedFile &file) {
        return std::ranges::any_of(before, [&](const IndexedFile &old) {
            return old.prepared == file.prepared && old.url == file.url;
        });
    });
    EXPECT_EQ(sharedWithBefore, 37);
    EXPECT_EQ(FileIndex::search(u"seven"_qs, rescanned, 5).first().file.displayName, u"Seven"_qs);
}

TEST(ScanFolder, TellsAMissingFolderFromAnEmptyOne)
{
    EXPECT_EQ(FileIndex::directory(),
              QUrl::fromLocalFile(test::homePath() + u"/conflocal/urls"_qs));
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
