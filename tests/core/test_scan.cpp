#include "core/FileIndex.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace pindle;

namespace {

QString inFolder(const QString &name)
{
    return test::shortcutFolder() + u'/' + name;
}

void writeEmptyFiles(const QStringList &names)
{
    for (const QString &name : names)
        test::writeFile(inFolder(name), {});
}

QStringList displayNames(const QList<IndexedFile> &files)
{
    QStringList names;
    for (const IndexedFile &file : files)
        names.append(file.displayName);
    return names;
}

TEST(ScanListing, StripsOnlyShortcutExtensionsWhateverTheirCase)
{
    const QStringList names = {u"Example.WEBLOC"_qs, u"Trip.Plans.Url"_qs, u"Go.inetloc"_qs,
                               u"readme.txt"_qs,     u"archive"_qs,        u"dots."_qs,
                               u"webloc"_qs};
    writeEmptyFiles(names);

    QMap<QString, QString> displayNameByFile;
    for (const IndexedFile &file : FileIndex::scan()) {
        EXPECT_EQ(file.url, QUrl::fromLocalFile(inFolder(file.url.fileName())));
        displayNameByFile.insert(file.url.fileName(), file.displayName);
    }
    const QMap<QString, QString> expected = {
        {u"Example.WEBLOC"_qs, u"Example"_qs}, {u"Trip.Plans.Url"_qs, u"Trip.Plans"_qs},
        {u"Go.inetloc"_qs, u"Go"_qs},          {u"readme.txt"_qs, u"readme.txt"_qs},
        {u"archive"_qs, u"archive"_qs},        {u"dots."_qs, u"dots."_qs},
        {u"webloc"_qs, u"webloc"_qs}};
    EXPECT_EQ(displayNameByFile, expected);
}

TEST(ScanListing, ListsVisibleRegularFilesDirectlyInTheFolderAndLinksToThem)
{
    writeEmptyFiles({u"plain.webloc"_qs, u".hidden.webloc"_qs, u"work.webloc/inner.webloc"_qs,
                     u"# odd ?name%.url"_qs});
    ASSERT_TRUE(QFile::link(inFolder(u"plain.webloc"_qs), inFolder(u"link.webloc"_qs)));
    ASSERT_TRUE(QFile::link(inFolder(u"work.webloc"_qs), inFolder(u"folderlink.webloc"_qs)));

    const QList<IndexedFile> files = FileIndex::scan();
    EXPECT_EQ(displayNames(files), QStringList({u"# odd ?name%"_qs, u"link"_qs, u"plain"_qs}));
    ASSERT_FALSE(files.isEmpty());
    EXPECT_EQ(files.first().url.toLocalFile(), inFolder(u"# odd ?name%.url"_qs));
}

// CTest runs every case in a process of its own, so the collator is built under this locale.
TEST(ScanOrder, FollowsTheFileBrowserEvenInTheCLocale)
{
    setenv("LC_ALL", "C", 1);
    writeEmptyFiles({u"item 10.webloc"_qs, u"Banana.url"_qs, u"item 2.webloc"_qs, u"apple.txt"_qs,
                     u"Item 3.inetloc"_qs, u"item 02b.webloc"_qs});
    EXPECT_EQ(displayNames(FileIndex::scan()),
              QStringList({u"apple.txt"_qs, u"Banana"_qs, u"item 2"_qs, u"item 02b"_qs,
                           u"Item 3"_qs, u"item 10"_qs}));
}

TEST(ScanOrder, KeepsTheListingOrderOfNamesThatCompareEqual)
{
    const QStringList names = {u"Docs.webloc"_qs, u"docs.url"_qs, u"DOCS.inetloc"_qs,
                               u"Docs.Url"_qs,    u"a.txt"_qs,    u"z.txt"_qs};
    writeEmptyFiles(names);
    QStringList listingOrder;
    for (QDirIterator it(test::shortcutFolder(), QDir::Files); it.hasNext();) {
        const QString name = it.nextFileInfo().fileName();
        if (name.startsWith(u"docs", Qt::CaseInsensitive))
            listingOrder.append(name);
    }

    QStringList scanned;
    for (const IndexedFile &file : FileIndex::scan())
        scanned.append(file.url.fileName());
    EXPECT_EQ(scanned, QStringList() << u"a.txt"_qs << listingOrder << u"z.txt"_qs);
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
