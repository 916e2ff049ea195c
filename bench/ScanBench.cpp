// Times the shortcut folder's scan (building every record, and again on the unchanged folder),
// the first target() pass over every file, and URL matching over an empty cache (what the
// creator's URL list costs when it opens), on a folder of 10,000 shortcuts in a temporary home.
// The page cache is warm: every figure is taken after an untimed first round.
//
//   pindle-scan-bench [files] [rounds]

#include "core/FileIndex.h"
#include "core/SearchIndex.h"
#include "core/ShortcutURL.h"

#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <plist/plist.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

using namespace pindle;

namespace {

constexpr int defaultFileCount = 10'000;
constexpr int defaultRounds = 25;
constexpr double scanBudgetMs = 15;
constexpr double targetPassBudgetMs = 120;

const char *const words[] = {"Project", "notes", "Café", "weekly", "report", "Trip", "Berlin",
                             "docs",    "API",   "über", "wiki",   "issue",  "東京", "Review",
                             "budget",  "2024",  "Plan", "design", "recipe", "Mail"};

QByteArray xmlShortcut(const QByteArray &url)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD "
           "PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist "
           "version=\"1.0\">\n<dict>\n\t<key>URL</key>\n\t<string>" +
           url + "</string>\n</dict>\n</plist>\n";
}

QByteArray binaryShortcut(const QByteArray &url)
{
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "URL", plist_new_string(url.constData()));
    char *bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    QByteArray result(bytes, length);
    std::free(bytes); // malloc'd; plist_to_bin_free is gone from libplist 2.3
    plist_free(root);
    return result;
}

// Shortcut files of all three kinds, most of them XML property lists as browsers write them.
bool fillFolder(const QString &folder, int count)
{
    if (!QDir().mkpath(folder))
        return false;
    QRandomGenerator random(42);
    for (int i = 0; i < count; ++i) {
        QString name;
        for (int w = 0, n = 1 + int(random.bounded(4)); w < n; ++w)
            name += QString::fromUtf8(words[random.bounded(int(std::size(words)))]) + u' ';
        name += QString::number(i);
        const QByteArray url = "https://example.org/" + QByteArray::number(i) +
                               "?q=" + QByteArray::number(random.generate(), 36);
        const int kind = i % 10;
        QFile file(folder + u'/' + name +
                   (kind < 6   ? u".webloc"_s
                    : kind < 7 ? u".inetloc"_s
                               : u".url"_s));
        const QByteArray bytes = kind < 6   ? xmlShortcut(url)
                                 : kind < 7 ? binaryShortcut(url)
                                            : "[InternetShortcut]\r\nURL=" + url + "\r\n";
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            return false;
    }
    return true;
}

// Wall-clock time, and the CPU time of this thread: on a machine shared with other work the
// second shows what the code costs without the waits for a processor.
class Stopwatch
{
public:
    Stopwatch() { restart(); }
    void restart()
    {
        m_wall.start();
        m_cpu = cpuNanoseconds();
    }
    // Milliseconds since the last restart: wall clock, then CPU.
    std::pair<double, double> lap() const
    {
        return {double(m_wall.nsecsElapsed()) / 1e6, double(cpuNanoseconds() - m_cpu) / 1e6};
    }

private:
    static qint64 cpuNanoseconds()
    {
        timespec now = {};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return qint64(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
    }
    QElapsedTimer m_wall;
    qint64 m_cpu = 0;
};

struct Samples
{
    std::vector<double> wall, cpu;
    void add(std::pair<double, double> lap)
    {
        wall.push_back(lap.first);
        cpu.push_back(lap.second);
    }
};

// Median and best: the best round is the one least disturbed by other work on the machine.
std::pair<double, double> medianAndBest(std::vector<double> samples)
{
    std::ranges::sort(samples);
    return {samples[samples.size() / 2], samples.front()};
}

void report(const char *what, const Samples &samples, double budget = 0)
{
    const auto [wallMedian, wallBest] = medianAndBest(samples.wall);
    const auto [cpuMedian, cpuBest] = medianAndBest(samples.cpu);
    std::printf("%-28s wall %7.2f / %7.2f ms   cpu %7.2f / %7.2f ms", what, wallMedian, wallBest,
                cpuMedian, cpuBest);
    if (budget > 0)
        std::printf("   budget %5.1f ms", budget);
    std::printf("\n");
}

// What the machine itself charges, for comparison: one listing of the folder, and opening,
// sizing, reading and closing every file in it, with nothing else done.
void listOnly(const QByteArray &folder, std::vector<QByteArray> *paths)
{
    DIR *listing = ::opendir(folder.constData());
    while (const dirent *entry = listing ? ::readdir(listing) : nullptr) {
        if (paths != nullptr && entry->d_name[0] != '.')
            paths->push_back(folder + '/' + entry->d_name);
    }
    if (listing != nullptr)
        ::closedir(listing);
}

void readOnly(const std::vector<QByteArray> &paths)
{
    char buffer[4096];
    for (const QByteArray &path : paths) {
        const int fd = ::open(path.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        struct stat info = {};
        if (fd >= 0 && ::fstat(fd, &info) == 0 && ::read(fd, buffer, sizeof buffer) < 0)
            std::fprintf(stderr, "read failed\n");
        ::close(fd);
    }
}

} // namespace

int main(int argc, char **argv)
{
    const int fileCount = argc > 1 ? std::atoi(argv[1]) : defaultFileCount;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : defaultRounds;
    QTemporaryDir home;
    if (!home.isValid() || fileCount <= 0 || rounds <= 0)
        return 2;
    qputenv("HOME", QFile::encodeName(home.path()));
    if (!fillFolder(FileIndex::directory().toLocalFile(), fileCount)) {
        std::fprintf(stderr, "could not write the shortcut files\n");
        return 1;
    }

    const QByteArray folder = QFile::encodeName(FileIndex::directory().toLocalFile());
    std::vector<QByteArray> paths;
    listOnly(folder, &paths);
    Samples freshScans, scans, changedScans, matchingPasses, targetPasses, subtitlePasses, listings,
        readings;
    qsizetype listed = 0, withTarget = 0;
    // As in a panel, the last scan's list is replaced only once the new one is made.
    QList<IndexedFile> shown;
    // Round 0 warms the page cache and the collator and is not counted.
    for (int round = 0; round <= rounds; ++round) {
        // A scan that builds every record, as the first one of a process does, then a rescan of
        // the unchanged folder, which returns the list before, then one after a file was
        // added, which lists the folder again and takes the unchanged records.
        detail::forgetScannedRecords();
        Stopwatch stopwatch;
        const QList<IndexedFile> fresh = FileIndex::scan();
        const auto freshScan = stopwatch.lap();
        shown = fresh;

        stopwatch.restart();
        const QList<IndexedFile> files = FileIndex::scan();
        const auto scan = stopwatch.lap();

        const QByteArray added = folder + "/added since.webloc";
        if (const int fd = ::open(added.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644); fd >= 0)
            ::close(fd);
        stopwatch.restart();
        (void)FileIndex::scan();
        const auto changedScan = stopwatch.lap();
        ::unlink(added.constData());
        (void)FileIndex::scan();

        // What the creator's URL list costs: every target read, on two threads, then compared.
        stopwatch.restart();
        (void)FileIndex::matching(u"https://example.org/1"_s, files, 9);
        const auto matchingPass = stopwatch.lap();
        ShortcutURL::clearCaches();

        stopwatch.restart();
        qsizetype found = 0;
        for (const IndexedFile &file : files)
            found += ShortcutURL::target(file.url).has_value();
        const auto targetPass = stopwatch.lap();

        stopwatch.restart();
        for (const IndexedFile &file : files)
            (void)ShortcutURL::subtitle(file.url);
        const auto subtitlePass = stopwatch.lap();

        stopwatch.restart();
        listOnly(folder, nullptr);
        const auto listing = stopwatch.lap();
        stopwatch.restart();
        readOnly(paths);
        const auto reading = stopwatch.lap();

        shown = files;
        if (round == 0) {
            listed = files.size();
            withTarget = found;
            continue;
        }
        freshScans.add(freshScan);
        scans.add(scan);
        changedScans.add(changedScan);
        matchingPasses.add(matchingPass);
        targetPasses.add(targetPass);
        subtitlePasses.add(subtitlePass);
        listings.add(listing);
        readings.add(reading);
    }

    std::printf("%lld files listed, %lld with a target; median / best of %d rounds\n",
                qlonglong(listed), qlonglong(withTarget), rounds);
    report("scan(), every record new", freshScans, scanBudgetMs);
    report("scan(), folder unchanged", scans, scanBudgetMs);
    report("scan(), one file added", changedScans, scanBudgetMs);
    report("first target() pass", targetPasses, targetPassBudgetMs);
    report("matching(), cache empty", matchingPasses);
    report("subtitle() pass, from cache", subtitlePasses);
    report("bare listing", listings);
    report("bare open/fstat/read/close", readings);
    return listed == fileCount && withTarget == fileCount ? 0 : 1;
}
