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

QStringList namesOf(const QList<IndexedFile> &files)
{
    QStringList names;
    for (const IndexedFile &file : files)
        names.append(file.displayName + u" <"_s + file.url.toString() + u'>');
    return names;
}

// Scans with everything listed on the worker, as for a large folder.
class BackgroundScan : public testing::Test
{
protected:
    BackgroundScan()
        : scanner(&context, [this](const QList<IndexedFile> &files) {
              scanned = files;
              ++deliveries;
          })
    {
        scanner.setMostBytesInPlace(0);
    }

    // The list a panel would show: at hand, or once the worker is done.
    QList<IndexedFile> listed()
    {
        if (std::optional<QList<IndexedFile>> now = scanner.scan())
            return *now;
        EXPECT_TRUE(scanner.isScanning());
        scanner.waitForScan();
        return scanned;
    }

    static QList<IndexedFile> scannedFromNothing()
    {
        detail::forgetScannedRecords();
        return FileIndex::scan();
    }

    QObject context;
    QList<IndexedFile> scanned;
    int deliveries = 0;
    FolderScanner scanner;
};

TEST_F(BackgroundScan, GivesExactlyTheListOfAScanOnTheSpot)
{
    writeMixedFolder(600);
    ASSERT_FALSE(scanner.scan().has_value());
    // A scan asked for again gives up the one under way, whose records the next one reuses.
    const QList<IndexedFile> first = listed();
    EXPECT_EQ(deliveries, 1);
    ASSERT_EQ(first.size(), 600);
    EXPECT_EQ(namesOf(first), namesOf(scannedFromNothing()));
    // And the other way round: records a synchronous scan made serve the worker's listing.
    writeWebloc(u"Alpha new"_s, u"https://example.org/new"_s);
    EXPECT_EQ(namesOf(listed()), namesOf(scannedFromNothing()));
}

TEST_F(BackgroundScan, SeesAChangeMadeWhileListingAtTheNextScan)
{
    writeMixedFolder(300);
    const QString rewritten = writeWebloc(u"rewritten"_s, u"https://old.example/"_s);
    const QString removed = writeWebloc(u"removed"_s, u"https://removed.example/"_s);
    const QList<IndexedFile> before = listed();
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(rewritten)), u"https://old.example/"_s);

    writeWebloc(u"zz filler"_s, u"https://filler.example/"_s);
    ASSERT_FALSE(scanner.scan().has_value());
    // While the worker lists the folder.
    writeWebloc(u"added"_s, u"https://added.example/"_s);
    ASSERT_TRUE(QFile::remove(removed));
    const QString staged = writeWebloc(u".staged"_s, u"https://new.example/"_s);
    ASSERT_EQ(::rename(QFile::encodeName(staged), QFile::encodeName(rewritten)), 0);
    scanner.waitForScan();

    const QList<IndexedFile> after = listed();
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(rewritten)), u"https://new.example/"_s);
    const QStringList names = namesOf(after);
    EXPECT_EQ(names, namesOf(scannedFromNothing()));
    EXPECT_EQ(after.size(), before.size() + 1);
    EXPECT_TRUE(names.filter(u"added <"_s).size() == 1);
    EXPECT_TRUE(names.filter(u"removed <"_s).isEmpty());
}

// The targets of a list as ShortcutURL reads them one by one, none cached ("-" for none).
QStringList targetsReadOnTheSpot(const QList<IndexedFile> &files)
{
    QStringList targets;
    for (const IndexedFile &file : files)
        targets.append(detail::readTarget(file.url).target.value_or(u"-"_s));
    return targets;
}

// The list's targets as the cache hands them over, if all are cached.
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
    void readAll(const QList<IndexedFile> &files)
    {
        ASSERT_FALSE(reader.ensureTargets(files));
        ASSERT_TRUE(reader.isReading());
        const QDeadlineTimer deadline(60'000);
        while (reads == 0 && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        ASSERT_EQ(reads, 1);
    }

    QObject context;
    int reads = 0;
    TargetReader reader{&context, [this] { ++reads; }};
};

// More files than one turn stores, some cached beforehand, one that is no shortcut: the list's
// targets come whole, in the list's order, as reading each on the spot gives them.
TEST_F(BackgroundTargets, HandOverTheTargetsOfTheWholeListInItsOrder)
{
    writeMixedFolder(1300);
    test::writeFile(test::shortcutFolder() + u"/notes.txt"_s, "not a shortcut");
    const QList<IndexedFile> files = FileIndex::scan();
    ASSERT_EQ(files.size(), 1301);
    for (qsizetype i = 0; i < files.size(); i += 5)
        (void)ShortcutURL::target(files[i].url);

    readAll(files);
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
    const QUrl pageUrl = QUrl::fromLocalFile(page);
    QList<IndexedFile> files = FileIndex::scan();

    ASSERT_FALSE(reader.ensureTargets(files));
    const QString staged = writeWebloc(u".staged"_s, u"https://new.example/"_s);
    ASSERT_EQ(::rename(QFile::encodeName(staged), QFile::encodeName(page)), 0);
    files = FileIndex::scan();
    reader.waitForReading();
    EXPECT_FALSE(detail::hasListedTargets(files));
    EXPECT_EQ(ShortcutURL::target(pageUrl), u"https://new.example/"_s);

    // Another file read on the spot, after it changed, while the worker reads it too.
    for (int i = 0; i < 300; ++i)
        writeWebloc(u"more "_s + QString::number(i), u"https://more.example/"_s);
    const QString other = writeWebloc(u"other"_s, u"https://old.example/"_s);
    files = FileIndex::scan();
    ASSERT_FALSE(reader.ensureTargets(files));
    const QString restaged = writeWebloc(u".staged"_s, u"https://new.example/"_s);
    ASSERT_EQ(::rename(QFile::encodeName(restaged), QFile::encodeName(other)), 0);
    EXPECT_EQ(ShortcutURL::target(QUrl::fromLocalFile(other)), u"https://new.example/"_s);
    reader.waitForReading();
    EXPECT_FALSE(detail::hasListedTargets(files));
    EXPECT_EQ(cachedTargetsOf(files), targetsReadOnTheSpot(files));
}

} // namespace
