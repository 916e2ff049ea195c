// What a scan lists, on the spot or on the worker as for a large folder; and that whatever
// changed on disk before it, or while the worker lists or reads, shows in it.

#include "core/FolderScanner.h"
#include "core/ShortcutURL.h"
#include "core/TargetReader.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
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

QStringList namesOf(const QList<IndexedFile> &files)
{
    QStringList names;
    for (const IndexedFile &file : files)
        names.append(file.url.fileName() + u" as "_s + file.displayName);
    return names;
}

// Written beside and renamed over the file at path, as a sync client saves.
void replace(const QString &path, const QString &url)
{
    const QString staged = writeWebloc(u".staged"_s, url);
    ASSERT_EQ(::rename(QFile::encodeName(staged), QFile::encodeName(path)), 0);
}

// Names whose sort order is not their listing order, with case, accents and digits in them.
void writeMixedFolder(int count)
{
    const QStringList stems = {u"zeta"_s,    u"Alpha"_s,  u"\u00e9t\u00e9"_s,
                               u"beta 10"_s, u"beta 9"_s, u"Beta"_s};
    for (int i = 0; i < count; ++i)
        writeWebloc(stems[i % stems.size()] + u' ' + QString::number(i * 7919 % count),
                    u"https://example.org/"_s + QString::number(i));
}

class Scan : public testing::Test
{
protected:
    // The folder listed on the worker, which must give the list of a scan on the spot.
    QList<IndexedFile> listed()
    {
        std::optional<QList<IndexedFile>> now = scanner.scan();
        if (!now) {
            scanner.waitForScan();
            now = delivered;
        }
        EXPECT_EQ(namesOf(*now), namesOf(FileIndex::scan()));
        return *now;
    }

    // Display name -> target (or "-" for none), as a panel would ask for them after a scan.
    QMap<QString, QString> listedTargets()
    {
        QMap<QString, QString> targets;
        for (const IndexedFile &file : listed())
            targets.insert(file.displayName, ShortcutURL::target(file.url).value_or(u"-"_s));
        return targets;
    }

    QObject context;
    QList<IndexedFile> delivered;
    FolderScanner scanner{&context, [this](const QList<IndexedFile> &files) { delivered = files; }};
    TargetReader reader{&context, [] {}};
};

// CTest runs every case in a process of its own, so the collator is made under this locale.
TEST_F(Scan, ListsVisibleFilesAndLinksToThemInTheFileBrowsersOrder)
{
    setenv("LC_ALL", "C", 1);
    scanner.setMostBytesInPlace(0);
    for (const char *name :
         {"Example.WEBLOC", "Trip.Plans.Url", "item 10.inetloc", "item 2.txt", "archive", "dots.",
          "Docs.webloc", ".hidden.webloc", "work.webloc/inner.url"})
        test::writeFile(inFolder(QString::fromUtf8(name)), {});
    ASSERT_TRUE(QFile::link(inFolder(u"archive"_s), inFolder(u"link.webloc"_s)));
    ASSERT_TRUE(QFile::link(inFolder(u"work.webloc"_s), inFolder(u"folder.webloc"_s)));
    EXPECT_EQ(namesOf(listed()),
              (QStringList{u"archive as archive"_s, u"Docs.webloc as Docs"_s, u"dots. as dots."_s,
                           u"Example.WEBLOC as Example"_s, u"item 2.txt as item 2.txt"_s,
                           u"item 10.inetloc as item 10"_s, u"link.webloc as link"_s,
                           u"Trip.Plans.Url as Trip.Plans"_s}));
}

TEST_F(Scan, SeesTheFolderRemovedRecreatedMovedOrReplacedByALink)
{
    const QString folder = test::shortcutFolder();
    const QString conflocal = test::homePath() + u"/conflocal"_s;
    // Large enough that the old folder's answers are freed beside the interface.
    for (int i = 0; i < 4200; ++i)
        writeWebloc(u"page "_s + QString::number(i), u"https://first/"_s);
    EXPECT_EQ(listedTargets().size(), 4200);
    ASSERT_TRUE(QDir(folder).removeRecursively());
    writeWebloc(u"page 7"_s, u"https://recreated/"_s);
    EXPECT_EQ(listedTargets(), (QMap<QString, QString>{{u"page 7"_s, u"https://recreated/"_s}}));

    ASSERT_TRUE(QDir().rename(folder, conflocal + u"/moved"_s));
    writeWebloc(u"page"_s, u"https://after-move/"_s);
    EXPECT_EQ(listedTargets(), (QMap<QString, QString>{{u"page"_s, u"https://after-move/"_s}}));

    const QString elsewhere = test::homePath() + u"/elsewhere"_s;
    test::writeFile(elsewhere + u"/page.url"_s, "URL=https://linked/\n");
    ASSERT_TRUE(QDir(folder).removeRecursively());
    ASSERT_TRUE(QFile::link(elsewhere, folder));
    EXPECT_EQ(listedTargets(), (QMap<QString, QString>{{u"page"_s, u"https://linked/"_s}}));

    // The folder above renamed, and a new one made in its place.
    ASSERT_TRUE(QDir().rename(conflocal, test::homePath() + u"/old-conflocal"_s));
    writeWebloc(u"other"_s, u"https://other/"_s);
    EXPECT_EQ(listedTargets(), (QMap<QString, QString>{{u"other"_s, u"https://other/"_s}}));
}

// A link to a file elsewhere: the folder watch can't see the file change.
TEST_F(Scan, RereadsFilesWhoseChangesTheFolderCannotSee)
{
    const QString outside = test::homePath() + u"/outside.url"_s;
    test::writeFile(outside, "URL=https://link/1\n");
    ASSERT_TRUE(QDir().mkpath(test::shortcutFolder()));
    ASSERT_TRUE(QFile::link(outside, inFolder(u"linked.url"_s)));
    EXPECT_EQ(listedTargets().value(u"linked"_s), u"https://link/1"_s);
    test::writeFile(outside, "URL=https://link/2\n");
    EXPECT_EQ(listedTargets().value(u"linked"_s), u"https://link/2"_s);
    // The file becomes a folder: the link is no longer listed.
    ASSERT_TRUE(QFile::remove(outside));
    ASSERT_TRUE(QDir().mkpath(outside));
    EXPECT_TRUE(listedTargets().isEmpty());
}

TEST_F(Scan, SeesFilesAddedRemovedRenamedOrRewrittenEvenWhileTheWorkerLists)
{
    scanner.setMostBytesInPlace(0);
    writeMixedFolder(600);
    for (const char *name : {"kept", "removed", "renamed", "replaced"})
        writeWebloc(QString::fromLatin1(name), u"https://old/"_s + QString::fromLatin1(name));
    test::writeFile(inFolder(u"rewritten.url"_s), "URL=https://old/rewritten");
    EXPECT_EQ(listedTargets().size(), 605);

    writeWebloc(u"added"_s, u"https://new/added"_s);
    ASSERT_FALSE(scanner.scan().has_value());
    // A scan asked for again gives up the one under way, whose records the next one reuses.
    ASSERT_FALSE(scanner.scan().has_value());
    ASSERT_TRUE(QFile::remove(inFolder(u"removed.webloc"_s)));
    ASSERT_TRUE(QFile::rename(inFolder(u"renamed.webloc"_s), inFolder(u"moved.webloc"_s)));
    // Rewritten where it is, keeping its inode, as an editor that saves in place does.
    test::writeFile(inFolder(u"rewritten.url"_s), "URL=https://new/rewritten");
    replace(inFolder(u"replaced.webloc"_s), u"https://new/replaced"_s);
    scanner.waitForScan();

    const QMap<QString, QString> targets = listedTargets();
    EXPECT_EQ(targets.size(), 605);
    for (const auto &[name, target] : {std::pair{"added", "https://new/added"},
                                       {"kept", "https://old/kept"},
                                       {"moved", "https://old/renamed"},
                                       {"replaced", "https://new/replaced"},
                                       {"rewritten", "https://new/rewritten"}})
        EXPECT_EQ(targets.value(QString::fromLatin1(name)), QString::fromLatin1(target)) << name;
}

// A file read again on its own after it changed while the worker read it too: the list's
// targets are then looked up again, never taken as the worker read them.
TEST_F(Scan, TheWorkerHandsOverNoListOfTargetsWhenAFileChangedMeanwhile)
{
    // More files than one turn of the event loop stores, and one that is no shortcut.
    writeMixedFolder(1100);
    test::writeFile(inFolder(u"notes.txt"_s), "not a shortcut");
    const QString page = writeWebloc(u"page"_s, u"https://old.example/"_s);
    const QList<IndexedFile> files = FileIndex::scan();
    ASSERT_FALSE(reader.ensureTargets(files));
    replace(page, u"https://new.example/"_s);
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(page)), u"https://new.example/"_s);
    const QDeadlineTimer deadline(60'000);
    while (reader.isReading() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    EXPECT_FALSE(detail::hasListedTargets(files));
    std::vector<std::optional<QString>> readOnTheSpot;
    for (const IndexedFile &file : files)
        readOnTheSpot.push_back(detail::readTarget(file.url).target);
    const std::vector<std::optional<QString>> *cached = detail::cachedTargets(files);
    ASSERT_NE(cached, nullptr);
    EXPECT_EQ(*cached, readOnTheSpot);
}

} // namespace
