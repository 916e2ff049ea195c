// A folder listed, or its targets read, beside the interface must give what a scan on the spot
// gives, and a change made meanwhile must show at the next scan.

#include "core/FolderScanner.h"
#include "core/SearchIndex.h"
#include "core/ShortcutURL.h"
#include "core/TargetReader.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QObject>

#include <gtest/gtest.h>

#include <cstdio>

using namespace Qt::StringLiterals;

using namespace pindle;
using test::writeWebloc;

namespace {

// Names whose sort order is not their listing order, with case, accents and digits in them.
void writeMixedFolder(int count)
{
    const QStringList stems = {u"zeta"_s,    u"Alpha"_s,  u"\u00e9t\u00e9"_s,
                               u"beta 10"_s, u"beta 9"_s, u"Beta"_s};
    for (int i = 0; i < count; ++i)
        writeWebloc(stems[i % stems.size()] + u' ' + QString::number(i * 7919 % count),
                    u"https://example.org/"_s + QString::number(i));
}

// Written beside and renamed over the file at path, as a sync client saves.
void replace(const QString &path, const QString &url)
{
    const QString staged = writeWebloc(u".staged"_s, url);
    ASSERT_EQ(::rename(QFile::encodeName(staged), QFile::encodeName(path)), 0);
}

QStringList namesOf(const QList<IndexedFile> &files)
{
    QStringList names;
    for (const IndexedFile &file : files)
        names.append(file.displayName + u" <"_s + file.url.toString() + u'>');
    return names;
}

QStringList scannedFromNothing()
{
    detail::forgetScannedRecords();
    return namesOf(FileIndex::scan());
}

TEST(BackgroundScan, GivesTheListOfAScanOnTheSpotAndSeesChangesMadeWhileListing)
{
    QObject context;
    QList<IndexedFile> scanned;
    int deliveries = 0;
    FolderScanner scanner(&context, [&](const QList<IndexedFile> &files) {
        scanned = files;
        ++deliveries;
    });
    scanner.setMostBytesInPlace(0);
    writeMixedFolder(600);
    const QString rewritten = writeWebloc(u"rewritten"_s, u"https://old.example/"_s);
    const QString removed = writeWebloc(u"removed"_s, u"https://removed.example/"_s);
    ASSERT_FALSE(scanner.scan().has_value());
    // A scan asked for again gives up the one under way, whose records the next one reuses.
    ASSERT_FALSE(scanner.scan().has_value());
    scanner.waitForScan();
    EXPECT_EQ(deliveries, 1);
    ASSERT_EQ(scanned.size(), 602);
    EXPECT_EQ(namesOf(scanned), scannedFromNothing());
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(rewritten)), u"https://old.example/"_s);

    // Changed while the worker lists the folder; records the scan above made serve the listing.
    writeWebloc(u"filler"_s, u"https://filler.example/"_s);
    ASSERT_FALSE(scanner.scan().has_value());
    writeWebloc(u"added"_s, u"https://added.example/"_s);
    ASSERT_TRUE(QFile::remove(removed));
    replace(rewritten, u"https://new.example/"_s);
    scanner.waitForScan();
    if (std::optional<QList<IndexedFile>> now = scanner.scan())
        scanned = *now;
    scanner.waitForScan();
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(rewritten)), u"https://new.example/"_s);
    const QStringList names = namesOf(scanned);
    EXPECT_EQ(names, scannedFromNothing());
    EXPECT_EQ(names.filter(u"added <"_s).size(), 1);
    EXPECT_TRUE(names.filter(u"removed <"_s).isEmpty());
}

// The targets of a list as read one by one, none cached, against those the cache hands over
// ("-" for none; nothing when not all are cached).
QStringList targetsReadOnTheSpot(const QList<IndexedFile> &files)
{
    QStringList targets;
    for (const IndexedFile &file : files)
        targets.append(detail::readTarget(file.url).target.value_or(u"-"_s));
    return targets;
}

std::optional<QStringList> cachedTargetsOf(const QList<IndexedFile> &files)
{
    const std::vector<std::optional<QString>> *targets = detail::cachedTargets(files);
    if (targets == nullptr)
        return std::nullopt;
    QStringList texts;
    for (const std::optional<QString> &target : *targets)
        texts.append(target.value_or(u"-"_s));
    return texts;
}

// Reads targets on the worker, and stores them a slice per event loop turn as a panel does.
class BackgroundTargets : public testing::Test
{
protected:
    QObject context;
    int reads = 0;
    TargetReader reader{&context, [this] { ++reads; }};
};

// More files than one turn stores, some cached beforehand, one that is no shortcut: the list's
// targets come whole, in the list's order, as reading each on the spot gives them.
TEST_F(BackgroundTargets, HandOverTheTargetsOfTheWholeListInItsOrder)
{
    writeMixedFolder(1300);
    test::writeFile(test::inFolder(u"notes.txt"_s), "not a shortcut");
    const QList<IndexedFile> files = FileIndex::scan();
    ASSERT_EQ(files.size(), 1301);
    for (qsizetype i = 0; i < files.size(); i += 5)
        (void)ShortcutURL::target(files[i].url);

    ASSERT_FALSE(reader.ensureTargets(files));
    const QDeadlineTimer deadline(60'000);
    while (reads == 0 && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    ASSERT_EQ(reads, 1);
    EXPECT_TRUE(detail::hasListedTargets(files));
    EXPECT_EQ(cachedTargetsOf(files), targetsReadOnTheSpot(files));
    EXPECT_TRUE(reader.ensureTargets(files));
}

// A file rewritten while the targets are read, seen by a rescan or read again on its own: the
// list's targets are then looked up again, never taken as the worker read them.
TEST_F(BackgroundTargets, HandOverNoListOfTargetsWhenAFileChangedMeanwhile)
{
    writeMixedFolder(400);
    const QString page = writeWebloc(u"page"_s, u"https://old.example/"_s);
    QList<IndexedFile> files = FileIndex::scan();
    ASSERT_FALSE(reader.ensureTargets(files));
    replace(page, u"https://new.example/"_s);
    files = FileIndex::scan();
    reader.waitForReading();
    EXPECT_FALSE(detail::hasListedTargets(files));
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(page)), u"https://new.example/"_s);

    for (int i = 0; i < 300; ++i)
        writeWebloc(u"more "_s + QString::number(i), u"https://more.example/"_s);
    const QString other = writeWebloc(u"other"_s, u"https://old.example/"_s);
    files = FileIndex::scan();
    ASSERT_FALSE(reader.ensureTargets(files));
    replace(other, u"https://new.example/"_s);
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(other)), u"https://new.example/"_s);
    reader.waitForReading();
    EXPECT_FALSE(detail::hasListedTargets(files));
    EXPECT_EQ(cachedTargetsOf(files), targetsReadOnTheSpot(files));
}

} // namespace
